// What no walk from the directory comes to: found by its magic words.
#include <algorithm>
#include <array>
#include <optional>
#include <unordered_map>
#include <utility>

#include "inspect/walker.h"

namespace aostorage::detail {
namespace {

constexpr std::size_t kMagicSize = 4;

// The first of four equal bytes that are the byte of a magic word; `end` when there are none.
const std::uint8_t* FindMagic(const std::uint8_t* from, const std::uint8_t* end) {
  constexpr std::uint8_t kLowest = BlockHeader::kMagic & 0xFF;
  constexpr std::uint8_t kHighest = StreamHeader::kMagic & 0xFF;
  for (; end - from >= static_cast<std::ptrdiff_t>(kMagicSize); ++from) {
    if (from[0] >= kLowest && from[0] <= kHighest && from[1] == from[0] && from[2] == from[0] &&
        from[3] == from[0]) {
      return from;
    }
  }
  return end;
}

// 80 bytes that some writer may have meant as a stream header.
bool LooksLikeHeader(const tag_aoStream& header, std::uint64_t fileSize) {
  if (!HasMagic(header) || !HasTerminatedName(header) || header.firstBlock >= fileSize)
    return false;
  const char* end = std::find(std::begin(header.name), std::end(header.name), '\0');
  if (std::any_of(end, std::end(header.name), [](char byte) { return byte != '\0'; })) return false;
  return IsInUse(header) ? header.kindFlag <= 1 : header.kindFlag == 0 && header.length == 0;
}

}  // namespace

bool Walker::ScanGaps() {
  std::vector<std::pair<std::uint64_t, std::uint64_t>> gaps;
  claims.ForEachGap(
      std::min(file.view.Size(), kReachableEnd),
      [&gaps](std::uint64_t begin, std::uint64_t end) { gaps.emplace_back(begin, end); });
  return std::all_of(gaps.begin(), gaps.end(),
                     [this](const auto& gap) { return ScanGap(gap.first, gap.second); });
}

bool Walker::ScanGap(std::uint64_t begin, std::uint64_t end) {
  constexpr std::size_t kWindow = 65536;
  std::vector<std::uint8_t> window(kWindow);
  for (std::uint64_t at = begin; at + kMagicSize <= end && HasRoom();) {
    if (!Continues(at)) return false;
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(kWindow, end - at));
    const std::size_t got = file.view.ReadThrough(at, window.data(), wanted);
    if (got < kMagicSize) break;
    const std::uint8_t* const limit = window.data() + got;
    std::uint64_t next = at + got - (kMagicSize - 1);  // a magic word may lie across the border
    for (const std::uint8_t* found = FindMagic(window.data(), limit); found != limit;) {
      const std::uint64_t offset = at + static_cast<std::uint64_t>(found - window.data());
      const std::uint64_t behind = TakeFound(offset, end, *found);
      next = std::max(next, behind);
      if (behind - at >= got) break;
      found = FindMagic(window.data() + (behind - at), limit);
    }
    at = next;
  }
  return true;
}

std::uint64_t Walker::TakeFound(std::uint64_t offset, std::uint64_t gapEnd,
                                std::uint8_t magicByte) {
  const auto place = static_cast<std::uint32_t>(offset);
  if (!HasRoom()) return gapEnd;
  if (magicByte == (BlockHeader::kMagic & 0xFF)) return FoundBlock(place, gapEnd);
  if (magicByte == (DirectoryBlock::kMagic & 0xFF)) return FoundDirectory(place, gapEnd);
  return FoundHeader(place, gapEnd);
}

std::uint64_t Walker::FoundBlock(std::uint32_t offset, std::uint64_t gapEnd) {
  InspectedBlock block;
  if (follower.Look(offset, block) != ChainEnd::kWhole) return std::uint64_t{offset} + 1;
  const std::uint64_t end = std::uint64_t{offset} + block.present;
  if (end > gapEnd) return std::uint64_t{offset} + 1;
  orphanBlocks.push_back(offset);
  return end;
}

