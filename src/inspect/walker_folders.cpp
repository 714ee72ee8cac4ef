// Folders: the slots in their data, and which of them a name leads to.
#include <string>
#include <unordered_set>

#include "inspect/walker.h"

namespace aostorage::detail {

void Walker::TakeFolder(std::uint32_t folder) {
  file.streams[folder].isFolder = true;
  const InspectedStream found = file.streams[folder];  // the list grows meanwhile
  const bool isFolder = ranks[folder] < kRemoved;      // and not only looks like one
  std::uint32_t count = kNoIndex;
  if (!found.headless) {
    std::uint8_t word[FolderPayload::kCountSize];
    if (ReadChain(file, found, 0, word, sizeof word) != sizeof word) {
      if (isFolder && found.chainEnd == ChainEnd::kWhole)
        file.findings.Add(Rule::kFolderHasCount, found.headerOffset, folder, "no count word");
      return;
    }
    count = Load32(word);
  }
  const std::uint64_t slots = (found.dataBytes - found.slotsAt) / StreamHeader::kSize;
  if (isFolder) CheckCount(folder, count, slots);
  file.streams[folder].firstChild = static_cast<std::uint32_t>(file.streams.size());
  for (std::uint32_t i = 0; i < slots; ++i) {
    if (!HasRoom()) {
      givenUp = true;
      break;
    }
    StreamHeader::Bytes bytes{};
    const std::uint64_t position = found.slotsAt + std::uint64_t{StreamHeader::kSize} * i;
    ReadChain(file, found, position, bytes.data(), bytes.size());
    AddChild(folder, i, bytes.data(), i < count ? StreamOrigin::kFolder : StreamOrigin::kUncounted);
    ++file.streams[folder].childCount;
  }
  FindHiddenChildren(folder);
  const InspectedStream& done = file.streams[folder];
  for (std::uint32_t i = 0; i < done.childCount; ++i) {
    const StreamOrigin origin = file.streams[done.firstChild + i].origin;
    if (origin != StreamOrigin::kDamagedSlot && origin != StreamOrigin::kUnusedSlot)
      Queue(done.firstChild + i);
  }
}

void Walker::AddChild(std::uint32_t folder, std::uint32_t slotIndex, const std::uint8_t* bytes,
                      StreamOrigin origin) {
  InspectedStream child;
  child.header = StreamHeader::Decode(bytes);
  const InspectedStream& above = file.streams[folder];
  const std::uint64_t position = above.slotsAt + std::uint64_t{StreamHeader::kSize} * slotIndex;
  child.headerOffset = PlaceOf(file, above, position);
  child.parent = folder;
  child.slotIndex = slotIndex;
  child.origin = origin;
  const bool counted = origin == StreamOrigin::kFolder;
  const bool inUse = IsInUse(child.header);
  Rank rank = ranks[folder] >= kRemoved ? kGuessed : ranks[folder];
  if (!HasMagic(child.header)) {
    child.origin = StreamOrigin::kDamagedSlot;
    if (rank == kReachable) rank = kUnreachable;
  } else if (!inUse) {
    child.origin =
        child.header.firstBlock == 0 ? StreamOrigin::kUnusedSlot : StreamOrigin::kVacated;
    if (rank != kGuessed) rank = kRemoved;
  } else {
    child.isFolder = IsFolderKind(child.header);
    if (rank == kReachable && (!counted || !HasTerminatedName(child.header))) rank = kUnreachable;
  }
  const std::uint32_t index = AddStream(child, rank);
  if (rank == kGuessed || !counted) return;
  if (child.origin == StreamOrigin::kDamagedSlot) {
    file.findings.Add(Rule::kFolderSlotMagic, child.headerOffset, index, "no magic word");
  } else if (inUse) {
    CheckSlot(index, bytes);
  } else {
    CheckEmptySlot(child.headerOffset, bytes);
  }
}

// Of two children of one name the earlier is found.
void Walker::FindHiddenChildren(std::uint32_t folder) {
  const InspectedStream& found = file.streams[folder];
  std::unordered_set<std::string> names;
  for (std::uint32_t i = found.firstChild; i < found.firstChild + found.childCount; ++i) {
    InspectedStream& child = file.streams[i];
    if (child.origin != StreamOrigin::kFolder || !HasTerminatedName(child.header)) continue;
    if (names.insert(child.header.name).second) continue;
    child.origin = StreamOrigin::kHidden;
    child.state = RecordState::kUnreachable;
    if (ranks[i] == kReachable) ranks[i] = kUnreachable;
  }
}

void Walker::CheckCount(std::uint32_t folder, std::uint32_t count, std::uint64_t slots) {
  const InspectedStream& found = file.streams[folder];
  const std::uint64_t at = PlaceOf(file, found, 0);
  if (count > slots) {
    file.findings.Add(Rule::kCountedSlots, at, folder, "count", count);
  } else if (slots - count > 1) {  // one is what a creation that was broken off leaves
    file.findings.Add(Rule::kNoUncounted, at, folder, "slots that are not counted", slots - count);
  }
}

// The data of a stream of which nobody says whether it is a folder.
bool Walker::LooksLikeFolder(const InspectedStream& stream) const {
  std::uint8_t word[FolderPayload::kCountSize] = {1, 0, 0, 0};
  if (!stream.headless) ReadChain(file, stream, 0, word, sizeof word);
  StreamHeader::Bytes bytes{};
  if (ReadChain(file, stream, stream.slotsAt, bytes.data(), bytes.size()) != bytes.size())
    return false;
  const std::uint64_t slots = (stream.dataBytes - stream.slotsAt) / StreamHeader::kSize;
  const tag_aoStream first = StreamHeader::Decode(bytes.data());
  return Load32(word) <= slots && HasMagic(first) && HasTerminatedName(first);
}

}  // namespace aostorage::detail
