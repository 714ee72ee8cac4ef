#include "folder/child_streams.h"

#include <array>

#include "platform/last_error.h"

namespace aostorage::detail {

bool LeadsBack(const StreamCore& folder, const tag_aoStream& childHeader,
               std::uint32_t childHeaderOffset) {
  // A folder that nobody has open is not around another one.
  const SharedStreams& open = folder.Storage().sharedStreams;
  const bool chainIsOpen = childHeader.firstBlock != 0 && open.HasOpenChain(childHeader.firstBlock);
  if (!chainIsOpen && open.Find(childHeaderOffset) == nullptr) return false;
  for (const SharedStream* around = folder.Shared(); around != nullptr; around = around->Parent()) {
    if (around->HeaderOffset() == childHeaderOffset) return true;
    if (childHeader.firstBlock != 0 && around->OnDisk().firstBlock == childHeader.firstBlock)
      return true;
  }
  return false;
}

std::unique_ptr<StreamCore> ChildStreams::OpenRecord(const ChildRecord& record, std::uint32_t flags,
                                                     Sharing sharing) {
  if (!HasTerminatedName(record.header))
    return Fail(ErrorCode::kContradiction, record.place.Offset()), nullptr;
  if (!folder.Children().MayOpen(record.header.name, flags)) return nullptr;
  if (!folder.Storage().file.IsOpen()) return Fail(ErrorCode::kNotOpen), nullptr;
  if (IsFolderKind(record.header) && LeadsBack(folder, record.header, record.place.Offset())) {
    return Fail(ErrorCode::kCycle, record.place.Offset()), nullptr;
  }
  auto child = std::make_unique<StreamCore>(folder, record.header, record.place, record.slotIndex,
                                            flags, sharing);
  if (sharing == Sharing::kLasting) folder.Children().Open(record.header.name, flags);
  return child;
}

std::unique_ptr<StreamCore> ChildStreams::Open(const char* name, std::uint32_t flags,
                                               Sharing sharing) {
  ChildRecord record;
  if (!IsUsableName(name)) return nullptr;
  const ChildRecords::Result found = records.Find(name, record);
  if (found == ChildRecords::Result::kAbsent) Fail(ErrorCode::kNotFound);
  return found == ChildRecords::Result::kFound ? OpenRecord(record, flags, sharing) : nullptr;
}

std::unique_ptr<StreamCore> ChildStreams::Create(const char* name, std::uint32_t packedKind,
                                                 std::uint32_t flags, Sharing sharing) {
  ChildRecord record;
  if (!IsUsableName(name)) return nullptr;
  const ChildRecords::Result found = records.Find(name, record);
  if (found == ChildRecords::Result::kFound) Fail(ErrorCode::kExists);
  return found == ChildRecords::Result::kAbsent ? CreateUnseen(name, packedKind, flags, sharing)
                                                : nullptr;
}

std::unique_ptr<StreamCore> ChildStreams::OpenOrCreate(const char* name, std::uint32_t packedKind,
                                                       std::uint32_t flags, Sharing sharing) {
  ChildRecord record;
  if (!IsUsableName(name)) return nullptr;
  switch (records.Find(name, record)) {
    case ChildRecords::Result::kFound:
      return OpenRecord(record, flags, sharing);
    case ChildRecords::Result::kAbsent:
      return CreateUnseen(name, packedKind, flags, sharing);
    case ChildRecords::Result::kDamaged:
    case ChildRecords::Result::kFailed:
      break;
  }
  return nullptr;
}

// The record first, then what the child needs of its own, and the folder's count last: until then
// an appended record is not seen.
std::unique_ptr<StreamCore> ChildStreams::CreateUnseen(const char* name, std::uint32_t packedKind,
                                                       std::uint32_t flags, Sharing sharing) {
  ChildRecord record;
  if (!records.Add(name, packedKind, record)) return nullptr;
  std::unique_ptr<StreamCore> child = OpenRecord(record, flags, sharing);
  if (child != nullptr && PackedFolder(packedKind)) {
    const std::array<std::uint8_t, FolderPayload::kCountSize> noChildren{};
    if (child->Write(noChildren.data(), FolderPayload::kCountSize, false) !=
        FolderPayload::kCountSize) {
      if (sharing == Sharing::kLasting) child->CloseInRegistry();
      records.Forget();
      return nullptr;
    }
  }
  // A count that cannot be written is not reported: the child is there, and its next creation tries
  // again.
  counted = records.WriteCount();
  return child;
}

ChildStreams::Walk ChildStreams::OpenNext(std::uint32_t& slotIndex, bool bounded,
                                          std::uint32_t flags, std::unique_ptr<StreamCore>& child,
                                          Sharing plainSharing) {
  child = nullptr;
  ChildRecord record;
  switch (records.NextInUse(slotIndex, bounded, record)) {
    case ChildRecords::Result::kFound:
      break;
    case ChildRecords::Result::kAbsent:
      return Walk::kEnd;
    case ChildRecords::Result::kDamaged:
      return Walk::kDamaged;
    case ChildRecords::Result::kFailed:
      return Walk::kCutOff;
  }
  ++slotIndex;
  const bool isFolder = IsFolderKind(record.header);
  child = OpenRecord(record, flags, isFolder ? Sharing::kLasting : plainSharing);
  if (child != nullptr) return Walk::kOpened;
  return isFolder && LeadsBack(folder, record.header, record.place.Offset()) ? Walk::kLeadsBack
                                                                             : Walk::kRefused;
}

void ChildStreams::ListNames(StreamCore& folder, std::vector<std::string>& names) {
  const tag_aoStream& header = folder.Shared()->OnDisk();
  ChildScan scan(folder.Storage().file, ChainCursor::AtStart(header.firstBlock), header.length);
  std::uint32_t count = 0;
  if (scan.ReadCount(count) != ChildScan::Result::kRecord) {
    folder.SetChildCount(0);
    Fail(ErrorCode::kTruncated, folder.Locator().headerOffset);
    return;
  }
  folder.SetChildCount(count);
  if (static_cast<std::int32_t>(count) <= 0) return;
  bool metOne = false;
  tag_aoStream record;
  for (std::uint32_t i = 0; metOne || i < count; ++i) {
    if (scan.ReadRecord(record) != ChildScan::Result::kRecord) return;
    const std::uint32_t place = scan.Pieces().front().offset;
    if (!HasMagic(record)) {
      Fail(ErrorCode::kBadMagic, place);
      return;
    }
    if (!IsInUse(record)) continue;
    metOne = true;
    if (!IsSound(record, place) || !folder.Children().MayOpen(record.name, kReadFlags)) return;
    if (IsFolderKind(record) && LeadsBack(folder, record, place)) {
      Fail(ErrorCode::kCycle, place);
      return;
    }
    names.emplace_back(record.name);
  }
}

}  // namespace aostorage::detail
