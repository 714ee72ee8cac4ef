// Where a stream's header lies in the file.
#ifndef AOSTORAGE_STORAGE_HEADER_PLACE_H_
#define AOSTORAGE_STORAGE_HEADER_PLACE_H_

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "platform/file.h"
#include "storage/records.h"

namespace aostorage::detail {

// One stretch of a stream's bytes.
struct FilePiece {
  std::uint32_t block;   // file offset of the block that it lies in
  std::uint32_t offset;  // file offset of its first byte
  std::uint32_t size;
};
using FilePieces = std::vector<FilePiece>;

// The 80 bytes of a stream header, the count word of a folder or the header of a block: in one
// piece, or in several where it lies across blocks of the folder. Reads and rewrites parts of it in
// their own places and nothing beside them.
//
// When a process is killed inside a write, the system leaves what came before a border of 4,096
// bytes of the file, and not what came behind it. So what crosses such a border is written in
// parts, like what lies in several pieces, and in an order that leaves a record that can be read.
class HeaderPlace {
 public:
  HeaderPlace() = default;
  explicit HeaderPlace(std::uint32_t headerOffset) : first(headerOffset) {}
  // `recordPieces` add up to one record, in order.
  explicit HeaderPlace(const FilePieces& recordPieces);

  // File offset of the record's first byte.
  std::uint32_t Offset() const { return first; }
  bool IsWhole() const { return pieces.empty(); }

  [[nodiscard]] bool Read(File& file, StreamHeader::Bytes& record) const;
  // Writes `count` bytes at offset `from` of the record and on.
  [[nodiscard]] bool Write(File& file, std::size_t from, const std::uint8_t* bytes,
                           std::size_t count) const;
  // Writes `count` bytes of 32-bit words at `from` and on, in one call if they lie together. Else
  // the words at `order` behind `from`, which are all that can change, are written one by one.
  [[nodiscard]] bool WriteWords(File& file, std::size_t from, const std::uint8_t* before,
                                const std::uint8_t* after, std::size_t count,
                                std::initializer_list<std::size_t> order) const;
  // Where the part of the record begins that does not lie together with its first byte; the size of
  // a stream header when there is none.
  std::size_t FirstBorder() const { return BorderIn(0, StreamHeader::kSize); }
  // Writes a stream header, the part behind the first border before the other one.
  [[nodiscard]] bool WriteFromEnd(File& file, const StreamHeader::Bytes& record) const;

 private:
  // How many of `count` bytes at `from` lie before the first border; all when there is none.
  std::size_t BorderIn(std::size_t from, std::size_t count) const;
  [[nodiscard]] bool WriteWord(File& file, std::size_t at, const std::uint8_t* before,
                               const std::uint8_t* after) const;

  std::uint32_t first = 0;
  FilePieces pieces;  // empty: whole, at `first`
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_STORAGE_HEADER_PLACE_H_
