#include "folder/child_records.h"

#include <algorithm>
#include <array>
#include <exception>
#include <limits>

#include "folder/child_streams.h"
#include "platform/last_error.h"
#include "storage/root_streams.h"

namespace aostorage::detail {
namespace {

constexpr auto kRecordSize = static_cast<std::uint32_t>(StreamHeader::kSize);

}  // namespace

ChildRecords::ChildRecords(StreamCore& openFolder)
    : folder(openFolder),
      storage(openFolder.Storage()),
      exceptionsBefore(std::uncaught_exceptions()) {}

ChildRecords::~ChildRecords() {
  if (std::uncaught_exceptions() > exceptionsBefore) Forget();
}

void ChildRecords::Forget() {
  folder.Shared()->index.reset();
  scan.reset();
  begunHere = verified = false;
}

FolderIndex* ChildRecords::Index() {
  SharedStream& shared = *folder.Shared();
  const std::uint64_t epoch = storage.IndexEpoch();
  if (shared.index != nullptr && (shared.indexEpoch != epoch || !shared.index->Reliable()))
    Forget();
  if (shared.index == nullptr) {
    scan.emplace(storage.file, ChainCursor::AtStart(shared.OnDisk().firstBlock),
                 shared.OnDisk().length);
    scan->CountInto(walked);
    std::uint32_t count = 0;
    const ChildScan::Result read =
        shared.OnDisk().firstBlock == 0 ? ChildScan::Result::kEnd : scan->ReadCount(count);
    lacksCount = read == ChildScan::Result::kEnd;
    if (read != ChildScan::Result::kRecord) {
      folder.SetChildCount(0);
      Fail(ErrorCode::kTruncated, folder.Locator().headerOffset);
      return nullptr;
    }
    shared.index = std::make_unique<FolderIndex>(count, scan->Pieces(), scan->Cursor());
    shared.indexEpoch = epoch;
    begunHere = verified = true;
  }
  folder.SetChildCount(shared.index->CountWord());
  return shared.index.get();
}

bool ChildRecords::ReadCount() { return Index() != nullptr; }

// Bytes of the folder that the index does not know yet.
std::uint32_t ChildRecords::BytesBehind(const FolderIndex& index) const {
  const std::uint32_t length = folder.Shared()->OnDisk().length;
  return length - std::min(length, index.End().position);
}

// Takes one more slot into the index. kAbsent: the chain has no further whole record.
ChildRecords::Result ChildRecords::ScanSlot(FolderIndex& index, ChildRecord& record) {
  // Another operation on this folder may have taken slots into the index meanwhile.
  if (scan && scan->Cursor().position != index.End().position) scan.reset();
  if (!scan) {
    scan.emplace(storage.file, index.End(), BytesBehind(index));
    scan->CountInto(walked);
  }
  switch (scan->ReadRecord(record.header)) {
    case ChildScan::Result::kFailed:
      return Result::kFailed;
    case ChildScan::Result::kEnd:
      index.SetChainEnded();
      return Result::kAbsent;
    case ChildScan::Result::kRecord:
      break;
  }
  record.slotIndex = index.Scanned();
  record.place = HeaderPlace(scan->Pieces());
  index.AddSlot(record.header, scan->Pieces(), scan->Cursor());
  return Result::kFound;
}

bool ChildRecords::ScanAll(FolderIndex& index) {
  ChildRecord passed;
  while (!index.Complete()) {
    if (ScanSlot(index, passed) == Result::kFailed) return false;
  }
  return true;
}

ChildRecords::Result ChildRecords::ScanFor(const char* name, FolderIndex& index,
                                           ChildRecord& record) {
  while (!index.Complete()) {
    const Result result = ScanSlot(index, record);
    if (result == Result::kFailed) return result;
    if (result == Result::kFound && HasName(record.header, name)) return result;
  }
  return Result::kAbsent;
}

bool ChildRecords::ReadSlot(const FolderIndex& index, std::uint32_t slotIndex,
                            ChildRecord& record) {
  record.slotIndex = slotIndex;
  record.place = index.PlaceOf(slotIndex);
  StreamHeader::Bytes bytes;
  if (!record.place.Read(storage.file, bytes)) return false;
  record.header = StreamHeader::Decode(bytes.data());
  return true;
}

bool ChildRecords::MayBelieve() {
  if (!verified) verified = !storage.OthersChangedFile();
  return verified;
}

ChildRecords::Result ChildRecords::Find(const char* name, ChildRecord& record) {
  for (;;) {
    FolderIndex* index = Index();
    if (index == nullptr) return Result::kFailed;
    const std::optional<std::uint32_t> known = index->SlotOf(name);
    if (known && *known < index->CountWord()) {
      if (!ReadSlot(*index, *known, record)) return Result::kFailed;
      if (HasName(record.header, name)) {
        folder.PlaceCursor(index->CursorAt(*known));
        return Result::kFound;
      }
      // Another handle's doing, or a name of the same hash. An index begun anew knows no name yet:
      // the scan compares the names themselves.
      Forget();
      continue;
    }
    const Result result = ScanFor(name, *index, record);
    if (result == Result::kFound) folder.PlaceCursor(index->CursorAt(record.slotIndex));
    if (result != Result::kAbsent) return result;
    if (MayBelieve()) {
      folder.PlaceCursor(index->End());
      return result;
    }
    Forget();
  }
}

bool ChildRecords::Add(const char* name, std::uint32_t packedKind, ChildRecord& record) {
  for (;;) {
    FolderIndex* index = Index();
    if (index == nullptr) return false;
    if (!ScanAll(*index)) return false;
    if (!MayBelieve()) {
      Forget();
      continue;
    }
    const std::optional<std::uint32_t> vacated = index->FirstVacated();
    const std::optional<std::uint32_t> damaged = index->FirstDamaged();
    if (damaged && (!vacated || *damaged < *vacated))
      return Fail(ErrorCode::kBadMagic, index->PlaceOf(*damaged).Offset());
    if (!vacated) return Append(*index, name, packedKind, record);
    const Step step = AddInVacated(*index, *vacated, name, packedKind, record);
    if (step != Step::kAgain) return step == Step::kDone;
    Forget();
  }
}

ChildRecords::Step ChildRecords::AddInVacated(FolderIndex& index, std::uint32_t slotIndex,
                                              const char* name, std::uint32_t packedKind,
                                              ChildRecord& record) {
  if (!ReadSlot(index, slotIndex, record)) return Step::kFailed;
  if (IsInUse(record.header) || !HasMagic(record.header)) {
    if (!begunHere) return Step::kAgain;  // taken by another handle
    Fail(IsInUse(record.header) ? ErrorCode::kChanged : ErrorCode::kBadMagic,
         record.place.Offset());
    return Step::kFailed;
  }
  std::uint32_t lastBlock = record.header.lastBlock;
  std::uint32_t firstBlock = record.header.firstBlock;
  if (PackedFolder(packedKind)) {
    // A chain that is the folder's own, or of one around it, is damage too, and not to be emptied.
    bool fit = !LeadsBack(folder, record.header, record.place.Offset());
    if (fit && !EmptyChain(storage, firstBlock, fit)) return Step::kFailed;
    if (!fit) firstBlock = lastBlock = 0;
  }
  record.header = NewStreamHeader(name, packedKind, lastBlock, firstBlock);
  const StreamHeader::Bytes bytes = StreamHeader::Encode(record.header);
  // Straight to its place: a block's room behind `used` is none of it.
  if (!storage.WriteNewHeader(record.place, bytes) ||
      !folder.Lengthen(FolderPayload::SlotPosition(slotIndex + 1))) {
    Forget();
    return Step::kFailed;
  }
  index.SlotTaken(slotIndex, name);
  storage.sharedStreams.Displace(record.place.Offset());
  PlaceBehind(index, record);
  return Step::kDone;
}

bool ChildRecords::Append(FolderIndex& index, const char* name, std::uint32_t packedKind,
                          ChildRecord& record) {
  record.header = NewStreamHeader(name, packedKind, 0, 0);
  record.slotIndex = index.Scanned();
  const StreamHeader::Bytes bytes = StreamHeader::Encode(record.header);
  FilePieces pieces;
  folder.PlaceCursor(index.End());
  if (folder.Write(bytes.data(), kRecordSize, false, &pieces) != kRecordSize) {
    Forget();
    return false;
  }
  record.place = HeaderPlace(pieces);
  storage.sharedStreams.Displace(record.place.Offset());
  index.AddSlot(record.header, pieces, folder.Cursor());
  // A count that lies stays a lie, but it does not come round to 0.
  if (index.CountWord() != std::numeric_limits<std::uint32_t>::max())
    folder.SetChildCount(index.CountWord() + 1);
  return true;
}

bool ChildRecords::WriteCount() {
  FolderIndex* index = folder.Shared()->index.get();
  const std::uint32_t count = folder.ChildCount();
  std::array<std::uint8_t, FolderPayload::kCountSize> bytes{}, before{};
  Store32(bytes.data(), count);
  folder.Rewind();
  bool written = false;
  if (index != nullptr) {
    Store32(before.data(), index->CountWord());
    written =
        (index->CountWord() == count || storage.WriteWords(index->CountPlace(), 0, before.data(),
                                                           bytes.data(), bytes.size(), {0})) &&
        folder.Lengthen(FolderPayload::kCountSize);
    if (index->CountPlace().IsWhole()) folder.SkipLoaded(FolderPayload::kCountSize);
  } else {
    written =
        folder.Write(bytes.data(), FolderPayload::kCountSize, false) == FolderPayload::kCountSize;
  }
  if (!written) {
    Forget();
    return false;
  }
  if (index != nullptr) index->SetCountWord(count);
  return true;
}

ChildRecords::Result ChildRecords::NextInUse(std::uint32_t& slotIndex, bool bounded,
                                             ChildRecord& record) {
  for (;;) {
    FolderIndex* index = Index();
    if (index == nullptr) return Result::kFailed;
    if (bounded && static_cast<std::int32_t>(index->CountWord()) <= 0) return Result::kAbsent;
    std::optional<std::uint32_t> next = index->NextToVisit(slotIndex);
    bool justRead = false;
    while (!next && !index->Complete()) {
      if (ScanSlot(*index, record) == Result::kFailed) return Result::kFailed;
      if (index->Scanned() > slotIndex) next = index->NextToVisit(index->Scanned() - 1);
      justRead = next.has_value();
    }
    if (!next) {
      if (!MayBelieve()) {
        Forget();
        continue;
      }
      slotIndex = std::max(slotIndex, index->Scanned());
      return bounded ? Result::kAbsent : NextBehindCount(*index, slotIndex, record);
    }
    if (!justRead) {
      walked += kRecordSize;
      if (!ReadSlot(*index, *next, record)) return Result::kFailed;
    }
    if (!justRead && !begunHere && (!IsInUse(record.header) || !HasMagic(record.header))) {
      Forget();  // changed by another handle, perhaps: a fresh scan tells
      continue;
    }
    slotIndex = *next;
    if (!HasMagic(record.header) || !IsInUse(record.header)) {
      Fail(HasMagic(record.header) ? ErrorCode::kChanged : ErrorCode::kBadMagic,
           record.place.Offset());
      return Result::kDamaged;
    }
    PlaceBehind(*index, record);
    return Result::kFound;
  }
}

// Slots behind those that the count word promises: an interrupted creation leaves one.
ChildRecords::Result ChildRecords::NextBehindCount(FolderIndex& index, std::uint32_t& slotIndex,
                                                   ChildRecord& record) {
  if (index.NothingBehind()) return Result::kAbsent;
  // A walk goes on where its last step ended.
  const bool goesOn = index.BehindSlot() > index.Scanned() && index.BehindSlot() <= slotIndex;
  ChildScan further(storage.file, goesOn ? index.BehindCursor() : index.End(), kRecordSize);
  further.CountInto(walked);
  for (std::uint32_t i = goesOn ? index.BehindSlot() : index.Scanned();; ++i) {
    const ChainCursor here = further.Cursor();
    const ChildScan::Result result = further.ReadRecord(record.header);
    if (result == ChildScan::Result::kFailed) return Result::kFailed;
    if (result == ChildScan::Result::kEnd) return Result::kAbsent;
    if (i < slotIndex) continue;
    slotIndex = i;
    if (!HasMagic(record.header)) {
      index.SetBehind(i, here);
      return Fail(ErrorCode::kBadMagic, further.Pieces().front().offset), Result::kDamaged;
    }
    if (!IsInUse(record.header)) {
      ++slotIndex;
      continue;
    }
    record.slotIndex = i;
    record.place = HeaderPlace(further.Pieces());
    index.SetBehind(i + 1, further.Cursor());
    folder.PlaceCursor(further.Cursor());
    return Result::kFound;
  }
}

std::uint64_t ChildRecords::BytesPassed() {
  const FolderIndex* index = folder.Shared()->index.get();
  if (index == nullptr) return 0;
  return index->End().position + std::uint64_t{index->End().steps} * BlockHeader::kSize;
}

bool ChildRecords::HasAllSlots() {
  FolderIndex* index = Index();
  if (index == nullptr || index->Scanned() < index->CountWord()) return false;
  const std::uint32_t length = folder.Shared()->OnDisk().length;
  ChainCursor end = index->End();
  const std::uint32_t stepsBefore = end.steps;
  const bool hasAll = end.position >= length || end.Skip(storage.file, length - end.position);
  walked += std::uint64_t{end.steps - stepsBefore} * BlockHeader::kSize;
  return hasAll;
}

void ChildRecords::PlaceBehind(const FolderIndex& index, const ChildRecord& record) {
  folder.PlaceCursor(index.CursorAt(record.slotIndex));
  if (record.place.IsWhole()) {
    folder.SkipLoaded(kRecordSize);
  } else {
    folder.SeekRight(kRecordSize, false);
  }
}

}  // namespace aostorage::detail
