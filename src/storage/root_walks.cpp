// Going over the root streams of a storage.
#include <array>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include <aostorage/storage.h>
#include <aostorage/stream.h>

#include "platform/last_error.h"
#include "storage/root_streams.h"
#include "stream/stream_maker.h"

namespace aostorage {

using detail::CMapSort;
using detail::DirectoryBlock;
using detail::DirectoryWalk;
using detail::Fail;
using detail::Guarded;
using detail::Operation;
using detail::RootStreams;
using detail::StorageCore;
using detail::StreamCore;
using detail::StreamMaker;

namespace {

constexpr StreamCookie kSortedEnd = -1;
constexpr StreamCookie kUnsortedEnd = CMapSort::kNoEntry;

std::unique_ptr<StreamCore> OpenEntry(const std::shared_ptr<StorageCore>& storage,
                                      const std::optional<CMapSort::Found>& entry,
                                      std::uint32_t flags) {
  if (!entry) return Fail(ErrorCode::kNotFound), nullptr;
  return RootStreams(storage).OpenByOffset(entry->locator, entry->name, flags);
}

// Index of the entry behind `index` in the sorted view, or its end mark.
StreamCookie SortedNext(const CMapSort& map, StreamCookie index) {
  return static_cast<std::size_t>(index) + 1 < map.SortedCount() ? index + 1 : kSortedEnd;
}

bool IsFolderStream(const aoStream& stream) { return stream.IsFolder() != 0; }

// The first stream of a cookie walk that is of the kind wanted and has the name; the empty name
// fits all.
aoStream* FindRoot(const char* operationName, aoStorage& storage, const char* name,
                   std::uint32_t flags, bool folder) {
  const Operation operation(operationName);
  if (name == nullptr) return Fail(ErrorCode::kNameUnusable), nullptr;
  StreamCookie cookie = 0;
  aoStream* stream = storage.OpenStreamFirst(cookie, flags);
  while (stream != nullptr) {
    if (IsFolderStream(*stream) == folder &&
        (*name == '\0' || std::strcmp(name, stream->GetName()) == 0)) {
      return stream;
    }
    stream->Release();
    stream = storage.OpenStreamNext(cookie, flags);
  }
  return nullptr;
}

constexpr std::size_t kNumberedNameLength = 8;
constexpr std::uint32_t kDaySeconds = 86400;
constexpr std::uint32_t kHourSeconds = 3600;

// The number that an eight-character name gives in hexadecimal; nothing if it does not begin with a
// digit.
std::optional<std::uint32_t> NumberOf(const std::string& name) {
  if (!std::strchr("0123456789abcdefABCDEF", name.front())) return std::nullopt;
  return static_cast<std::uint32_t>(std::strtoul(name.c_str(), nullptr, 16));
}

// How long a stream without a stored duration lasts: up to the next one that has a number for a
// name.
std::uint32_t EstimateDuration(const CMapSort& map, const CIterateSortedStreams& iteration) {
  std::uint32_t estimate = iteration.lastDuration;
  for (std::int64_t i = iteration.nextIndex; i >= 0; ++i) {
    const auto next = map.SortedAt(i);
    if (!next && static_cast<std::size_t>(i) >= map.SortedCount()) break;
    if (!next || std::strlen(next->name) != kNumberedNameLength) continue;
    const auto here = NumberOf(iteration.streamName);
    const auto there = NumberOf(next->name);
    if (here && there && *there - *here <= kDaySeconds) estimate = *there - *here;
    break;
  }
  return estimate == 0 ? kHourSeconds : estimate;
}

void SettleDuration(const CMapSort& map, CIterateSortedStreams& iteration) {
  std::uint32_t& seconds = iteration.streamOffset.durationSeconds;
  if (iteration.fixedDuration != 0) seconds = iteration.fixedDuration;
  if (seconds != 0 || iteration.streamName.size() != kNumberedNameLength) return;
  seconds = iteration.lastDuration = EstimateDuration(map, iteration);
}

}  // namespace

void aoStorage::EnableSorting(int sortEnabled, int sortDescending) {
  core->sortEnabled = sortEnabled != 0;
  core->sortDescending = sortDescending != 0;
}

aoStream* aoStorage::OpenStreamFirst(StreamCookie& cookie, std::uint32_t flags) {
  return StreamMaker::Make("aoStorage::OpenStreamFirst", [&]() -> std::unique_ptr<StreamCore> {
    CMapSort& map = core->streamMap;
    if (core->sortEnabled) map.Sort(core->sortDescending);
    if (map.Count() == 0) return Fail(ErrorCode::kNotFound), nullptr;
    if (core->sortEnabled) {
      cookie = SortedNext(map, 0);
      return OpenEntry(core, map.SortedAt(0), flags);
    }
    const CMapSort::EntryId first = map.First();
    cookie = map.Next(first);
    return OpenEntry(core, map.At(first), flags);
  });
}

aoStream* aoStorage::OpenStreamNext(StreamCookie& cookie, std::uint32_t flags) {
  return StreamMaker::Make("aoStorage::OpenStreamNext", [&]() -> std::unique_ptr<StreamCore> {
    CMapSort& map = core->streamMap;
    if (cookie == (core->sortEnabled ? kSortedEnd : kUnsortedEnd))
      return Fail(ErrorCode::kNotFound), nullptr;
    if (core->sortEnabled) {
      if (cookie < 0 || static_cast<std::size_t>(cookie) >= map.SortedCount()) {
        cookie = kSortedEnd;
        return Fail(ErrorCode::kNotFound), nullptr;
      }
      const auto entry = map.SortedAt(cookie);
      cookie = SortedNext(map, cookie);
      return OpenEntry(core, entry, flags);
    }
    const auto entry = map.At(cookie);
    if (!entry) {
      cookie = kUnsortedEnd;
      return Fail(ErrorCode::kNotFound), nullptr;
    }
    cookie = map.Next(cookie);
    return OpenEntry(core, entry, flags);
  });
}

aoStream* aoStorage::OpenStreamFirst(std::uint32_t flags) {
  return StreamMaker::Make("aoStorage::OpenStreamFirst",
                           [&] { return RootStreams(core).OpenFirstSlot(flags); });
}

aoStream* aoStorage::OpenStreamFirst2(int& position, std::uint32_t flags) {
  return StreamMaker::Make("aoStorage::OpenStreamFirst2", [&]() -> std::unique_ptr<StreamCore> {
    std::vector<std::string>& names = core->streamNames;
    names.clear();
    DirectoryBlock block;
    for (DirectoryWalk walk(core->directory.FirstOffset());;) {
      if (!walk.Read(core->file, block)) return nullptr;
      for (std::uint32_t i = 0; i < block.SlotCount(); ++i) {
        const tag_aoStream header = block.Slot(i);
        if (detail::IsInUse(header) && detail::HasTerminatedName(header))
          names.emplace_back(header.name);
      }
      if (block.NextDirectory() == 0) break;
      if (!walk.Step(core->file, block.NextDirectory())) return nullptr;
    }
    if (names.empty()) return Fail(ErrorCode::kNotFound), nullptr;
    position = 0;
    return RootStreams(core).Open(names.front().c_str(), flags);
  });
}

aoStream* aoStorage::OpenStreamNext2(int& position, std::uint32_t flags) {
  return StreamMaker::Make("aoStorage::OpenStreamNext2", [&]() -> std::unique_ptr<StreamCore> {
    const std::vector<std::string>& names = core->streamNames;
    if (position < 0) return Fail(ErrorCode::kBadArgument), nullptr;
    if (static_cast<std::size_t>(position) + 1 >= names.size())
      return Fail(ErrorCode::kNotFound), nullptr;
    ++position;
    return RootStreams(core).Open(names[static_cast<std::size_t>(position)].c_str(), flags);
  });
}

int aoStorage::IterateSortedStreamsNoOPENS(CIterateSortedStreams* iteration) {
  return Guarded("aoStorage::IterateSortedStreamsNoOPENS", 0, [&] {
    if (iteration == nullptr) return Fail(ErrorCode::kBadArgument), 0;
    CMapSort& map = core->streamMap;
    if (iteration->firstCall != 0) {
      iteration->firstCall = 0;
      map.Sort(iteration->descending != 0);
      iteration->nextIndex = 0;
      if (map.SortedCount() == 0) return Fail(ErrorCode::kNotFound), 0;
    }
    const auto entry = map.SortedAt(iteration->nextIndex);
    if (!entry) return Fail(ErrorCode::kNotFound), 0;
    iteration->streamName = entry->name;
    iteration->streamOffset = entry->locator;
    iteration->nextIndex = static_cast<int>(SortedNext(map, iteration->nextIndex));
    SettleDuration(map, *iteration);
    return 1;
  });
}

aoStream* aoStorage::FindRootStorage(const char* name) {
  return FindRoot("aoStorage::FindRootStorage", *this, name, kReadFlags, true);
}

aoStream* aoStorage::FindRootStorageWrite(const char* name) {
  return FindRoot("aoStorage::FindRootStorageWrite", *this, name, kWriteFlags, true);
}

aoStream* aoStorage::FindRootStream(const char* name) {
  return FindRoot("aoStorage::FindRootStream", *this, name, kReadFlags, false);
}

std::uint32_t aoStorage::GetSubfolderCount(const char* name) {
  return Guarded<std::uint32_t>("aoStorage::GetSubfolderCount", 0, [&]() -> std::uint32_t {
    const auto folder = RootStreams(core).Open(name, kReadFlags, StreamCore::Sharing::kMomentary);
    if (folder == nullptr) return 0;
    if (!folder->IsFolder()) return Fail(ErrorCode::kWrongKind), 0;
    std::array<std::uint8_t, detail::FolderPayload::kCountSize> count{};
    if (folder->Read(count.data(), count.size()) != count.size())
      return Fail(ErrorCode::kBehindEnd), 0;
    return detail::Load32(count.data());
  });
}

}  // namespace aostorage