// Every slot of a directory block has its magic word or is empty.
std::uint64_t Walker::FoundDirectory(std::uint32_t offset, std::uint64_t gapEnd) {
  const std::uint64_t end = std::uint64_t{offset} + DirectoryBlock::kSize;
  DirectoryBlock block;
  if (end > gapEnd || !file.view.ReadExactly(offset, block.Data(), DirectoryBlock::kSize))
    return std::uint64_t{offset} + 1;
  for (std::uint32_t i = 0; i < DirectoryBlock::kMaxSlots; ++i) {
    const tag_aoStream slot = block.Slot(i);
    const bool empty = slot.magic == 0 && !IsInUse(slot) && slot.firstBlock == 0;
    if (!empty && !LooksLikeHeader(slot, file.view.Size())) return std::uint64_t{offset} + 1;
  }
  if (!claims.Claim(offset, end)) return std::uint64_t{offset} + 1;
  AddDirectory(offset, block, RecordState::kUnreachable);
  return end;
}

std::uint64_t Walker::FoundHeader(std::uint32_t offset, std::uint64_t gapEnd) {
  const std::uint64_t end = std::uint64_t{offset} + StreamHeader::kSize;
  StreamHeader::Bytes bytes;
  if (end > gapEnd || !file.view.ReadExactly(offset, bytes.data(), bytes.size()))
    return std::uint64_t{offset} + 1;
  InspectedStream stream;
  stream.header = StreamHeader::Decode(bytes.data());
  if (!LooksLikeHeader(stream.header, file.view.Size())) return std::uint64_t{offset} + 1;
  if (!IsInUse(stream.header) && stream.header.firstBlock == 0) return end;
  if (!claims.Claim(offset, end)) return std::uint64_t{offset} + 1;
  stream.headerOffset = offset;
  stream.origin = IsInUse(stream.header) ? StreamOrigin::kLoneRecord : StreamOrigin::kVacated;
  stream.isFolder = IsFolderKind(stream.header);
  Queue(AddStream(stream, kGuessed));
  return end;
}

// Chains that no header leads to. Those that hold slots come first, and of these the ones that no
// other's slot leads to: so that a stream below a lost folder keeps its name.
bool Walker::TakeOrphanChains() {
  const std::vector<InspectedBlock> heads = OrphanHeads();
  lostSteps = 16 * std::uint64_t{orphanBlocks.size()} + 1000;
  Offsets children;
  for (const InspectedBlock& head : heads) {
    if (FindSlots(head)) CollectChildren(head, children);
  }
  for (const InspectedBlock& head : heads) {
    if (FindSlots(head) && children.count(head.offset) == 0) AddOrphan(head);
  }
  if (!DrainQueues()) return false;
  for (const InspectedBlock& head : heads) {
    if (FindSlots(head)) AddOrphan(head);
  }
  if (!DrainQueues()) return false;
  for (const InspectedBlock& head : heads) AddOrphan(head);
  if (!DrainQueues()) return false;
  for (const std::uint32_t offset : orphanBlocks) {  // what runs in circles has no head
    InspectedBlock block;
    if (follower.Look(offset, block) == ChainEnd::kWhole) AddOrphan(block);
    if (!DrainQueues()) return false;
  }
  return true;
}

void Walker::AddOrphan(const InspectedBlock& head) {
  if (!claims.IsFree(head.offset, std::uint64_t{head.offset} + head.present)) return;
  if (!HasRoom()) {
    givenUp = true;
    return;
  }
  InspectedStream stream;
  stream.header.firstBlock = head.offset;
  stream.origin = StreamOrigin::kOrphanChain;
  stream.headless = head.prevBlock != 0;
  stream.slotsAt = FindSlots(head).value_or(FolderPayload::kCountSize);
  Queue(AddStream(stream, kGuessed));
}

