// What else than sound streams that can be reached is found in a store, and how it is told of.
#ifndef AOSTORAGE_TOOLS_RECOVER_FINDS_H_
#define AOSTORAGE_TOOLS_RECOVER_FINDS_H_

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include <aostorage/inspect.h>

#include "json.h"
#include "names.h"
#include "recover_verdict.h"
#include "report.h"

namespace aotool {

// One thing to tell.
struct Find {
  const char* what = "";  // one word, see docs/aostorage-json.schema.json
  std::string path;       // in the new store; empty when nothing of it is there
  std::string from;       // in the old one; empty when it is about the store itself
  std::uint64_t offset = 0;
  bool folder = false;
  std::uint64_t bytes = 0;  // that were brought back
  bool hasLength = false;
  std::uint64_t length = 0;  // that it should have
  std::string why;
};

// What a find is whose header is damaged.
inline constexpr const char* kDamagedHeader = "damaged";

// A find about a stream, all but its path in the new store.
Find FindOf(const aostorage::Inspection& source, std::uint32_t stream, const Verdict& verdict);

// A name for a stream that does not stand where it was, which tells what it is: "removed-12345",
// "NAME~hidden-544", "NAME~cut-4096-of-20000".
std::string LostName(const aostorage::Inspection& source, std::uint32_t stream,
                     const Verdict& verdict, UsedNames& used);

// Text that is kept until it is known that there is an answer. There can be more of it than memory.
class Spool {
 public:
  Result Open();
  Result Add(std::string_view text);
  // Gives all of it to `take`, which returns a Result, in pieces.
  template <typename Take>
  Result ForEach(Take take);
  bool IsEmpty() const { return isEmpty; }

 private:
  struct Closer {
    void operator()(std::FILE* open) const { std::fclose(open); }
  };
  static Result Failed();
  std::unique_ptr<std::FILE, Closer> file;
  bool isEmpty = true;
};

template <typename Take>
Result Spool::ForEach(Take take) {
  std::rewind(file.get());
  char piece[16384];
  for (;;) {
    const std::size_t got = std::fread(piece, 1, sizeof piece, file.get());
    if (std::ferror(file.get()) != 0) return Failed();
    if (got == 0) return {};
    if (Result result = take(std::string_view(piece, got)); !result.Ok()) return result;
  }
}

std::string TextOf(const Find& find);  // one line
Json JsonOf(const Find& find);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_RECOVER_FINDS_H_
