#include "storage/root_streams.h"

#include <array>

#include "platform/last_error.h"

namespace aostorage::detail {

bool EmptyChain(StorageCore& storage, std::uint32_t firstBlock, bool& fit) {
  fit = true;
  if (firstBlock == 0) return true;
  Attempt reading;  // a chain that cannot be read is left, and another one begun
  HeaderWindow window(storage.file);
  for (ChainCursor walk = ChainCursor::AtStart(firstBlock);;) {
    if (!walk.Load(window)) {
      reading.Forget();
      fit = false;
      return true;
    }
    if (walk.header.used != BlockHeader::kSize) {
      BlockHeader emptied = walk.header;
      emptied.used = BlockHeader::kSize;
      const BlockHeader::Bytes bytes = emptied.Encode();
      if (!storage.Write(walk.block, bytes.data(), bytes.size())) return false;
    }
    if (walk.header.nextBlock == 0) return true;
    if (!walk.Step(storage.file)) {
      reading.Forget();
      fit = false;
      return true;
    }
  }
}

std::unique_ptr<StreamCore> RootStreams::Create(const char* name, std::uint32_t packedKind,
                                                std::uint32_t flags, bool fast,
                                                StreamCore::Sharing sharing) {
  if (!IsUsableName(name)) return nullptr;
  if (storage->streamMap.Has(name)) return Fail(ErrorCode::kExists), nullptr;
  std::optional<FreeSlot> slot =
      fast ? storage->directory.TakeReserved(storage->file) : storage->TakeOrdinarySlot();
  if (!slot) return nullptr;
  if (PackedFolder(packedKind)) {
    bool fit = true;
    if (!EmptyChain(*storage, slot->header.firstBlock, fit)) return nullptr;
    if (!fit) slot->header.firstBlock = slot->header.lastBlock = 0;
  }
  const tag_aoStream header =
      NewStreamHeader(name, packedKind, slot->header.lastBlock, slot->header.firstBlock);
  const StreamHeader::Bytes bytes = StreamHeader::Encode(header);
  slot->locator.durationSeconds = DurationSeconds(header);
  // All that takes memory comes before the write: a stream that is in the file is in the map.
  storage->streamMap.MakeRoom();
  storage->sharedStreams.Displace(slot->locator.headerOffset);
  auto stream = std::make_unique<StreamCore>(storage, header, slot->locator, flags, sharing);
  if (!storage->WriteNewHeader(HeaderPlace(slot->locator.headerOffset), bytes)) return nullptr;
  storage->directory.SlotTaken(slot->locator);
  storage->streamMap.Store(name, slot->locator);
  if (PackedFolder(packedKind)) {
    // Should it fail, the folder is there without a count, and operations on its children fail.
    const std::array<std::uint8_t, FolderPayload::kCountSize> noChildren{};
    stream->Write(noChildren.data(), FolderPayload::kCountSize, false);
  }
  return stream;
}

std::unique_ptr<StreamCore> RootStreams::Open(const char* name, std::uint32_t flags,
                                              StreamCore::Sharing sharing) {
  tag_aoStreamOffset offset;
  if (!IsUsableName(name)) return nullptr;
  if (!storage->streamMap.Lookup(name, offset)) return Fail(ErrorCode::kNotFound), nullptr;
  if (!storage->openStreams.MayOpen(name, flags)) return nullptr;
  tag_aoStream header;
  if (!ReadRecord(offset, header)) return nullptr;
  if (!IsInUse(header))
    return Fail(ErrorCode::kNotFound), nullptr;  // another handle has removed it
  return OpenRecord(header, offset, name, flags, sharing);
}

std::unique_ptr<StreamCore> RootStreams::OpenFast(const char* name, std::uint32_t flags,
                                                  StreamCore::Sharing sharing) {
  if (!IsUsableName(name)) return nullptr;
  std::array<std::uint8_t, RootDirectory::kFastReadSize> bytes;
  const std::uint32_t blockOffset = storage->directory.FirstOffset();
  if (!storage->file.ReadExactlyAt(blockOffset, bytes.data(), bytes.size())) return nullptr;
  if (Load32(bytes.data()) != DirectoryBlock::kMagic)
    return Fail(ErrorCode::kBadMagic, blockOffset), nullptr;
  const std::uint32_t slotCount =
      std::min(Load32(bytes.data() + DirectoryBlock::kSlotCountAt), DirectoryBlock::kMaxSlots);
  for (std::uint32_t i = 0; i < storage->directory.FastSlotCount(slotCount); ++i) {
    const tag_aoStream header =
        StreamHeader::Decode(bytes.data() + DirectoryBlock::SlotOffset(0, i));
    if (!HasName(header, name)) continue;
    if (!storage->openStreams.MayOpen(name, flags)) return nullptr;
    return OpenRecord(header,
                      {DirectoryBlock::SlotOffset(blockOffset, i), blockOffset, slotCount,
                       DurationSeconds(header)},
                      name, flags, sharing);
  }
  return Fail(ErrorCode::kNotFound), nullptr;
}

std::unique_ptr<StreamCore> RootStreams::OpenByOffset(const tag_aoStreamOffset& offset,
                                                      const char* name, std::uint32_t flags) {
  tag_aoStream header;
  if (!storage->openStreams.MayOpen(name, flags) || !ReadRecord(offset, header)) return nullptr;
  return OpenRecord(header, offset, name, flags, StreamCore::Sharing::kLasting);
}

std::unique_ptr<StreamCore> RootStreams::OpenRead(const tag_aoStream& header,
                                                  const tag_aoStreamOffset& offset,
                                                  std::uint32_t flags) {
  if (!HasTerminatedName(header))
    return Fail(ErrorCode::kContradiction, offset.headerOffset), nullptr;
  if (!storage->openStreams.MayOpen(header.name, flags)) return nullptr;
  return OpenRecord(header, offset, header.name, flags, StreamCore::Sharing::kLasting);
}

bool RootStreams::ReadRecord(const tag_aoStreamOffset& offset, tag_aoStream& header) {
  StreamHeader::Bytes bytes;
  if (!storage->file.ReadExactlyAt(offset.headerOffset, bytes.data(), bytes.size())) return false;
  header = StreamHeader::Decode(bytes.data());
  return true;
}

std::unique_ptr<StreamCore> RootStreams::OpenRecord(const tag_aoStream& header,
                                                    const tag_aoStreamOffset& offset,
                                                    const char* name, std::uint32_t flags,
                                                    StreamCore::Sharing sharing) {
  if (!IsSound(header, offset.headerOffset)) return nullptr;
  auto stream = std::make_unique<StreamCore>(storage, header, offset, flags, sharing);
  if (sharing == StreamCore::Sharing::kLasting) storage->openStreams.Open(name, flags);
  return stream;
}

std::unique_ptr<StreamCore> RootStreams::OpenFirstSlot(std::uint32_t flags) {
  const DirectoryWalk walk(storage->directory.FirstOffset());
  DirectoryBlock block;
  if (!walk.Read(storage->file, block)) return nullptr;
  const std::uint32_t slotIndex = storage->directory.ReservedSlotCount();
  if (slotIndex >= block.SlotCount()) return Fail(ErrorCode::kNotFound), nullptr;
  const tag_aoStream header = block.Slot(slotIndex);
  return OpenRead(header,
                  {DirectoryBlock::SlotOffset(walk.Offset(), slotIndex), walk.Offset(),
                   block.SlotCount(), DurationSeconds(header)},
                  flags);
}

}  // namespace aostorage::detail
