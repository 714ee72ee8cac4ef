// Goes along the blocks of one stream and claims their bytes.
#ifndef AOSTORAGE_INSPECT_CHAIN_FOLLOWER_H_
#define AOSTORAGE_INSPECT_CHAIN_FOLLOWER_H_

#include <cstdint>
#include <functional>
#include <unordered_map>
#include <utility>
#include <vector>

#include <aostorage/inspect.h>

#include "inspect/claims.h"
#include "inspect/file_view.h"
#include "inspect/offset_hash.h"

namespace aostorage::detail {

struct FollowedChain {
  std::uint32_t blockCount = 0;  // claimed
  ChainEnd end = ChainEnd::kWhole;
  std::uint32_t endOffset = 0;    // where the chain breaks off
  std::uint32_t disagreeing = 0;  // first block whose `prevBlock` names another one; 0: none
  bool holdsLast = true;          // `lastBlock` is 0 or among the blocks
};

class ChainFollower {
 public:
  // `continues` is asked now and then; when it says no, there are no more blocks.
  ChainFollower(FileView& file, Claims& claimed, std::uint32_t firstPossible,
                std::function<bool()> continues)
      : view(file), claims(claimed), firstOffset(firstPossible), goesOn(std::move(continues)) {}

  // True when the chain ends as it should and all that tells of it agrees. Such chains have no
  // block in common unless they begin at the same one, so they need no claims to come to an end; a
  // first block that too many headers name is not looked at again, and the answer is no.
  bool IsSound(const tag_aoStream& header);

  // As far as there are blocks that nobody has claimed. At most `mostBlocks`.
  FollowedChain Claim(std::uint32_t firstBlock, std::uint32_t lastBlock, std::uint64_t mostBlocks,
                      std::vector<InspectedBlock>& blocks);

  bool GivenUp() const { return givenUp; }

  // The block at `offset`, if there is one.
  ChainEnd Look(std::uint32_t offset, InspectedBlock& block);

 private:
  FileView& view;
  Claims& claims;
  std::uint32_t firstOffset;
  std::function<bool()> goesOn;
  std::uint64_t steps = 0;
  bool givenUp = false;
  struct Asked {
    std::uint32_t times = 0, blocks = 0;
  };
  std::unordered_map<std::uint32_t, Asked, OffsetHash> asked;  // by first block
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_INSPECT_CHAIN_FOLLOWER_H_
