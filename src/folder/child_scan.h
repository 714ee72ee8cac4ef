// Reads a folder's data in whole stretches.
#ifndef AOSTORAGE_FOLDER_CHILD_SCAN_H_
#define AOSTORAGE_FOLDER_CHILD_SCAN_H_

#include <algorithm>
#include <cstdint>
#include <vector>

#include "platform/file.h"
#include "storage/chain_cursor.h"
#include "storage/header_place.h"
#include "storage/records.h"

namespace aostorage::detail {

// A part of the file in memory, for the length of one scan. The blocks of a folder lie near each
// other as a rule, with their children's small blocks between: one read brings many of them.
class FileWindow {
 public:
  // `first`: how much the first read may bring.
  FileWindow(File& openFile, std::uint32_t first) : file(openFile), credit(first) {}
  // False when the file cannot be read or ends before the bytes do.
  [[nodiscard]] bool Read(std::uint64_t offset, std::uint8_t* out, std::uint32_t count);
  File& Source() { return file; }

 private:
  // Each further read nearby is larger; but what is brought stays in proportion to what is asked
  // for, however the blocks are strewn.
  static constexpr std::uint32_t kFirstSize = 4096;
  static constexpr std::uint32_t kLargestSize = 65536;
  static constexpr std::uint32_t kMostForOne = 10;  // bytes brought for one that is asked for

  File& file;
  std::uint64_t start = 0;
  std::vector<std::uint8_t> bytes;
  std::uint32_t nextSize = kFirstSize;
  std::uint64_t credit;  // bytes that may be brought
};

// Reads the records of a folder one behind the other.
class ChildScan {
 public:
  enum class Result {
    kRecord,
    kEnd,     // no byte is left in the chain, or too few for a whole record
    kFailed,  // a block is damaged or cannot be read
  };

  // The cursor is taken as it stands; its block's header is read anew.
  // @param length  bytes that are likely to be read
  ChildScan(File& file, const ChainCursor& start, std::uint32_t length)
      : window(file, std::clamp(length, kLeastFirst, kMostFirst)), cursor(start) {
    cursor.loaded = false;
  }

  // The folder's count word. kEnd when there are too few bytes for it.
  Result ReadCount(std::uint32_t& count);
  // On kEnd and kFailed the cursor stands where the record would begin.
  Result ReadRecord(tag_aoStream& record);

  // Behind what was read last.
  const ChainCursor& Cursor() const { return cursor; }
  // Where in the file the bytes read last lie.
  const FilePieces& Pieces() const { return pieces; }
  // Adds the bytes passed from now on, with the headers of their blocks, to `total`: also those of
  // a read that came to nothing.
  void CountInto(std::uint64_t& total) { walked = &total; }

 private:
  // Most folders are small: there may be as many as the file has room for.
  static constexpr std::uint32_t kLeastFirst = 128;
  static constexpr std::uint32_t kMostFirst = 1024;

  Result ReadBytes(std::uint8_t* out, std::uint32_t count);
  [[nodiscard]] bool Load();

  void Count(std::uint32_t count) {
    if (walked != nullptr) *walked += count;
  }

  FileWindow window;
  ChainCursor cursor;
  FilePieces pieces;
  std::uint64_t* walked = nullptr;
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_FOLDER_CHILD_SCAN_H_
