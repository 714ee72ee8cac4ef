#include "byte_kinds.h"

#include "interrupt.h"

namespace aotool {
namespace {

using aostorage::Record;
using aostorage::RecordKind;
using aostorage::RecordState;

constexpr ByteKindWords kWords[kByteKinds] = {
    {"directory", "header and directory", 'H', Tint::kCyan},
    {"folders", "folder records", 'F', Tint::kBlue},
    {"data", "data", 'D', Tint::kGreen},
    {"blockHeaders", "block headers", 'B', Tint::kBold},
    {"reserve", "reserve", 'R', Tint::kYellow},
    {"behindLength", "behind the length", 'L', Tint::kYellow},
    {"removed", "removed", 'X', Tint::kRed},
    {"unreachable", "unreachable", 'U', Tint::kMagenta},
    {"unknown", "in no record", '?', Tint::kDim},
};

constexpr std::uint64_t kDirectorySize = 5132;

}  // namespace

const ByteKindWords& WordsOf(ByteKind kind) { return kWords[static_cast<std::size_t>(kind)]; }

std::optional<ByteKind> ByteSorter::KindOf(const Record& record) {
  // A block header that another chain claims as well is the record of its bytes; a claim on bytes
  // inside another record is none.
  const bool inBlock = record.block != aostorage::kNoIndex;
  if (record.state == RecordState::kOverlapping && !inBlock) return std::nullopt;
  if (inBlock) return OfBlock(record);
  switch (record.kind) {
    case RecordKind::kFileHeader:
      return ByteKind::kDirectory;
    case RecordKind::kDirectoryBlock:
      directoryEnd = record.offset + kDirectorySize;
      directoryIsLive = record.state == RecordState::kLive;
      return directoryIsLive ? ByteKind::kDirectory : ByteKind::kUnreachable;
    case RecordKind::kSlot:
      return OfSlot(record);
    default:
      return ByteKind::kUnknown;
  }
}

// The slot of a removed stream is room in the directory like any other.
ByteKind ByteSorter::OfSlot(const Record& record) const {
  return record.offset < directoryEnd && directoryIsLive ? ByteKind::kDirectory
                                                         : ByteKind::kUnreachable;
}

// By the stream that holds the block: a record of a child belongs to its folder.
ByteKind ByteSorter::OfBlock(const Record& record) const {
  const std::uint32_t owner = found.Blocks()[record.block].stream;
  const RecordState state = found.Streams()[owner].state;
  if (state == RecordState::kVacated) return ByteKind::kRemoved;
  if (state != RecordState::kLive) return ByteKind::kUnreachable;
  switch (record.kind) {
    case RecordKind::kBlockHeader:
      return ByteKind::kBlockHeaders;
    case RecordKind::kFolderCount:
    case RecordKind::kChildRecord:
      return ByteKind::kFolders;
    case RecordKind::kBehindLength:
      return ByteKind::kBehindLength;
    case RecordKind::kReserve:
      return ByteKind::kReserve;
    default:
      return ByteKind::kData;
  }
}

bool SumByKind(const aostorage::Inspection& found, KindSums& sums) {
  sums.fill(0);
  ByteSorter sorter(found);
  return found.ForEachRecord([&](const Record& record) {
    if (const auto kind = sorter.KindOf(record))
      sums[static_cast<std::size_t>(*kind)] += record.size;
    return !Interrupted();
  });
}

}  // namespace aotool
