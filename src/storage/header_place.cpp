#include "storage/header_place.h"

#include <algorithm>

namespace aostorage::detail {

HeaderPlace::HeaderPlace(const FilePieces& recordPieces) : first(recordPieces.front().offset) {
  if (recordPieces.size() > 1) pieces = recordPieces;
}

bool HeaderPlace::Read(File& file, StreamHeader::Bytes& record) const {
  if (IsWhole()) return file.ReadExactlyAt(first, record.data(), record.size());
  std::size_t at = 0;
  for (const FilePiece& piece : pieces) {
    if (!file.ReadExactlyAt(piece.offset, record.data() + at, piece.size)) return false;
    at += piece.size;
  }
  return true;
}

bool HeaderPlace::Write(File& file, std::size_t from, const std::uint8_t* bytes,
                        std::size_t count) const {
  if (IsWhole()) return file.WriteAt(first + from, bytes, count);
  std::size_t pieceStart = 0;
  for (const FilePiece& piece : pieces) {
    const std::size_t begin = std::max(from, pieceStart);
    const std::size_t end = std::min(from + count, pieceStart + piece.size);
    if (begin < end &&
        !file.WriteAt(piece.offset + (begin - pieceStart), bytes + (begin - from), end - begin)) {
      return false;
    }
    pieceStart += piece.size;
  }
  return true;
}

}  // namespace aostorage::detail
