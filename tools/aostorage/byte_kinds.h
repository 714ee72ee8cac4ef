// What the bytes of a store are for, as a user thinks of it: each byte of the file is of one kind.
#ifndef AOSTORAGE_TOOLS_BYTE_KINDS_H_
#define AOSTORAGE_TOOLS_BYTE_KINDS_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include <aostorage/inspect.h>

#include "style.h"

namespace aotool {

enum class ByteKind : std::uint8_t {
  kDirectory,     // the file header and the directory blocks with all their slots
  kFolders,       // the records in folders
  kData,          // below the length of a stream
  kBlockHeaders,  // of blocks that are in use
  kReserve,       // above `used`
  kBehindLength,  // below `used`, and no length covers them
  kRemoved,       // chains of removed streams
  kUnreachable,   // streams and chains that no name leads to
  kUnknown,       // in no record at all
};
inline constexpr std::size_t kByteKinds = 9;

// Bytes of each kind.
using KindSums = std::array<std::uint64_t, kByteKinds>;

struct ByteKindWords {
  const char* key;    // in JSON
  const char* title;  // in tables and legends
  char letter;        // on the terminal map
  Tint tint;
};
const ByteKindWords& WordsOf(ByteKind kind);

inline constexpr bool IsDead(ByteKind kind) { return kind >= ByteKind::kRemoved; }

// Takes the records of Inspection::ForEachRecord, in their order, and tells the kind of each.
class ByteSorter {
 public:
  explicit ByteSorter(const aostorage::Inspection& inspection) : found(inspection) {}

  // Nothing for a record that lies on bytes of other ones: those are told of with these.
  std::optional<ByteKind> KindOf(const aostorage::Record& record);

 private:
  ByteKind OfSlot(const aostorage::Record& record) const;
  ByteKind OfBlock(const aostorage::Record& record) const;

  const aostorage::Inspection& found;
  // The directory block that the records are in, or were in last.
  std::uint64_t directoryEnd = 0;
  bool directoryIsLive = true;
};

// False when memory ran out or the user interrupted it.
bool SumByKind(const aostorage::Inspection& found, KindSums& sums);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_BYTE_KINDS_H_
