// A file as the inspection sees it: read-only, in small pieces from anywhere, mostly forwards.
#ifndef AOSTORAGE_INSPECT_FILE_VIEW_H_
#define AOSTORAGE_INSPECT_FILE_VIEW_H_

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/file.h"

namespace aostorage::detail {

// Reads the file in pages and keeps some, so that records that lie side by side cost one system
// call together. Where links lead to and fro, a page for each record would bring the whole file
// many times over: pages are read as long as what they bring stays in proportion, then single
// records. A page that the system cannot read counts as zeros, and is remembered.
class FileView {
 public:
  FileView(File source, std::uint64_t sourceSize);

  std::uint64_t Size() const { return size; }
  // Bytes read: fewer than `count` only at the end of the file.
  std::size_t Read(std::uint64_t offset, void* buffer, std::size_t count);
  bool ReadExactly(std::uint64_t offset, void* buffer, std::size_t count) {
    return Read(offset, buffer, count) == count;
  }
  // Past the pages, for what is read once: straight into the buffer.
  std::size_t ReadThrough(std::uint64_t offset, void* buffer, std::size_t count);

  // Where the system could not read; each page once, at most kMostUnreadable of them.
  const std::vector<std::uint64_t>& Unreadable() const { return unreadable; }
  // How many bytes were given as zeros so far because the system could not read them.
  std::uint64_t BytesMadeUp() const { return madeUp; }

 private:
  static constexpr std::size_t kPageSize = 16384;
  static constexpr std::size_t kPages = 64;
  // One bad sector must not take its neighbours along.
  static constexpr std::size_t kSector = 512;
  static constexpr std::size_t kMostUnreadable = 1000;
  struct Page {
    std::uint64_t offset = ~std::uint64_t{0};
    std::size_t count = 0;
    std::bitset<kPageSize / kSector> bad;  // sectors that could not be read
    std::array<std::uint8_t, kPageSize> bytes;
  };

  static constexpr std::uint64_t kFreeRounds = 6;  // over the whole file
  static constexpr std::uint64_t kMostForOne = 4;  // bytes brought for one that is asked for

  bool HasPage(std::uint64_t offset) const {
    return pages[offset / kPageSize % pageCount].offset == offset;
  }
  const Page& PageAt(std::uint64_t offset);
  void CountMadeUp(const Page& page, std::size_t from, std::size_t count);
  bool ReadSector(std::uint64_t offset, std::uint8_t* to, std::size_t count);
  void NoteUnreadable(std::uint64_t offset);

  File file;
  std::uint64_t size;
  std::size_t pageCount;  // as many as the file has, kPages at most
  std::unique_ptr<Page[]> pages;
  std::vector<std::uint64_t> unreadable;
  std::uint64_t madeUp = 0;
  std::uint64_t credit;  // bytes that pages may bring
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_INSPECT_FILE_VIEW_H_
