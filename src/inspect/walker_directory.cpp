// The directory: its blocks, its slots, and which of them a name leads to.
#include <algorithm>
#include <string>
#include <unordered_map>

#include "inspect/walker.h"

namespace aostorage::detail {
namespace {

bool AllZero(const std::uint8_t* bytes, std::size_t count) {
  return std::all_of(bytes, bytes + count, [](std::uint8_t byte) { return byte == 0; });
}

}  // namespace

void Walker::WalkDirectory() {
  if (file.hasHeader && !claims.Claim(0, file.headerSize)) return;
  std::uint32_t linkAt = 0;  // the word that leads to the block; 0 for the first one
  for (std::uint32_t offset = file.header.firstDirectoryOffset; offset != 0 && HasRoom();) {
    const bool isFirst = linkAt == 0;
    const Rule rule = isFirst ? Rule::kFirstDirectory : Rule::kDirectoryBlock;
    DirectoryBlock block;
    if (std::uint64_t{offset} + DirectoryBlock::kSize > file.view.Size()) {
      file.findings.Add(rule, isFirst ? offset : linkAt, kNoIndex, "reaches behind the file's end",
                        offset);
      break;
    }
    if (!TakeDirectory(offset, block)) {
      NoteRefused(offset, linkAt, block.HasMagic());
      break;
    }
    if (std::uint64_t{offset} + DirectoryBlock::kSize > kReachableEnd)
      file.findings.Add(Rule::kReachable, offset, kNoIndex, "ends behind 2 GiB");
    AddDirectory(offset, block, RecordState::kLive);
    linkAt = offset + static_cast<std::uint32_t>(DirectoryBlock::kNextAt);
    offset = block.NextDirectory();
  }
  if (!HasRoom()) givenUp = true;
  FindHiddenRootStreams();
}

void Walker::NoteRefused(std::uint32_t offset, std::uint32_t linkAt, bool hasMagic) {
  const bool passed = std::any_of(
      file.directories.begin(), file.directories.end(),
      [offset](const InspectedDirectory& directory) { return directory.offset == offset; });
  if (passed) {
    file.findings.Add(Rule::kDirectoryChain, linkAt, kNoIndex, "leads back to", offset);
    return;
  }
  file.findings.Add(linkAt == 0 ? Rule::kFirstDirectory : Rule::kDirectoryBlock, offset, kNoIndex,
                    hasMagic ? "lies in another record" : "no magic word");
}

bool Walker::TakeDirectory(std::uint32_t offset, DirectoryBlock& block) {
  return file.view.ReadExactly(offset, block.Data(), DirectoryBlock::kSize) && block.HasMagic() &&
         claims.Claim(offset, std::uint64_t{offset} + DirectoryBlock::kSize);
}

void Walker::AddDirectory(std::uint32_t offset, const DirectoryBlock& block, RecordState state) {
  const std::uint32_t slotCount = Load32(block.Data() + DirectoryBlock::kSlotCountAt);
  file.directories.push_back({offset, slotCount, block.NextDirectory(), state});
  const bool reached = state == RecordState::kLive;
  if (reached && (slotCount == 0 || slotCount > DirectoryBlock::kMaxSlots)) {
    file.findings.Add(Rule::kDirectoryBlock, offset + DirectoryBlock::kSlotCountAt, kNoIndex,
                      "slotCount", slotCount);
  }
  for (std::uint32_t i = 0; i < DirectoryBlock::kMaxSlots; ++i) {
    AddRootSlot(
        offset, i, block.Slot(i),
        reached && i < block.SlotCount() ? StreamOrigin::kDirectory : StreamOrigin::kLostDirectory);
  }
}

void Walker::AddRootSlot(std::uint32_t offset, std::uint32_t slotIndex, const tag_aoStream& header,
                         StreamOrigin origin) {
  InspectedStream stream;
  stream.header = header;
  stream.headerOffset = DirectoryBlock::SlotOffset(offset, slotIndex);
  stream.slotIndex = slotIndex;
  const StreamHeader::Bytes bytes = StreamHeader::Encode(header);
  const bool lost = origin == StreamOrigin::kLostDirectory;
  if (!IsInUse(header)) {
    if (!lost) CheckEmptySlot(stream.headerOffset, bytes.data());
    if (!HasMagic(header) || header.firstBlock == 0) return;
    stream.origin = StreamOrigin::kVacated;
    Queue(AddStream(stream, lost ? kGuessed : kRemoved));
    return;
  }
  stream.origin = origin;
  const bool opens = HasMagic(header) && HasTerminatedName(header);
  stream.isFolder = IsFolderKind(header);
  const std::uint32_t index = AddStream(stream, lost    ? kGuessed
                                                : opens ? kReachable
                                                        : kUnreachable);
  if (!lost) CheckSlot(index, bytes.data());
  Queue(index);
}

// Of two root streams of one name the later is found.
void Walker::FindHiddenRootStreams() {
  std::unordered_map<std::string, std::uint32_t> byName;
  bool anyHidden = false;
  for (std::uint32_t i = 0; i < file.streams.size(); ++i) {
    if (file.streams[i].origin != StreamOrigin::kDirectory || ranks[i] != kReachable) continue;
    const auto [entry, isNew] = byName.emplace(file.streams[i].header.name, i);
    if (isNew) continue;
    InspectedStream& hidden = file.streams[entry->second];
    hidden.origin = StreamOrigin::kHidden;
    hidden.state = RecordState::kUnreachable;
    ranks[entry->second] = kUnreachable;
    entry->second = i;
    anyHidden = true;
  }
  if (!anyHidden) return;
  for (std::deque<std::uint32_t>& queue : ready) queue.clear();
  for (std::uint32_t i = 0; i < file.streams.size(); ++i) Queue(i);
}

void Walker::CheckSlot(std::uint32_t stream, const std::uint8_t* bytes) {
  const InspectedStream& found = file.streams[stream];
  const std::uint64_t at = found.headerOffset;
  if (!HasMagic(found.header)) {
    file.findings.Add(Rule::kSlotInUse, at, stream, "no magic word", found.header.magic);
  } else if (!HasTerminatedName(found.header)) {
    file.findings.Add(Rule::kSlotInUse, at + StreamHeader::kNameAt, stream, "a name without end");
  } else {
    // The rest is what no writer leaves and every reader gets along with.
    const std::size_t length = std::char_traits<char>::length(found.header.name);
    if (!AllZero(bytes + StreamHeader::kNameAt + length, StreamHeader::kNameSize - length)) {
      file.findings.Add({Rule::kSlotInUse, Severity::kWarning, at + StreamHeader::kNameAt + length,
                         stream, "bytes behind the name", 0});
    }
    if (found.header.kindFlag > 1) {
      file.findings.Add({Rule::kSlotInUse, Severity::kWarning, at + StreamHeader::kKindAt, stream,
                         "kind flag", found.header.kindFlag});
    }
  }
  if (found.header.firstBlock == 0 && found.header.lastBlock != 0) {
    file.findings.Add({Rule::kNoBlockNoLength, Severity::kWarning, at + StreamHeader::kLastBlockAt,
                       stream, "lastBlock", found.header.lastBlock});
  }
}

// A slot of the directory that holds no stream: 80 zeros, or the magic word and 68 zeros.
void Walker::CheckEmptySlot(std::uint64_t offset, const std::uint8_t* bytes) {
  if (Load32(bytes) != StreamHeader::kMagic) {
    if (!AllZero(bytes, StreamHeader::kSize))
      file.findings.Add(Rule::kEmptySlot, offset, kNoIndex, "neither empty nor vacated");
    return;
  }
  if (!AllZero(bytes + StreamHeader::kNameAt, StreamHeader::kLastBlockAt - StreamHeader::kNameAt))
    file.findings.Add(Rule::kVacatedSlot, offset, kNoIndex, "bytes where only zeros may be");
}

}  // namespace aostorage::detail
