// The public operations on the children of a folder.
#include <algorithm>

#include <aostorage/stream.h>

#include "folder/child_records.h"
#include "folder/child_streams.h"
#include "folder/tree_copy.h"
#include "platform/last_error.h"
#include "stream/stream_maker.h"

namespace aostorage {

using detail::ChildRecord;
using detail::ChildRecords;
using detail::ChildStreams;
using detail::Fail;
using detail::FolderPayload;
using detail::Guarded;
using detail::Operation;
using detail::StreamCore;
using detail::StreamMaker;

namespace {

// Only a folder's data is ever read as child records.
bool IsOpenFolder(const StreamCore* core) {
  if (core == nullptr || !core->IsFolder()) return Fail(ErrorCode::kWrongKind);
  return !core->IsRemoved() || Fail(ErrorCode::kNotFound);
}

void GiveRecord(const ChildRecord& record, tag_aoStream& header, tag_aoStreamOffset& offset) {
  header = record.header;
  offset = {record.place.Offset(), 0, 0, detail::DurationSeconds(record.header)};
}

// Runs `open` on a folder, as the whole of an operation.
template <typename OpenBody>
aoStream* MakeIn(const char* operationName, const StreamCore* folder, OpenBody open) {
  return StreamMaker::Make(
      operationName, [&] { return IsOpenFolder(folder) ? open() : std::unique_ptr<StreamCore>(); });
}

std::uint32_t CookieOf(std::uint32_t slotIndex) { return FolderPayload::SlotPosition(slotIndex); }

}  // namespace

bool aoStream::FindStream(const char* name, tag_aoStream& header, tag_aoStreamOffset& offset) {
  return Guarded("aoStream::FindStream", false, [&] {
    if (!IsOpenFolder(core.get()) || !detail::IsUsableName(name)) return false;
    ChildRecord record;
    const ChildRecords::Result result = ChildRecords(*core).Find(name, record);
    if (result == ChildRecords::Result::kAbsent) Fail(ErrorCode::kNotFound);
    if (result != ChildRecords::Result::kFound) return false;
    GiveRecord(record, header, offset);
    return true;
  });
}

bool aoStream::AddStreamHeader(const char* name, std::uint32_t packedKind, tag_aoStream& header,
                               tag_aoStreamOffset& offset) {
  return Guarded("aoStream::AddStreamHeader", false, [&] {
    if (!IsOpenFolder(core.get()) || !detail::IsUsableName(name)) return false;
    ChildRecord record;
    ChildRecords records(*core);
    if (!records.Add(name, packedKind, record)) return false;
    // An appended record is not counted until somebody writes the count word.
    const detail::FolderIndex* index = core->Shared()->index.get();
    if (index != nullptr && core->ChildCount() != index->CountWord()) records.Forget();
    GiveRecord(record, header, offset);
    return true;
  });
}

aoStream* aoStream::CreateStream(const char* name, std::uint32_t packedKind, std::uint32_t flags) {
  return MakeIn("aoStream::CreateStream", core.get(),
                [&] { return ChildStreams(*core).Create(name, packedKind, flags); });
}

aoStream* aoStream::OpenStream(const char* name, std::uint32_t flags) {
  return MakeIn("aoStream::OpenStream", core.get(),
                [&] { return ChildStreams(*core).Open(name, flags); });
}

aoStream* aoStream::OpenOrCreateStream(const char* name, std::int32_t packedKind) {
  return OpenOrCreateStream(name, static_cast<std::uint32_t>(packedKind), kWriteFlags);
}

aoStream* aoStream::OpenOrCreateStream(const char* name, std::uint32_t packedKind,
                                       std::uint32_t flags) {
  return MakeIn("aoStream::OpenOrCreateStream", core.get(),
                [&] { return ChildStreams(*core).OpenOrCreate(name, packedKind, flags); });
}

t_OpenStream* aoStream::IsStreamOpen(const char* name) {
  return Guarded<t_OpenStream*>("aoStream::IsStreamOpen", nullptr, [&]() -> t_OpenStream* {
    if (core == nullptr) return Fail(ErrorCode::kWrongKind), nullptr;
    if (!detail::IsUsableName(name)) return nullptr;
    t_OpenStream* const record = core->Children().Find(name);
    if (record == nullptr) Fail(ErrorCode::kNotFound);
    return record;
  });
}

aoStream* aoStream::OpenStreamFirst(std::uint32_t& cookie, std::uint32_t flags) {
  return MakeIn("aoStream::OpenStreamFirst", core.get(), [&] {
    std::unique_ptr<StreamCore> child;
    ChildStreams children(*core);
    if (!children.ReadCount()) return child;
    cookie = CookieOf(0);

    std::uint32_t slotIndex = 0;
    if (children.OpenNext(slotIndex, true, flags, child) == ChildStreams::Walk::kEnd)
      Fail(ErrorCode::kNotFound);
    cookie = CookieOf(slotIndex);
    return child;
  });
}

aoStream* aoStream::OpenStreamNext(std::uint32_t& cookie, std::uint32_t flags) {
  return MakeIn("aoStream::OpenStreamNext", core.get(), [&] {
    std::unique_ptr<StreamCore> child;
    // Any other number did not come from a walk.
    if (cookie < CookieOf(0) || (cookie - CookieOf(0)) % detail::StreamHeader::kSize != 0) {
      Fail(ErrorCode::kBadArgument);
      return child;
    }
    std::uint32_t slotIndex =
        (cookie - CookieOf(0)) / static_cast<std::uint32_t>(detail::StreamHeader::kSize);
    if (ChildStreams(*core).OpenNext(slotIndex, false, flags, child) == ChildStreams::Walk::kEnd)
      Fail(ErrorCode::kNotFound);
    cookie = CookieOf(slotIndex);
    return child;
  });
}

void aoStream::EnumStreams(std::vector<std::string>& names) {
  Guarded("aoStream::EnumStreams", false, [&] {
    if (!IsOpenFolder(core.get())) return false;
    ChildStreams::ListNames(*core, names);
    return true;
  });
}

bool aoStream::Rename(const char* newName) {
  return Guarded("aoStream::Rename", false, [&] {
    if (core == nullptr) return Fail(ErrorCode::kWrongKind);
    if (!core->MayChange()) return false;
    if (newName == nullptr || *newName == '\0') return Fail(ErrorCode::kNameUnusable);
    return detail::RenameStream(*core, newName);
  });
}

bool aoStream::Remove() {
  const bool removed = Guarded("aoStream::Remove", false, [&] {
    if (core == nullptr) return Fail(ErrorCode::kWrongKind);
    if ((core->OpenFlags() & kStreamWrite) == 0) return Fail(ErrorCode::kNotWritable);
    return detail::RemoveWhole(*core);
  });
  if (removed) StreamMaker::End(this);
  return removed;
}

void aoStream::ClearFolder() {
  Guarded("aoStream::ClearFolder", false, [&] {
    if (!IsOpenFolder(core.get())) return false;
    return detail::RemoveChildren(*core);
  });
}

bool aoStream::CopyFolder(aoStream* destination) {
  const Operation operation("aoStream::CopyFolder");
  if (core == nullptr) return Fail(ErrorCode::kWrongKind);
  if (destination == nullptr) return Fail(ErrorCode::kBadArgument);
  if (!core->IsFolder() && destination->IsFolder() == 0) return CopyStream(destination);
  return Guarded(false, [&] {
    StreamCore* target = StreamMaker::CoreOf(destination);
    if (!core->IsFolder() || target == nullptr) return Fail(ErrorCode::kWrongKind);
    if (core->IsRemoved() || target->IsRemoved()) return Fail(ErrorCode::kNotFound);
    if (core->IsOn(*target) || core->IsInside(*target) || target->IsInside(*core))
      return Fail(ErrorCode::kBadArgument);
    // One may lie inside the other unseen.
    const bool oneFile = core->Storage().file.Identity() == target->Storage().file.Identity();
    if (oneFile && (!core->KnowsItsFolders() || !target->KnowsItsFolders()))
      return Fail(ErrorCode::kBadArgument);
    detail::TreeCopy copy(core->Storage(), detail::TreeCopy::Goal::kMerge);
    copy.Copy(*core, target);
    // An empty child counts as one that had nothing to copy.
    return copy.IsWhole() && (!copy.metEmptyPlain || Fail(ErrorCode::kNotFound));
  });
}

}  // namespace aostorage
