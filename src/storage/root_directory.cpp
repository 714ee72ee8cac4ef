#include "storage/root_directory.h"

#include <algorithm>
#include <array>

#include "platform/last_error.h"

namespace aostorage::detail {
namespace {

std::uint32_t LowestBit(std::uint64_t bits) {
  std::uint32_t index = 0;
  while ((bits & 1) == 0) {
    bits >>= 1;
    ++index;
  }
  return index;
}

// Whether the file has room for that many blocks.
bool HasRoomFor(File& file, std::uint64_t blockCount) {
  return file.Holds(blockCount * DirectoryBlock::kSize);
}

std::uint32_t SlotIndexOf(const tag_aoStreamOffset& locator) {
  return (locator.headerOffset - locator.directoryOffset -
          static_cast<std::uint32_t>(DirectoryBlock::kHeadSize)) /
         static_cast<std::uint32_t>(StreamHeader::kSize);
}

}  // namespace

bool DirectoryWalk::Read(File& file, DirectoryBlock& block) const {
  return file.ReadExactlyAt(offset, block.Data(), DirectoryBlock::kSize) &&
         (block.HasMagic() || Fail(ErrorCode::kBadMagic, offset));
}

bool DirectoryWalk::Step(File& file, std::uint32_t nextDirectory) {
  offset = nextDirectory;
  if (!guard.Pass(nextDirectory)) return Fail(ErrorCode::kCycle, nextDirectory);
  return HasRoomFor(file, ++steps) || Fail(ErrorCode::kContradiction, nextDirectory);
}

RootDirectory::RootDirectory(const StorageFileHeader& fileHeader)
    : firstOffset(fileHeader.firstDirectoryOffset),
      reservedSlotCount(fileHeader.reservedSlotCount),
      slotsPerDirectory(fileHeader.slotsPerDirectory >= 1 &&
                                fileHeader.slotsPerDirectory <= DirectoryBlock::kMaxSlots
                            ? fileHeader.slotsPerDirectory
                            : DirectoryBlock::kMaxSlots) {}

std::uint32_t RootDirectory::FastSlotCount(std::uint32_t slotCount) const {
  return std::min({kMaxFastSlots, reservedSlotCount, slotCount});
}

std::uint64_t RootDirectory::FreeBits(const DirectoryBlock& block, std::uint32_t firstSlot) {
  std::uint64_t bits = 0;
  for (std::uint32_t i = firstSlot; i < block.SlotCount(); ++i) {
    if (!block.SlotInUse(i)) bits |= std::uint64_t{1} << i;
  }
  return bits;
}

void RootDirectory::Note(std::uint32_t blockOffset, const DirectoryBlock& block) {
  blocks.push_back({blockOffset, 0, 0, 0});
  blockIndexByOffset.emplace(blockOffset, blocks.size() - 1);
  Replace(blocks.size() - 1, block);
}

void RootDirectory::Replace(std::size_t blockIndex, const DirectoryBlock& block) {
  Block& known = blocks[blockIndex];
  known.slotCount = block.SlotCount();
  known.nextDirectory = block.NextDirectory();
  known.freeSlots = FreeBits(block, blockIndex == 0 ? reservedSlotCount : 0);
  if (known.freeSlots != 0) blocksWithFreeSlots.insert(blockIndex);
}

void RootDirectory::Forget() {
  blocks.clear();
  blockIndexByOffset.clear();
  blocksWithFreeSlots.clear();
}

tag_aoStreamOffset RootDirectory::LocatorOf(const Block& block, std::uint32_t slotIndex) const {
  return {DirectoryBlock::SlotOffset(block.offset, slotIndex), block.offset, block.slotCount, 0};
}

std::optional<FreeSlot> RootDirectory::TakeOrdinary(File& file, std::uint32_t& tailOffset) {
  bool justGrown = false;
  for (;;) {
    while (!blocksWithFreeSlots.empty()) {
      const Block& block = blocks[*blocksWithFreeSlots.begin()];
      FreeSlot slot{LocatorOf(block, LowestBit(block.freeSlots)), {}};
      if (justGrown) return slot;  // this call has just written it
      StreamHeader::Bytes bytes;
      if (!file.ReadExactlyAt(slot.locator.headerOffset, bytes.data(), bytes.size()))
        return std::nullopt;
      slot.header = StreamHeader::Decode(bytes.data());
      if (!IsInUse(slot.header)) return slot;
      SlotTaken(slot.locator);  // by another handle
    }
    if (!LearnMore(file)) return std::nullopt;
    if (blocksWithFreeSlots.empty() && blocks.back().nextDirectory == 0) {
      if (!Grow(file, tailOffset)) return std::nullopt;
      justGrown = true;
    }
  }
}

bool RootDirectory::ReadNext(File& file, DirectoryBlock& block, bool& atEnd) {
  const std::uint32_t next = blocks.empty() ? firstOffset : blocks.back().nextDirectory;
  atEnd = next == 0;
  if (atEnd) return true;
  if (blockIndexByOffset.count(next) != 0) return Fail(ErrorCode::kCycle, next);
  if (!HasRoomFor(file, blocks.size())) return Fail(ErrorCode::kContradiction, next);
  if (!DirectoryWalk(next).Read(file, block)) return false;
  Note(next, block);
  return true;
}

bool RootDirectory::LearnMore(File& file) {
  DirectoryBlock block;
  bool atEnd = false;
  if (!ReadNext(file, block, atEnd)) return false;
  if (!atEnd) return true;
  // The last block again: another handle may have vacated a slot of it, or grown the chain.
  if (!DirectoryWalk(blocks.back().offset).Read(file, block)) return false;
  Replace(blocks.size() - 1, block);
  return true;
}

// Appends an empty block. It is complete before the link to it is written.
bool RootDirectory::Grow(File& file, std::uint32_t& tailOffset) {
  const std::optional<std::uint64_t> end = file.Size();
  if (!end) return false;
  if (*end + DirectoryBlock::kSize > kReachableEnd) return Fail(ErrorCode::kTooLarge, *end);
  const auto newOffset = static_cast<std::uint32_t>(*end);
  const DirectoryBlock block = DirectoryBlock::ForGrowth(slotsPerDirectory);
  if (!file.WriteAt(newOffset, block.Data(), DirectoryBlock::kSize)) return false;
  std::array<std::uint8_t, 4> link{};
  Store32(link.data(), newOffset);
  if (!file.WriteAt(blocks.back().offset + DirectoryBlock::kNextAt, link.data(), link.size()))
    return false;
  tailOffset = newOffset + static_cast<std::uint32_t>(DirectoryBlock::kSize);
  blocks.back().nextDirectory = newOffset;
  Note(newOffset, block);
  return true;
}

std::optional<FreeSlot> RootDirectory::TakeReserved(File& file) const {
  DirectoryBlock block;
  if (!DirectoryWalk(firstOffset).Read(file, block)) return std::nullopt;
  for (std::uint32_t i = 0; i < FastSlotCount(block.SlotCount()); ++i) {
    if (!block.SlotInUse(i)) {
      return FreeSlot{
          {DirectoryBlock::SlotOffset(firstOffset, i), firstOffset, block.SlotCount(), 0},
          block.Slot(i)};
    }
  }
  Fail(ErrorCode::kFull);
  return std::nullopt;
}

void RootDirectory::SetFree(const tag_aoStreamOffset& locator, bool free) {
  const auto found = blockIndexByOffset.find(locator.directoryOffset);
  if (found == blockIndexByOffset.end()) return;
  Block& block = blocks[found->second];
  const std::uint32_t slotIndex = SlotIndexOf(locator);
  const std::uint32_t firstSlot = found->second == 0 ? reservedSlotCount : 0;
  if (slotIndex < firstSlot || slotIndex >= block.slotCount) return;
  const std::uint64_t bit = std::uint64_t{1} << slotIndex;
  if (free) {
    block.freeSlots |= bit;
    blocksWithFreeSlots.insert(found->second);
  } else {
    block.freeSlots &= ~bit;
    if (block.freeSlots == 0) blocksWithFreeSlots.erase(found->second);
  }
}

}  // namespace aostorage::detail
