// Where a stream's header lies in the file.
#ifndef AOSTORAGE_STORAGE_HEADER_PLACE_H_
#define AOSTORAGE_STORAGE_HEADER_PLACE_H_

#include <cstddef>
#include <cstdint>
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

// The 80 bytes of a stream header, or the count word of a folder: in one piece, or in several where
// it lies across blocks of the folder. Reads and rewrites parts of it in their own places and
// nothing beside them.
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

 private:
  std::uint32_t first = 0;
  FilePieces pieces;  // empty: whole, at `first`
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_STORAGE_HEADER_PLACE_H_
