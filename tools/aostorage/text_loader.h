// The text form of a store, read line by line and made into streams.
#ifndef AOSTORAGE_TOOLS_TEXT_LOADER_H_
#define AOSTORAGE_TOOLS_TEXT_LOADER_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "store.h"
#include "text_form.h"
#include "trail.h"

namespace aotool {

// The lines of a file. Holds one at a time, of bounded length.
class LineReader {
 public:
  explicit LineReader(int descriptor) : input(descriptor), buffer(2 * kLongestLine) {}

  // `line` is good until the next call and without its end, which may be that of another system.
  // `got` is false at the end.
  Result Next(std::string_view& line, bool& got);
  std::uint64_t Number() const { return number; }  // of the last line, from 1

 private:
  int input;
  std::vector<char> buffer;
  std::size_t begin = 0, end = 0;  // what was read and is not given yet
  bool atEnd = false;
  std::uint64_t number = 0;
};

// Makes streams of the lines in an empty store, which is open for writing.
class TextLoader {
 public:
  explicit TextLoader(aostorage::aoStorage& empty) : storage(empty), trail({&empty, nullptr}) {}

  Result Take(std::string_view line);
  // After the last line.
  Result Finish() const;

  const TextTotals& Made() const { return made; }

 private:
  Result TakeStream(const TextRecord& record);
  Result TakeData(std::string_view line);
  Result EndStream();
  Result Create(const TextRecord& record, StreamPtr& stream);
  Result CheckFolders(const TextRecord& record) const;
  Result WriteHeld();

  aostorage::aoStorage& storage;
  Trail trail;  // of the folders that later lines can fill
  StreamPtr current;
  std::uint64_t missing = 0;  // bytes of `current` that are still to come
  std::string held;           // of these, what is not written yet
  TextTotals made;
  bool begun = false, ended = false;
};

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_TEXT_LOADER_H_
