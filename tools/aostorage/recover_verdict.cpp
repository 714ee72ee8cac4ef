#include "recover_verdict.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace aotool {
namespace {

using aostorage::ChainEnd;
using aostorage::InspectedBlock;
using aostorage::InspectedDirectory;
using aostorage::InspectedStream;
using aostorage::Inspection;
using aostorage::StreamOrigin;

constexpr std::uint64_t kRecordSize = sizeof(aostorage::tag_aoStream);
constexpr std::uint64_t kBlockHeaderSize = 20;
constexpr std::uint64_t kCountSize = 4;
constexpr std::uint64_t kDirectorySize = 5132;
constexpr std::uint64_t kSector = 512;  // the smallest piece that storage devices lose

std::string EndOfChain(const InspectedStream& stream) {
  const std::string at = "at offset " + std::to_string(stream.chainEndOffset);
  switch (stream.chainEnd) {
    case ChainEnd::kWhole:
      return "";
    case ChainEnd::kOutOfRange:
      return "its chain leads to offset " + std::to_string(stream.chainEndOffset) +
             ", where no block can be";
    case ChainEnd::kTruncated:
      return "the file ends within its block " + at;
    case ChainEnd::kBadMagic:
      return "its chain breaks off: there is no block " + at;
    case ChainEnd::kBadWords:
      return "its chain breaks off: the words of the block " + at + " contradict each other";
    case ChainEnd::kOverlap:
      return "its chain leads to bytes of something else " + at;
  }
  return "its chain breaks off";
}

// Whether each block knows the one before it, and the header its last block: the only witnesses
// that the links are the ones that were written.
bool LinksAgree(const Inspection& source, const InspectedStream& stream) {
  std::uint32_t before = 0;
  bool holdsLast = stream.header.lastBlock == 0;
  for (std::uint32_t i = 0; i < stream.blockCount; ++i) {
    const InspectedBlock& block = source.Blocks()[stream.firstBlock + i];
    const bool beginsBefore = i == 0 && stream.headless;
    if (block.prevBlock != before && !beginsBefore) return false;
    holdsLast = holdsLast || block.offset == stream.header.lastBlock;
    before = block.offset;
  }
  return holdsLast;
}

bool AllZero(const Inspection& source, std::uint64_t begin, std::uint64_t end) {
  std::vector<char> bytes(static_cast<std::size_t>(end - begin));
  return source.Read(begin, bytes.data(), bytes.size()) == bytes.size() &&
         std::all_of(bytes.begin(), bytes.end(), [](char byte) { return byte == 0; });
}

// Of a root slot: whether zeros up to `end` behind it speak of damage. In directory blocks that
// were appended, they can be slots that were never used.
bool ZerosAreStrangeAtRoot(const Inspection& source, std::uint64_t header) {
  const auto& all = source.Directories();
  const auto found = std::find_if(all.begin(), all.end(), [&](const InspectedDirectory& block) {
    return header >= block.offset && header < block.offset + kDirectorySize;
  });
  if (found == all.end() || found->offset == source.FileHeaderSize()) return true;
  const std::uint64_t behind = found->offset + kDirectorySize;
  return source.CountOf(aostorage::Rule::kOrphanChain) != 0 ||
         (behind + kCountSize <= source.FileSize() && AllZero(source, behind, behind + kCountSize));
}

// The end of a piece of the file that is all zeros and begins behind `begin`, but before `end`. 0
// when there is none.
std::uint64_t EndOfZeros(const Inspection& source, std::uint64_t begin, std::uint64_t end) {
  const std::uint64_t border = (begin / kSector + 1) * kSector;
  const std::uint64_t behind = std::min(border + kSector, source.FileSize());
  return border < end && behind > end && AllZero(source, border, behind) ? behind : 0;
}

// Of a child, whose header can lie in several blocks: whether it runs into zeros, and those reach
// beyond what can be reserve of its folder's block.
bool ChildRunsIntoZeros(const Inspection& source, const InspectedStream& stream) {
  const InspectedStream& folder = source.Streams()[stream.parent];
  const auto first = source.Blocks().begin() + folder.firstBlock;
  const auto last = first + folder.blockCount;
  std::uint64_t position = folder.slotsAt + kRecordSize * stream.slotIndex;
  auto block = std::upper_bound(
      first, last, position,
      [](std::uint64_t wanted, const InspectedBlock& found) { return wanted < found.position; });
  if (block == first) return false;
  --block;
  for (std::uint64_t left = kRecordSize; left != 0 && block != last; ++block) {
    const std::uint64_t used = std::uint64_t{block->offset} + block->used;
    const std::uint64_t begin = block->offset + kBlockHeaderSize + (position - block->position);
    const std::uint64_t end = std::min(begin + left, used);
    if (begin >= end) continue;
    // The rest of a header can be zeros although they begin within the header of its block.
    const std::uint64_t zeros =
        EndOfZeros(source, left == kRecordSize ? begin : block->offset, end);
    if (zeros != 0 && (end < used || zeros > std::uint64_t{block->offset} + block->capacity))
      return true;
    left -= end - begin;
    position += end - begin;
  }
  return false;
}

// Whether the end of the header may be lost: a stream without bytes whose header runs into a piece
// of the file that is all zeros, where other records should be.
bool HeaderRunsIntoZeros(const Inspection& source, const InspectedStream& stream) {
  const aostorage::tag_aoStream& header = stream.header;
  if (!HasLength(stream) || header.length != 0 || header.firstBlock != 0 || header.lastBlock != 0)
    return false;
  if (stream.parent != aostorage::kNoIndex) return ChildRunsIntoZeros(source, stream);
  const std::uint64_t begin = stream.headerOffset;
  return EndOfZeros(source, begin, begin + kRecordSize) != 0 &&
         ZerosAreStrangeAtRoot(source, begin);
}

// What a folder says of itself: its count of slots.
std::uint64_t CountedSlots(const Inspection& source, const InspectedStream& stream) {
  std::uint8_t word[kCountSize] = {};
  std::size_t have = 0;
  for (std::uint32_t i = 0; i < stream.blockCount && have < sizeof word; ++i) {
    const auto& block = source.Blocks()[stream.firstBlock + i];
    const std::uint64_t used = block.used - kBlockHeaderSize;
    const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(used, sizeof word - have));
    have += source.Read(block.offset + kBlockHeaderSize, word + have, piece);
  }
  return std::uint64_t{word[0]} | std::uint64_t{word[1]} << 8U | std::uint64_t{word[2]} << 16U |
         std::uint64_t{word[3]} << 24U;
}

