// The chain of directory blocks: the bounded walk over it, and the slots in it that are free.
#ifndef AOSTORAGE_STORAGE_ROOT_DIRECTORY_H_
#define AOSTORAGE_STORAGE_ROOT_DIRECTORY_H_

#include <cstdint>
#include <optional>
#include <set>
#include <unordered_map>
#include <vector>

#include <aostorage/types.h>

#include "platform/file.h"
#include "storage/cycle_guard.h"
#include "storage/records.h"

namespace aostorage::detail {

// Reads the blocks of the chain one by one.
class DirectoryWalk {
 public:
  explicit DirectoryWalk(std::uint32_t firstDirectoryOffset)
      : offset(firstDirectoryOffset), guard(firstDirectoryOffset) {}

  // Reads the block that the walk stands on; false for one that is short or has no magic word.
  [[nodiscard]] bool Read(File& file, DirectoryBlock& block) const;
  std::uint32_t Offset() const { return offset; }
  // Goes to `nextDirectory`. False when the chain is a circle, or has more blocks than the file has
  // room for: they overlap.
  [[nodiscard]] bool Step(File& file, std::uint32_t nextDirectory);

 private:
  std::uint32_t offset;
  std::uint32_t steps = 0;
  CycleGuard guard;
};

// A slot that a new root stream may take.
struct FreeSlot {
  tag_aoStreamOffset locator;  // durationSeconds 0
  tag_aoStream header;         // what the slot holds: nothing, or the chain of a removed stream
};

// Finds free slots, and grows the chain. It remembers which slots of the blocks that were read are
// free, so that a creation goes to its slot at once, in a directory of any size. Every slot is read
// before it is given, since another handle on the file may have taken it.
class RootDirectory {
 public:
  RootDirectory() = default;
  explicit RootDirectory(const StorageFileHeader& fileHeader);

  // Takes note of the first block, which the open of a storage reads together with the file header.
  void NoteFirst(const DirectoryBlock& block) { Note(firstOffset, block); }
  // Reads the block behind those that are known. False at damage; `atEnd` tells that there is none.
  [[nodiscard]] bool ReadNext(File& file, DirectoryBlock& block, bool& atEnd);
  std::uint32_t LastKnownOffset() const { return blocks.back().offset; }

  // The first free slot from index reservedSlotCount of the first block on. The chain grows by a
  // block when there is none; `tailOffset` then becomes the end of that block.
  std::optional<FreeSlot> TakeOrdinary(File& file, std::uint32_t& tailOffset);
  // The first free slot among the reserved ones.
  std::optional<FreeSlot> TakeReserved(File& file) const;

  // The blocks may have changed: they are read again when they are needed.
  void Forget();

  void SlotTaken(const tag_aoStreamOffset& locator) { SetFree(locator, false); }
  void SlotVacated(const tag_aoStreamOffset& locator) { SetFree(locator, true); }

  std::uint32_t FirstOffset() const { return firstOffset; }
  std::uint32_t ReservedSlotCount() const { return reservedSlotCount; }
  // Slots that the Fast operations see in a first block with `slotCount` slots.
  std::uint32_t FastSlotCount(std::uint32_t slotCount) const;

  // The reserved slots and the head before them, as one read.
  static constexpr std::uint32_t kMaxFastSlots = 6;
  static constexpr std::size_t kFastReadSize =
      DirectoryBlock::kHeadSize + kMaxFastSlots * StreamHeader::kSize;

 private:
  struct Block {
    std::uint32_t offset;
    std::uint32_t slotCount;
    std::uint32_t nextDirectory;
    std::uint64_t freeSlots;  // a bit for each ordinary slot
  };

  void Note(std::uint32_t blockOffset, const DirectoryBlock& block);
  static std::uint64_t FreeBits(const DirectoryBlock& block, std::uint32_t firstSlot);
  tag_aoStreamOffset LocatorOf(const Block& block, std::uint32_t slotIndex) const;
  void SetFree(const tag_aoStreamOffset& locator, bool free);
  void Replace(std::size_t blockIndex, const DirectoryBlock& block);
  // Looks for free slots behind the blocks known; false at damage.
  [[nodiscard]] bool LearnMore(File& file);
  [[nodiscard]] bool Grow(File& file, std::uint32_t& tailOffset);

  std::uint32_t firstOffset = 0;
  std::uint32_t reservedSlotCount = 0;
  std::uint32_t slotsPerDirectory = DirectoryBlock::kMaxSlots;
  std::vector<Block> blocks;  // as far as the chain was read
  std::unordered_map<std::uint32_t, std::size_t> blockIndexByOffset;
  std::set<std::size_t> blocksWithFreeSlots;
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_STORAGE_ROOT_DIRECTORY_H_
