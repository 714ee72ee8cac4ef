// The records of a file in the order of their offsets.
#include <algorithm>
#include <vector>

#include "inspect/inspected_file.h"

namespace aostorage::detail {
namespace {

// Something that lies in the file in one piece, and what its bytes are.
struct Extent {
  enum Kind : std::uint8_t { kDirectory, kBlock, kLoneHeader, kOverlap };
  std::uint64_t begin;
  Kind kind;
  std::uint32_t index;
};

class RecordList {
 public:
  RecordList(const InspectedFile& found, const std::function<bool(const Record&)>& taker)
      : file(found), take(taker) {}

  bool Give() {
    Collect();
    if (file.hasHeader) Put({0, file.headerSize, RecordKind::kFileHeader, RecordState::kLive});
    for (const Extent& extent : extents) {
      if (stopped) return false;
      if (extent.kind == Extent::kOverlap) {
        GiveOverlap(extent);
        continue;
      }
      GiveUnknown(extent.begin);
      switch (extent.kind) {
        case Extent::kDirectory:
          GiveDirectory(file.directories[extent.index]);
          break;
        case Extent::kBlock:
          GiveBlock(extent.index);
          break;
        default:
          GiveHeader(extent.begin, StreamHeader::kSize, RecordKind::kSlot, extent.index);
          break;
      }
    }
    GiveUnknown(file.view.Size());
    return !stopped;
  }

 private:
  void Collect() {
    for (std::uint32_t i = 0; i < file.directories.size(); ++i)
      extents.push_back({file.directories[i].offset, Extent::kDirectory, i});
    for (std::uint32_t i = 0; i < file.blocks.size(); ++i)
      extents.push_back({file.blocks[i].offset, Extent::kBlock, i});
    for (std::uint32_t i = 0; i < file.overlaps.size(); ++i)
      extents.push_back({file.overlaps[i].first, Extent::kOverlap, i});
    for (std::uint32_t i = 0; i < file.streams.size(); ++i) {
      const InspectedStream& stream = file.streams[i];
      if (stream.headerOffset == 0 || stream.parent != kNoIndex) continue;
      rootSlots.emplace_back(stream.headerOffset, i);
      if (!IsInDirectory(stream.headerOffset))
        extents.push_back({stream.headerOffset, Extent::kLoneHeader, i});
    }
    std::sort(rootSlots.begin(), rootSlots.end());
    std::sort(extents.begin(), extents.end(), [](const Extent& left, const Extent& right) {
      return left.begin != right.begin ? left.begin < right.begin : left.kind < right.kind;
    });
  }

  // Directories are in no order while the extents are collected, but there are few of them for many
  // slots, and the slots of one come one after the other.
  bool IsInDirectory(std::uint64_t offset) {
    if (offset >= lastDirectory && offset < lastDirectory + DirectoryBlock::kSize &&
        lastDirectory != 0) {
      return true;
    }
    if (byOffset.empty()) {
      for (const InspectedDirectory& directory : file.directories)
        byOffset.push_back(directory.offset);
      std::sort(byOffset.begin(), byOffset.end());
    }
    const auto behind = std::upper_bound(byOffset.begin(), byOffset.end(), offset);
    if (behind == byOffset.begin()) return false;
    lastDirectory = *(behind - 1);
    return offset < lastDirectory + DirectoryBlock::kSize;
  }

  void Put(const Record& record) {
    if (record.size == 0 || stopped) return;
    at = record.offset + record.size;
    stopped = !take(record);
  }

  void GiveUnknown(std::uint64_t end) {
    if (end > at) Put({at, end - at, RecordKind::kUnknown, RecordState::kOrphan});
  }

  // Lies on bytes that are given anyway.
  void GiveOverlap(const Extent& extent) {
    const std::uint64_t size =
        std::min<std::uint64_t>(BlockHeader::kSize, file.view.Size() - extent.begin);
    stopped = !take({extent.begin, size, RecordKind::kBlockHeader, RecordState::kOverlapping,
                     file.overlaps[extent.index].second});
  }

