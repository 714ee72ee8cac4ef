// Finds everything that a storage file holds, from the directory down, then what nobody reaches.
#ifndef AOSTORAGE_INSPECT_WALKER_H_
#define AOSTORAGE_INSPECT_WALKER_H_

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <unordered_set>
#include <vector>

#include <aostorage/inspect.h>

#include "inspect/chain_follower.h"
#include "inspect/claims.h"
#include "inspect/inspected_file.h"
#include "inspect/offset_hash.h"
#include "platform/last_error.h"
#include "storage/hash_index.h"

namespace aostorage::detail {

// Bytes go to whoever has the best title to them. The chains of streams that can be reached come
// first, then those of streams that are there but hidden, then those of removed streams, and what
// has to be guessed at comes last. Within each rank a chain that is sound in itself goes before one
// that is not, so that a wrong link never takes a block away from its owner.
class Walker {
 public:
  Walker(InspectedFile& found, const InspectOptions& given);

  // False when `goOn` gave up.
  bool Run();

 private:
  using Offsets = std::unordered_set<std::uint32_t, OffsetHash>;
  enum Rank : std::uint8_t { kReachable, kUnreachable, kRemoved, kGuessed, kRanks };

  // --- Directory (walker_directory.cpp)
  void WalkDirectory();
  void NoteRefused(std::uint32_t offset, std::uint32_t linkAt, bool hasMagic);
  bool TakeDirectory(std::uint32_t offset, DirectoryBlock& block);
  void AddDirectory(std::uint32_t offset, const DirectoryBlock& block, RecordState state);
  void AddRootSlot(std::uint32_t offset, std::uint32_t slotIndex, const tag_aoStream& header,
                   StreamOrigin origin);
  void FindHiddenRootStreams();
  void CheckSlot(std::uint32_t stream, const std::uint8_t* bytes);
  void CheckEmptySlot(std::uint64_t offset, const std::uint8_t* bytes);

  // --- Streams (walker.cpp)
  bool HasRoom() const { return file.streams.size() + file.blocks.size() < options.mostRecords; }
  std::uint32_t AddStream(const InspectedStream& stream, Rank rank);
  void Queue(std::uint32_t stream);
  bool DrainQueues();
  void Process(std::uint32_t stream);
  void TakeChain(std::uint32_t stream);
  void CheckChain(std::uint32_t stream, const FollowedChain& chain);
  void CheckBlocks(std::uint32_t stream);
  void NoteOverlap(std::uint32_t stream, const FollowedChain& chain);
  std::optional<std::uint32_t> BlockAt(std::uint32_t offset) const;
  bool IsAbove(std::uint32_t folder, std::uint32_t stream);
  bool HasEqualTitle(const InspectedStream& stream, std::uint32_t owner) const;
  void CheckLength(std::uint32_t stream);
  void NoteByOrigin(std::uint32_t stream);
  bool IsTrusted(std::uint32_t stream) const { return ranks[stream] != kGuessed; }
  bool Continues(std::uint64_t seen) {
    if (!options.goOn) return true;
    const Callback outside;
    return options.goOn(seen, file.view.Size());
  }

  // --- Folders (walker_folders.cpp)
  void TakeFolder(std::uint32_t folder);
  void AddChild(std::uint32_t folder, std::uint32_t slotIndex, const std::uint8_t* bytes,
                StreamOrigin origin);
  void FindHiddenChildren(std::uint32_t folder);
  void CheckCount(std::uint32_t folder, std::uint32_t count, std::uint64_t slots);
  bool LooksLikeFolder(const InspectedStream& stream) const;

  // --- What nobody reaches (walker_orphans.cpp)
  bool ScanGaps();
  bool ScanGap(std::uint64_t begin, std::uint64_t end);
  // What begins at `offset`, all of it before `gapEnd`. @return where the search goes on
  std::uint64_t TakeFound(std::uint64_t offset, std::uint64_t gapEnd, std::uint8_t magicByte);
  std::uint64_t FoundBlock(std::uint32_t offset, std::uint64_t gapEnd);
  std::uint64_t FoundDirectory(std::uint32_t offset, std::uint64_t gapEnd);
  std::uint64_t FoundHeader(std::uint32_t offset, std::uint64_t gapEnd);
  bool TakeOrphanChains();
  void AddOrphan(const InspectedBlock& head);
  std::vector<InspectedBlock> OrphanHeads();
  bool MayGoOn();
  bool NextOfLost(InspectedBlock& block);
  std::optional<std::uint32_t> FindSlots(const InspectedBlock& head);
  void CollectChildren(const InspectedBlock& head, Offsets& firstBlocks);
  void NoteRest();

  InspectedFile& file;
  const InspectOptions& options;
  Claims claims;
  ChainFollower follower;
  std::vector<Rank> ranks;  // by stream
  std::vector<bool> sound;  // by stream: its chain agreed with itself
  HashIndex blockAt;        // block index by file offset
  std::array<std::deque<std::uint32_t>, kRanks> ready;
  std::array<std::deque<std::uint32_t>, kRanks> deferred;
  std::vector<std::uint32_t> orphanBlocks;  // file offsets of block headers met in gaps
  std::vector<std::uint64_t> rooms;         // by stream: bytes that its blocks could hold
  std::uint64_t claimedBytes = 0;
  std::uint64_t lostSteps = 0;        // along lost chains, all of them together
  std::uint32_t stepsUp = 100000000;  // for IsAbove, all questions together
  bool givenUp = false;
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_INSPECT_WALKER_H_
