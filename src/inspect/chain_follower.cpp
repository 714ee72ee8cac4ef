#include "inspect/chain_follower.h"

#include <algorithm>

#include "storage/records.h"

namespace aostorage::detail {

ChainEnd ChainFollower::Look(std::uint32_t offset, InspectedBlock& block) {
  constexpr std::uint64_t kStepsBetweenQuestions = 16384;
  if (++steps % kStepsBetweenQuestions == 0 && !givenUp) givenUp = !goesOn();
  if (givenUp) return ChainEnd::kOutOfRange;
  const std::uint64_t size = view.Size();
  if (offset < firstOffset || offset >= size || offset >= kReachableEnd)
    return ChainEnd::kOutOfRange;
  BlockHeader::Bytes bytes;
  if (!view.ReadExactly(offset, bytes.data(), bytes.size())) return ChainEnd::kTruncated;
  if (Load32(bytes.data()) != BlockHeader::kMagic) return ChainEnd::kBadMagic;
  const auto header = BlockHeader::Decode(bytes.data());
  if (!header) return ChainEnd::kBadWords;
  const std::uint64_t present = std::min<std::uint64_t>(header->capacity, size - offset);
  block = {offset,
           header->used,
           header->capacity,
           header->prevBlock,
           header->nextBlock,
           static_cast<std::uint32_t>(present),
           kNoIndex,
           0};
  return ChainEnd::kWhole;
}

bool ChainFollower::IsSound(const tag_aoStream& header) {
  constexpr std::uint32_t kMostQuestions = 4;
  Asked& questions = asked[header.firstBlock];
  if (questions.times == kMostQuestions) return false;
  ++questions.times;
  questions.blocks = 0;
  std::uint32_t before = 0;
  std::uint64_t room = 0;
  bool holdsLast = header.lastBlock == 0;
  for (std::uint32_t offset = header.firstBlock; offset != 0;) {
    InspectedBlock block;
    if (Look(offset, block) != ChainEnd::kWhole || block.prevBlock != before ||
        block.present < block.used) {
      return false;
    }
    room += block.capacity - BlockHeader::kSize;
    ++questions.blocks;
    holdsLast = holdsLast || offset == header.lastBlock;
    before = offset;
    offset = block.nextBlock;
  }
  return holdsLast && header.length <= room;
}

FollowedChain ChainFollower::Claim(std::uint32_t firstBlock, std::uint32_t lastBlock,
                                   std::uint64_t mostBlocks, std::vector<InspectedBlock>& blocks) {
  FollowedChain chain;
  // A long chain in one step: a list that grows holds its blocks twice meanwhile.
  const auto known = asked.find(firstBlock);
  if (known != asked.end() && known->second.blocks > blocks.size())
    blocks.reserve(blocks.size() + std::min<std::uint64_t>(known->second.blocks, mostBlocks));
  chain.holdsLast = lastBlock == 0;
  std::uint32_t before = 0;
  std::uint64_t position = 0;
  for (std::uint32_t offset = firstBlock; offset != 0;) {
    InspectedBlock block;
    chain.endOffset = offset;
    chain.end = Look(offset, block);
    if (chain.end != ChainEnd::kWhole || chain.blockCount >= mostBlocks) return chain;
    if (!claims.Claim(offset, std::uint64_t{offset} + block.present)) {
      chain.end = ChainEnd::kOverlap;
      return chain;
    }
    if (block.prevBlock != before && chain.disagreeing == 0) chain.disagreeing = offset;
    chain.holdsLast = chain.holdsLast || offset == lastBlock;
    block.position = position;
    position += std::min(block.used, block.present) - BlockHeader::kSize;
    blocks.push_back(block);
    ++chain.blockCount;
    if (block.present < block.used) {
      chain.end = ChainEnd::kTruncated;
      return chain;
    }
    before = offset;
    offset = block.nextBlock;
  }
  chain.endOffset = 0;
  return chain;
}

}  // namespace aostorage::detail
