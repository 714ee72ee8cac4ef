#include "stream/stream_core.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/last_error.h"

namespace aostorage::detail {

StreamCore::StreamCore(std::shared_ptr<StorageCore> openStorage, const tag_aoStream& record,
                       const tag_aoStreamOffset& offset, std::uint32_t flags, Sharing sharing)
    : storage(std::move(openStorage)),
      header(record),
      place(offset.headerOffset),
      locator(offset),
      openFlags(flags),
      cursor(ChainCursor::AtStart(record.firstBlock)),
      directoryGuard(offset.directoryOffset) {
  Join(sharing);
  if (shared != nullptr && shared->Parent() == nullptr)
    shared->placeAlone = offset.directoryOffset == 0;
}

StreamCore::StreamCore(StreamCore& folder, const tag_aoStream& record, HeaderPlace recordPlace,
                       std::uint32_t slot, std::uint32_t flags, Sharing sharing)
    : storage(folder.storage),
      header(record),
      place(std::move(recordPlace)),
      slotIndex(slot),
      openFlags(flags),
      cursor(ChainCursor::AtStart(record.firstBlock)),
      parent(folder.shared) {
  locator.headerOffset = place.Offset();
  if (sharing == Sharing::kLasting) {
    folder.Children();
    owningRegistry = folder.childRegistry;
  }
  Join(sharing);
}

StreamCore::~StreamCore() { LeaveShared(); }

OpenRegistry& StreamCore::Children() {
  if (childRegistry == nullptr) childRegistry = std::make_shared<OpenRegistry>();
  return *childRegistry;
}

void StreamCore::Join(Sharing sharing) {
  SharedStreams& open = storage->sharedStreams;
  if (sharing == Sharing::kMomentary) {
    shared = open.Find(place.Offset());
    if (shared != nullptr) shared->SetOnDisk(header);
  } else {
    shared = open.FindOrMake(place.Offset(), header, parent);
  }
  if (shared != nullptr) shared->objects.push_back(this);
}

void StreamCore::LeaveShared() {
  if (shared == nullptr) return;
  std::vector<StreamCore*>& objects = shared->objects;
  objects.erase(std::remove(objects.begin(), objects.end(), this), objects.end());
  shared.reset();
}

void StreamCore::Adopt() {
  if (shared == nullptr) return;
  if (shared->OnDisk().firstBlock != 0 && header.firstBlock == 0) {
    header.firstBlock = shared->OnDisk().firstBlock;
    if (cursor.block == 0) cursor = ChainCursor::AtStart(header.firstBlock);
  }
  if (fresher) {
    cursor.header = *fresher;
    fresher.reset();
  }
}

bool StreamCore::IsInside(const StreamCore& other) const {
  for (const SharedStream* around = parent.get(); around != nullptr; around = around->Parent()) {
    if (other.IsRecordAt(*this, around->HeaderOffset())) return true;
  }
  return false;
}

bool StreamCore::KnowsItsFolders() const {
  const SharedStream* top = shared.get();
  while (top != nullptr && top->Parent() != nullptr) top = top->Parent();
  return top != nullptr && !top->placeAlone;
}

bool StreamCore::MayChange() const {
  if ((openFlags & kStreamWrite) == 0) return Fail(ErrorCode::kNotWritable);
  return !IsRemoved() || Fail(ErrorCode::kNotFound);
}

// Name, kind and chain are the stream's, not this object's: another object may have changed them
// since.
tag_aoStream StreamCore::HeaderToWrite() const {
  return shared != nullptr ? shared->OnDisk() : header;
}

bool StreamCore::WriteWholeHeader(std::uint32_t newLength) {
  Adopt();
  header.length = newLength;
  tag_aoStream record = HeaderToWrite();
  record.length = newLength;
  const StreamHeader::Bytes bytes = StreamHeader::Encode(record);
  if (!storage->WriteHeader(place, 0, bytes.data(), bytes.size())) return false;
  if (shared != nullptr) shared->SetOnDisk(record);
  return true;
}

bool StreamCore::SetLength(std::uint32_t newLength) {
  if (!MayChange()) return false;
  if (newLength > header.length) return Fail(ErrorCode::kBadArgument);
  ForgetIndex();
  const bool written = WriteWholeHeader(newLength);
  Rewind();
  return written;
}

bool StreamCore::Erase() {
  if (!MayChange()) return false;
  ForgetIndex();
  const bool written = WriteWholeHeader(0);
  Rewind();
  return written;
}

bool StreamCore::WriteName(std::string_view newName) {
  Adopt();
  tag_aoStream record = HeaderToWrite();
  const StreamHeader::Bytes before = StreamHeader::Encode(record);
  SetName(record, newName);
  SetName(header, newName);
  if (!storage->WriteRenamed(place, before, StreamHeader::Encode(record))) return false;
  if (shared != nullptr) shared->SetOnDisk(record);
  return true;
}

bool StreamCore::WriteVacated() {
  Adopt();
  tag_aoStream record = HeaderToWrite();
  Vacate(record);
  Vacate(header);
  const StreamHeader::Bytes bytes = StreamHeader::Encode(record);
  if (!storage->WriteHeader(place, 0, bytes.data(), bytes.size())) return false;
  if (shared != nullptr) {
    storage->sharedStreams.MarkRemoved(*shared);
    shared->index.reset();
  }
  return true;
}

bool StreamCore::ReadNextSlot(tag_aoStream& next, tag_aoStreamOffset& nextLocator) {
  constexpr auto kSlotSize = static_cast<std::uint32_t>(StreamHeader::kSize);
  constexpr std::size_t kHeadAndSlot = DirectoryBlock::kHeadSize + StreamHeader::kSize;
  std::array<std::uint8_t, kHeadAndSlot> bytes;
  nextLocator = locator;
  const std::uint8_t* slot = bytes.data();
  if ((locator.headerOffset - locator.directoryOffset) / kSlotSize + 1 < locator.directoryCount) {
    nextLocator.headerOffset += kSlotSize;
    if (!storage->file.ReadExactlyAt(nextLocator.headerOffset, bytes.data(), kSlotSize))
      return false;
  } else {
    if (!storage->file.ReadExactlyAt(
            std::uint64_t{locator.directoryOffset} + DirectoryBlock::kNextAt, bytes.data(), 4)) {
      return false;
    }
    const std::uint32_t nextDirectory = Load32(bytes.data());
    if (nextDirectory == 0) return Fail(ErrorCode::kNotFound);
    if (!directoryGuard.Pass(nextDirectory)) return Fail(ErrorCode::kCycle, nextDirectory);
    if (!storage->file.ReadExactlyAt(nextDirectory, bytes.data(), bytes.size())) return false;
    if (Load32(bytes.data()) != DirectoryBlock::kMagic)
      return Fail(ErrorCode::kBadMagic, nextDirectory);
    nextLocator.directoryOffset = nextDirectory;
    nextLocator.headerOffset = DirectoryBlock::SlotOffset(nextDirectory, 0);
    nextLocator.directoryCount =
        std::min(Load32(bytes.data() + DirectoryBlock::kSlotCountAt), DirectoryBlock::kMaxSlots);
    slot += DirectoryBlock::kHeadSize;
  }
  next = StreamHeader::Decode(slot);
  if (!IsInUse(next)) return Fail(ErrorCode::kNotFound);
  if (!IsSound(next, nextLocator.headerOffset)) return false;
  nextLocator.durationSeconds = DurationSeconds(next);
  return true;
}

bool StreamCore::GoNext() {
  if (IsChild() || locator.directoryOffset == 0 || locator.headerOffset < locator.directoryOffset) {
    return Fail(ErrorCode::kWrongKind);
  }
  const CycleGuard guardBefore = directoryGuard;
  tag_aoStream next;
  tag_aoStreamOffset nextLocator;
  if (!ReadNextSlot(next, nextLocator)) {
    directoryGuard = guardBefore;
    return false;
  }
  // The steps that can run out of memory come first.
  std::shared_ptr<SharedStream> joined =
      storage->sharedStreams.FindOrMake(nextLocator.headerOffset, next, nullptr);
  joined->objects.reserve(joined->objects.size() + 1);
  storage->openStreams.Add(next.name, openFlags);
  storage->openStreams.Close(header.name);
  LeaveShared();
  shared = std::move(joined);
  shared->objects.push_back(this);
  header = next;
  locator = nextLocator;
  place = HeaderPlace(locator.headerOffset);
  PlaceCursor(ChainCursor::AtStart(header.firstBlock));
  return true;
}

}  // namespace aostorage::detail
