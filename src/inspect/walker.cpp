#include "inspect/walker.h"

#include <algorithm>

namespace aostorage::detail {
namespace {

// Where the first block of a chain can lie: behind the first directory block.
std::uint32_t FirstPossible(const InspectedFile& file) {
  return file.header.firstDirectoryOffset + static_cast<std::uint32_t>(DirectoryBlock::kSize);
}

RecordState StateOf(StreamOrigin origin, bool reachable) {
  switch (origin) {
    case StreamOrigin::kVacated:
      return RecordState::kVacated;
    case StreamOrigin::kUnusedSlot:
      return RecordState::kUnused;
    case StreamOrigin::kOrphanChain:
      return RecordState::kOrphan;
    default:
      return reachable ? RecordState::kLive : RecordState::kUnreachable;
  }
}

}  // namespace

Walker::Walker(InspectedFile& found, const InspectOptions& given)
    : file(found), options(given), follower(found.view, claims, FirstPossible(found), [this] {
        return Continues(claimedBytes);
      }) {}

bool Walker::Run() {
  WalkDirectory();
  if (!Continues(0) || !DrainQueues() || !ScanGaps() || !DrainQueues() || !TakeOrphanChains() ||
      follower.GivenUp()) {
    return false;
  }
  NoteRest();
  file.findings.Sort();
  return true;
}

std::uint32_t Walker::AddStream(const InspectedStream& stream, Rank rank) {
  const auto index = static_cast<std::uint32_t>(file.streams.size());
  file.streams.push_back(stream);
  file.streams.back().state = StateOf(stream.origin, rank == kReachable);
  ranks.push_back(rank);
  sound.push_back(false);
  rooms.push_back(0);
  return index;
}

void Walker::Queue(std::uint32_t stream) { ready[ranks[stream]].push_back(stream); }

// The best title first; a chain that does not agree with itself waits until no sound one of its
// rank is left.
bool Walker::DrainQueues() {
  std::uint64_t steps = 0;
  for (std::size_t rank = 0; rank < kRanks;) {
    std::deque<std::uint32_t>& queue = ready[rank].empty() ? deferred[rank] : ready[rank];
    if (queue.empty()) {
      ++rank;
      continue;
    }
    const bool waited = ready[rank].empty();
    const std::uint32_t stream = queue.front();
    queue.pop_front();
    const tag_aoStream& header = file.streams[stream].header;
    sound[stream] = !waited && header.firstBlock != 0 && follower.IsSound(header);
    if (header.firstBlock != 0 && !waited && !sound[stream]) {
      deferred[rank].push_back(stream);
    } else {
      Process(stream);
      rank = 0;  // a folder's children may have a better title than what comes next
    }
    constexpr std::uint64_t kStepsBetweenQuestions = 4096;
    if (++steps % kStepsBetweenQuestions == 0 && !Continues(claimedBytes)) return false;
    if (follower.GivenUp()) return false;
  }
  return true;
}

void Walker::Process(std::uint32_t stream) {
  TakeChain(stream);
  NoteByOrigin(stream);
  const InspectedStream& found = file.streams[stream];
  if (found.headless || found.origin == StreamOrigin::kVacated ||
      found.origin == StreamOrigin::kOrphanChain) {
    if (LooksLikeFolder(found)) TakeFolder(stream);
  } else if (IsFolderKind(found.header)) {
    TakeFolder(stream);
  }
}

void Walker::TakeChain(std::uint32_t stream) {
  const tag_aoStream& header = file.streams[stream].header;
  const std::uint64_t room =
      options.mostRecords -
      std::min<std::uint64_t>(options.mostRecords, file.streams.size() + file.blocks.size());
  const auto firstBlock = static_cast<std::uint32_t>(file.blocks.size());
  const FollowedChain chain =
      follower.Claim(header.firstBlock, header.lastBlock, room, file.blocks);
  InspectedStream& found = file.streams[stream];
  found.firstBlock = firstBlock;
  found.blockCount = chain.blockCount;
  found.chainEnd = chain.end;
  found.chainEndOffset = chain.endOffset;
  for (std::uint32_t i = firstBlock; i < file.blocks.size(); ++i) {
    InspectedBlock& block = file.blocks[i];
    blockAt.Insert(OffsetHash()(block.offset), i);
    block.stream = stream;
    found.dataBytes += DataBytes(block);
    rooms[stream] += block.capacity - BlockHeader::kSize;
    claimedBytes += block.present;
    file.contested.push_back(false);
  }
  if (chain.end == ChainEnd::kWhole && chain.endOffset != 0) {
    givenUp = true;
    found.chainEnd = ChainEnd::kOutOfRange;
  }
  NoteOverlap(stream, chain);
  if (!IsTrusted(stream)) return;
  CheckChain(stream, chain);
  CheckBlocks(stream);
  CheckLength(stream);
}

void Walker::CheckChain(std::uint32_t stream, const FollowedChain& chain) {
  const InspectedStream& found = file.streams[stream];
  const tag_aoStream& header = found.header;
  FindingList& findings = file.findings;
  // The word that leads to the end: in the block before it, or in the stream header.
  const InspectedBlock* last = chain.blockCount == 0 ? nullptr : &file.blocks.back();
  const std::uint64_t link = last == nullptr ? found.headerOffset + StreamHeader::kFirstBlockAt
                                             : std::uint64_t{last->offset} + BlockHeader::kNextAt;
  switch (chain.end) {
    case ChainEnd::kOutOfRange:
      findings.Add(Rule::kChainEnd, link, stream, "leads out of the file", chain.endOffset);
      break;
    case ChainEnd::kBadMagic:
      findings.Add(Rule::kBlockWords, chain.endOffset, stream, "no magic word");
      break;
    case ChainEnd::kBadWords:
      findings.Add(Rule::kBlockWords, chain.endOffset, stream,
                   "used and capacity contradict each other");
      break;
    case ChainEnd::kTruncated:
      if (last == nullptr || last->offset != chain.endOffset)
        findings.Add(Rule::kBlockInside, chain.endOffset, stream, "the file ends in the header");
      break;  // else CheckBlocks tells
    case ChainEnd::kOverlap:
    case ChainEnd::kWhole:
      break;
  }
  if (chain.disagreeing != 0)
    findings.Add(Rule::kPreviousBlock, chain.disagreeing, stream, "prevBlock names another block");
  if (!chain.holdsLast && chain.end == ChainEnd::kWhole && header.firstBlock != 0) {
    findings.Add(Rule::kLastBlock, found.headerOffset + StreamHeader::kLastBlockAt, stream,
                 "names no block of the chain", header.lastBlock);
  }
}

void Walker::CheckBlocks(std::uint32_t stream) {
  const InspectedStream& found = file.streams[stream];
  for (std::uint32_t i = 0; i < found.blockCount; ++i) {
    const InspectedBlock& block = file.blocks[found.firstBlock + i];
    if (block.present < block.used) {
      file.findings.Add(Rule::kBlockInside, block.offset, stream, "the file ends in the data",
                        block.used);
    } else if (block.present < block.capacity) {
      file.findings.Add(Rule::kBlockInside, block.offset, stream, "the file ends in the reserve",
                        block.capacity);
    }
    if (std::uint64_t{block.offset} + block.capacity > kReachableEnd)
      file.findings.Add(Rule::kReachable, block.offset, stream, "ends behind 2 GiB");
  }
}

void Walker::NoteOverlap(std::uint32_t stream, const FollowedChain& chain) {
  if (chain.end != ChainEnd::kOverlap) return;
  const std::optional<std::uint32_t> exact = BlockAt(chain.endOffset);
  if (!exact) {
    file.overlaps.emplace_back(chain.endOffset, stream);
  } else if (IsTrusted(stream)) {
    file.contested[*exact] = true;
  }
  if (!IsTrusted(stream)) return;
  file.streams[stream].shared = true;
  if (!exact) {
    file.findings.Add(Rule::kNoOverlap, chain.endOffset, stream, "lies in another record");
    return;
  }
  const std::uint32_t owner = file.blocks[*exact].stream;
  if (!sound[owner] || HasEqualTitle(file.streams[stream], owner))
    file.streams[owner].shared = true;
  if (owner == stream) {
    file.findings.Add(Rule::kChainEnd, chain.endOffset, stream, "the chain leads back here");
    return;
  }
  const bool inItself = IsAbove(owner, stream);
  file.findings.Add(inItself ? Rule::kNoFolderInItself : Rule::kNoOverlap, chain.endOffset, stream,
                    inItself ? "the block is that of a folder around it"
                             : "the block is also that of the stream with the header at",
                    inItself ? 0 : file.streams[owner].headerOffset);
}

std::optional<std::uint32_t> Walker::BlockAt(std::uint32_t offset) const {
  return blockAt.Find(OffsetHash()(offset), [this, offset](std::uint32_t index) {
    return file.blocks[index].offset == offset;
  });
}

// Whether `folder` is one of those around `stream`. A file can be so deep, and ask so often, that
// the answer is no after a while.
bool Walker::IsAbove(std::uint32_t folder, std::uint32_t stream) {
  std::uint32_t above = file.streams[stream].parent;
  for (; above != kNoIndex && above != folder && stepsUp != 0; --stepsUp)
    above = file.streams[above].parent;
  return above == folder;
}

// A sound chain is believed against one that is not, but not against a header that tells of the
// same chain just as well.
bool Walker::HasEqualTitle(const InspectedStream& stream, std::uint32_t owner) const {
  const tag_aoStream& header = stream.header;
  if (header.firstBlock != file.streams[owner].header.firstBlock) return false;
  const std::optional<std::uint32_t> last = BlockAt(header.lastBlock);
  return header.length <= rooms[owner] &&
         (header.lastBlock == 0 || (last && file.blocks[*last].stream == owner));
}

void Walker::CheckLength(std::uint32_t stream) {
  const InspectedStream& found = file.streams[stream];
  const std::uint64_t lengthAt = found.headerOffset + StreamHeader::kLengthAt;
  if (found.origin == StreamOrigin::kVacated || !IsInUse(found.header)) return;
  if (found.header.firstBlock == 0) {
    if (found.header.length != 0)
      file.findings.Add(Rule::kNoBlockNoLength, lengthAt, stream, "length", found.header.length);
    return;
  }
  if (found.header.length > rooms[stream]) {
    file.findings.Add(Rule::kLengthInRoom, lengthAt, stream, "length", found.header.length);
  } else if (found.header.length > found.dataBytes) {
    file.findings.Add(Rule::kLengthInData, lengthAt, stream, "length", found.header.length);
  }
}

void Walker::NoteByOrigin(std::uint32_t stream) {
  const InspectedStream& found = file.streams[stream];
  FindingList& findings = file.findings;
  switch (found.origin) {
    case StreamOrigin::kVacated:
      findings.Add(Rule::kRemovedStream, found.headerOffset, stream, "bytes", found.dataBytes);
      break;
    case StreamOrigin::kHidden:
      findings.Add(Rule::kHiddenName, found.headerOffset, stream, "bytes", found.dataBytes);
      break;
    case StreamOrigin::kUncounted:
      findings.Add(Rule::kUncountedSlot, found.headerOffset, stream, "bytes", found.dataBytes);
      break;
    case StreamOrigin::kLostDirectory:
    case StreamOrigin::kLoneRecord:
      findings.Add(Rule::kLostStream, found.headerOffset, stream, "bytes", found.dataBytes);
      break;
    case StreamOrigin::kOrphanChain:
      findings.Add(Rule::kOrphanChain, found.header.firstBlock, stream, "bytes", found.dataBytes);
      break;
    default:
      break;
  }
}

}  // namespace aostorage::detail
