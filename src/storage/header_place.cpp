#include "storage/header_place.h"

#include <algorithm>
#include <cstring>

namespace aostorage::detail {
namespace {

constexpr std::size_t kWordSize = 4;
constexpr std::size_t kPageSize = 4096;

}  // namespace

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

bool HeaderPlace::WriteWords(File& file, std::size_t from, const std::uint8_t* before,
                             const std::uint8_t* after, std::size_t count,
                             std::initializer_list<std::size_t> order) const {
  if (BorderIn(from, count) == count) return Write(file, from, after, count);
  return std::all_of(order.begin(), order.end(), [&](std::size_t at) {
    return WriteWord(file, from + at, before + at, after + at);
  });
}

// A word that has a border inside takes a third value for a moment. It is one between the two where
// there is such a one: that promises no more than the greater and drops no more than the smaller.
bool HeaderPlace::WriteWord(File& file, std::size_t at, const std::uint8_t* before,
                            const std::uint8_t* after) const {
  const std::size_t border = BorderIn(at, kWordSize);
  std::uint8_t mixed[kWordSize];
  std::memcpy(mixed, before, border);
  std::memcpy(mixed + border, after + border, kWordSize - border);
  const auto [least, most] = std::minmax({Load32(before), Load32(after)});
  const bool fromEnd = least <= Load32(mixed) && Load32(mixed) <= most;
  if (border == kWordSize || !fromEnd) return Write(file, at, after, kWordSize);
  return Write(file, at + border, after + border, kWordSize - border) &&
         Write(file, at, after, border);
}

bool HeaderPlace::WriteFromEnd(File& file, const StreamHeader::Bytes& record) const {
  const std::size_t border = FirstBorder();
  return (border == record.size() ||
          Write(file, border, record.data() + border, record.size() - border)) &&
         Write(file, 0, record.data(), border);
}

std::size_t HeaderPlace::BorderIn(std::size_t from, std::size_t count) const {
  const auto inPage = [](std::size_t fileOffset) { return kPageSize - fileOffset % kPageSize; };
  if (IsWhole()) return std::min(count, inPage(first + from));
  std::size_t pieceStart = 0;
  for (const FilePiece& piece : pieces) {
    const std::size_t pieceEnd = pieceStart + piece.size;
    if (from < pieceEnd) {
      return std::min({count, pieceEnd - from, inPage(piece.offset + (from - pieceStart))});
    }
    pieceStart = pieceEnd;
  }
  return count;
}

}  // namespace aostorage::detail