// The blocks found in gaps that nobody has taken, as far as no other of them leads to them.
std::vector<InspectedBlock> Walker::OrphanHeads() {
  std::vector<InspectedBlock> blocks;
  std::unordered_map<std::uint32_t, std::uint32_t, OffsetHash> next;  // by offset
  for (const std::uint32_t offset : orphanBlocks) {
    InspectedBlock block;
    if (follower.Look(offset, block) != ChainEnd::kWhole ||
        !claims.IsFree(offset, std::uint64_t{offset} + block.present)) {
      continue;
    }
    blocks.push_back(block);
    next.emplace(offset, block.nextBlock);
  }
  const auto follows = [&next](const InspectedBlock& block) {
    const auto before = next.find(block.prevBlock);
    return before != next.end() && before->second == block.offset;
  };
  blocks.erase(std::remove_if(blocks.begin(), blocks.end(), follows), blocks.end());
  return blocks;
}

// Chains of which one is the end of another would be gone over and over: this bounds them all
// together.
bool Walker::MayGoOn() { return lostSteps != 0 && --lostSteps != 0; }

// The block behind another one of a lost chain, if both say so and nobody has taken it.
bool Walker::NextOfLost(InspectedBlock& block) {
  const std::uint32_t before = block.offset;
  return follower.Look(block.nextBlock, block) == ChainEnd::kWhole && block.prevBlock == before &&
         claims.IsFree(block.offset, std::uint64_t{block.offset} + block.present);
}

// Where the first slot lies in a lost chain that holds slots of a folder. The first block may hold
// no more than the count. Where the beginning is missing, a slot can be cut off there.
std::optional<std::uint32_t> Walker::FindSlots(const InspectedBlock& head) {
  std::array<std::uint8_t, 2 * StreamHeader::kSize> bytes;
  std::size_t have = 0;
  InspectedBlock block = head;
  std::size_t blocksLeft = 2 * bytes.size();  // empty ones bring the end no nearer
  do {
    const std::size_t piece = std::min<std::size_t>(bytes.size() - have, DataBytes(block));
    if (!file.view.ReadExactly(std::uint64_t{block.offset} + BlockHeader::kSize,
                               bytes.data() + have, piece)) {
      return std::nullopt;
    }
    have += piece;
  } while (have < bytes.size() && --blocksLeft != 0 && MayGoOn() && NextOfLost(block));
  const bool isWhole = head.prevBlock == 0;
  const std::uint32_t first = isWhole ? FolderPayload::kCountSize : 0;
  const std::uint32_t last = isWhole ? first : StreamHeader::kSize - 1;
  for (std::uint32_t at = first; at <= last && at + StreamHeader::kSize <= have; ++at) {
    if (LooksLikeHeader(StreamHeader::Decode(bytes.data() + at), file.view.Size())) return at;
  }
  return std::nullopt;
}

// A chain whose links agree comes back to no block but its first.
void Walker::CollectChildren(const InspectedBlock& head, Offsets& firstBlocks) {
  StreamHeader::Bytes slot;
  std::size_t have = 0;  // of the slot: it can lie in several blocks
  std::uint64_t skip = FindSlots(head).value_or(0);
  InspectedBlock block = head;
  do {
    const std::uint64_t data = std::uint64_t{block.offset} + BlockHeader::kSize;
    const std::uint64_t end = data + DataBytes(block);
    std::uint64_t at = std::min(data + skip, end);
    skip -= at - data;
    while (at < end) {
      const auto piece =
          static_cast<std::size_t>(std::min<std::uint64_t>(slot.size() - have, end - at));
      if (!file.view.ReadExactly(at, slot.data() + have, piece)) return;
      at += piece;
      have += piece;
      if (have < slot.size()) break;
      firstBlocks.insert(StreamHeader::Decode(slot.data()).firstBlock);
      have = 0;
    }
  } while (MayGoOn() && NextOfLost(block) && block.offset != head.offset);
}

void Walker::NoteRest() {
  claims.ForEachGap(file.view.Size(), [this](std::uint64_t begin, std::uint64_t end) {
    file.findings.Add(Rule::kUnknownBytes, begin, kNoIndex, "bytes", end - begin);
  });
  for (const std::uint64_t offset : file.view.Unreadable())
    file.findings.Add(Rule::kUnreadable, offset, kNoIndex, "512 bytes", 0);
  if (givenUp) file.findings.Add(Rule::kGivenUp, 0, kNoIndex, "records", options.mostRecords);
}

}  // namespace aostorage::detail