  void GiveHeader(std::uint64_t offset, std::uint64_t size, RecordKind kind, std::uint32_t stream) {
    Put({offset, size, kind, file.streams[stream].state, stream});
  }

  void GiveDirectory(const InspectedDirectory& directory) {
    Put({directory.offset, DirectoryBlock::kHeadSize, RecordKind::kDirectoryBlock,
         directory.state});
    for (std::uint32_t i = 0; i < DirectoryBlock::kMaxSlots; ++i) {
      const std::uint64_t offset = DirectoryBlock::SlotOffset(directory.offset, i);
      const auto slot = std::lower_bound(rootSlots.begin(), rootSlots.end(),
                                         std::make_pair(offset, std::uint32_t{0}));
      if (slot != rootSlots.end() && slot->first == offset) {
        GiveHeader(offset, StreamHeader::kSize, RecordKind::kSlot, slot->second);
      } else {
        Put({offset, StreamHeader::kSize, RecordKind::kSlot, RecordState::kUnused});
      }
    }
  }

  void GiveBlock(std::uint32_t index) {
    const InspectedBlock& block = file.blocks[index];
    const InspectedStream& owner = file.streams[block.stream];
    const RecordState headerState = file.contested[index] ? RecordState::kOverlapping : owner.state;
    Put({block.offset, BlockHeader::kSize, RecordKind::kBlockHeader, headerState, block.stream,
         index});
    const std::uint64_t end = block.position + DataBytes(block);
    for (std::uint64_t position = block.position; position < end && !stopped;)
      position += GiveData(index, owner, position, end);
    const std::uint64_t behind = std::uint64_t{block.offset} + block.present;
    Put({at, behind - at, RecordKind::kReserve, owner.state, block.stream, index});
  }

  // What begins at a position of the stream, no further than its block's data goes.
  // @return its bytes
  std::uint64_t GiveData(std::uint32_t index, const InspectedStream& owner, std::uint64_t position,
                         std::uint64_t end) {
    const std::uint32_t stream = file.blocks[index].stream;
    const auto put = [&](RecordKind kind, std::uint64_t pieceEnd) {
      const std::uint64_t size = std::min(end, pieceEnd) - position;
      Put({at, size, kind, owner.state, stream, index, position});
      return size;
    };
    if (owner.isFolder && (owner.headless || owner.dataBytes >= FolderPayload::kCountSize)) {
      const std::uint64_t base = owner.slotsAt;
      if (position < base)
        return put(owner.headless ? RecordKind::kData : RecordKind::kFolderCount, base);
      const std::uint64_t slot = (position - base) / StreamHeader::kSize;
      const std::uint64_t slotEnd = base + (slot + 1) * StreamHeader::kSize;
      if (slot >= owner.childCount) return put(RecordKind::kBehindLength, end);
      const std::uint64_t size = std::min(end, slotEnd) - position;
      const auto child = static_cast<std::uint32_t>(owner.firstChild + slot);
      Put({at, size, RecordKind::kChildRecord, file.streams[child].state, child, index, position});
      return size;
    }
    const bool hasLength = owner.headerOffset != 0 && owner.origin != StreamOrigin::kVacated;
    if (!hasLength) return put(RecordKind::kData, end);
    if (position >= owner.header.length) return put(RecordKind::kBehindLength, end);
    return put(RecordKind::kData, owner.header.length);
  }

  const InspectedFile& file;
  const std::function<bool(const Record&)>& take;
  std::vector<Extent> extents;
  std::vector<std::pair<std::uint64_t, std::uint32_t>> rootSlots;  // offset, stream
  std::vector<std::uint64_t> byOffset;
  std::uint64_t lastDirectory = 0;
  std::uint64_t at = 0;
  bool stopped = false;
};

}  // namespace

bool ForEachRecord(const InspectedFile& file, const std::function<bool(const Record&)>& take) {
  return RecordList(file, take).Give();
}

}  // namespace aostorage::detail