// A creation that was broken off leaves one slot that is not counted.
std::string WhatIsWrongWithTheCount(const Inspection& source, const InspectedStream& folder) {
  if (!folder.isFolder || folder.blockCount == 0 || folder.headless || !HasLength(folder))
    return "";
  const std::uint64_t counted = CountedSlots(source, folder);
  if (kCountSize + kRecordSize * counted > folder.dataBytes && counted != 0)
    return "it counts more slots than there are";
  if (folder.childCount > counted + 1) return "it counts fewer slots than there are";
  return "";
}

std::string WhatIsWrong(const Inspection& source, std::uint32_t index, std::uint64_t bytes) {
  const InspectedStream& stream = source.Streams()[index];
  if (std::string broken = EndOfChain(stream); !broken.empty()) return broken;
  if (HasLength(stream) && stream.header.length > bytes)
    return "its blocks hold less than its length";
  if (stream.headless) return "the beginning of its chain is missing";
  if (stream.shared) return "another stream leads to the same blocks";
  if (!LinksAgree(source, stream)) return "the links of its chain contradict each other";
  if (HeaderRunsIntoZeros(source, stream))
    return "its header runs into zeros, so it may have had bytes and another name or kind";
  return WhatIsWrongWithTheCount(source, stream);
}

}  // namespace

bool HasLength(const InspectedStream& stream) {
  return stream.headerOffset != 0 && stream.origin != StreamOrigin::kVacated &&
         stream.origin != StreamOrigin::kUnusedSlot;
}

Verdict JudgeStream(const Inspection& source, std::uint32_t stream) {
  const InspectedStream& found = source.Streams()[stream];
  Verdict verdict;
  verdict.bytes = HasLength(found) ? std::min<std::uint64_t>(found.header.length, found.dataBytes)
                                   : found.dataBytes;
  verdict.why = WhatIsWrong(source, stream, verdict.bytes);
  return verdict;
}

}  // namespace aotool
