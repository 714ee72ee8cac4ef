// Renaming streams and vacating their slots.
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "folder/child_streams.h"
#include "platform/last_error.h"

namespace aostorage::detail {

namespace {

// The name in the record. Another object may have given it, so that this one still goes by an old
// name.
const char* NameOnDisk(const StreamCore& stream) {
  return stream.Shared() != nullptr ? stream.Shared()->OnDisk().name : stream.Header().name;
}

// Takes the names that lead to this stream out of the map: its own, and one that another object
// gave it. A name that leads to another slot by now is not this stream's any more.
bool LeaveMap(StreamCore& stream) {
  CMapSort& map = stream.Storage().streamMap;
  const auto remove = [&](const char* name) {
    tag_aoStreamOffset locator;
    return map.Lookup(name, locator) && locator.headerOffset == stream.Locator().headerOffset &&
           map.Remove(name);
  };
  const bool wasThere = remove(stream.Header().name);
  const char* const onDisk = NameOnDisk(stream);
  return (std::strcmp(onDisk, stream.Header().name) != 0 && remove(onDisk)) || wasThere;
}

// A child that was opened by its locator as if it were a root stream: no index knows of it.
bool IsStrayChild(const StreamCore& stream) {
  return !stream.IsChild() && stream.Locator().directoryOffset == 0;
}

// As VacateSlot, but where the record cannot be written, what is known of its folder stays: nobody
// knows by then whether it is true.
bool Vacate(StreamCore& stream, StreamCore::Sharing sharing) {
  StorageCore& storage = stream.Storage();
  const std::string name = NameOnDisk(stream);
  if (sharing == StreamCore::Sharing::kLasting) stream.CloseInRegistry();
  if (stream.IsRemoved())
    return true;  // through another object; the slot may be somebody else's by now
  if (!stream.IsChild()) LeaveMap(stream);
  if (!stream.WriteVacated()) return false;
  if (IsStrayChild(stream)) storage.ForgetIndexes();
  if (!stream.IsChild()) storage.directory.SlotVacated(stream.Locator());
  stream.ChangeFolderIndex(
      [&](FolderIndex& index) { index.SlotVacated(stream.SlotIndex(), name); });
  return true;
}

}  // namespace

bool RenameStream(StreamCore& stream, const char* newName) {
  StorageCore& storage = stream.Storage();
  const std::string oldName = stream.Header().name, nameOnDisk = NameOnDisk(stream);
  // All that takes memory comes before the file is changed.
  std::string cutName(std::string_view(newName).substr(0, kMaxNameLength));
  std::string key = cutName;
  const bool inMap = !stream.IsChild() && !IsStrayChild(stream);
  if (inMap) storage.streamMap.MakeRoom();
  const bool wasThere = inMap && LeaveMap(stream);
  const bool written = stream.WriteName(cutName);
  if (inMap && (written || wasThere)) {
    tag_aoStreamOffset locator = stream.Locator();
    locator.durationSeconds = DurationSeconds(stream.Header());
    storage.streamMap.Store(written ? cutName : oldName, locator);
  } else if (IsStrayChild(stream)) {
    storage.ForgetIndexes();
  }
  if (!written) {
    stream.ForgetFolderIndex();
    return false;
  }
  stream.ChangeFolderIndex(
      [&](FolderIndex& index) { index.SlotRenamed(stream.SlotIndex(), nameOnDisk, cutName); });
  stream.OwningRegistry().Rename(oldName, std::move(cutName), std::move(key));
  return true;
}

bool VacateSlot(StreamCore& stream, StreamCore::Sharing sharing) {
  if (Vacate(stream, sharing)) return true;
  stream.ForgetFolderIndex();
  return false;
}

bool RemoveWhole(StreamCore& stream) {
  if (stream.IsFolder() && !stream.IsRemoved() && !RemoveChildren(stream)) return false;
  return VacateSlot(stream, StreamCore::Sharing::kLasting);
}

bool RemoveChildren(StreamCore& top) {
  using Sharing = StreamCore::Sharing;
  struct Level {
    Level(StreamCore* openFolder, std::unique_ptr<StreamCore> folderOwned)
        : folder(openFolder), owned(std::move(folderOwned)) {}
    Level(Level&&) = default;
    Level& operator=(Level&&) = delete;
    ~Level() {
      if (owned != nullptr) owned->CloseInRegistry();  // left behind
    }
    StreamCore* folder;
    std::unique_ptr<StreamCore> owned;  // null at the top
    std::uint32_t slotIndex = 0;
    bool started = false;
  };
  std::vector<Level> levels;
  // Of the deepest folder: what its scan has read ahead serves the steps that follow.
  std::optional<ChildStreams> children;
  std::uint64_t walked = 0;  // by those before
  const auto leaveChildren = [&] {
    walked += children->BytesWalked();
    children.reset();
  };
  const auto leaveAll = [&] {
    leaveChildren();
    while (!levels.empty()) levels.pop_back();  // the deepest first
    return false;
  };
  // Forgets what is known of the folders once and at the end, however many records could not be
  // written: each of them would have its folder read again from the start.
  struct Unwritten {
    explicit Unwritten(StorageCore& of) : storage(of) {}
    ~Unwritten() {
      if (any) storage.ForgetIndexes();
    }
    StorageCore& storage;
    bool any = false;
  } unwritten(top.Storage());
  // Folders may share their chains, each with many others: that the work ends is not enough.
  const std::uint64_t room = top.Storage().file.Size().value_or(0) * kMostRounds;
  levels.emplace_back(&top, nullptr);
  while (!levels.empty()) {
    if (levels.size() == levels.capacity())
      levels.reserve(2 * levels.size());  // before anything is opened
    Level& level = levels.back();
    std::unique_ptr<StreamCore> child;
    if (!children) children.emplace(*level.folder);
    Attempt walking;
    const ChildStreams::Walk step = children->OpenNext(level.slotIndex, !level.started, kWriteFlags,
                                                       child, Sharing::kMomentary);
    if (step == ChildStreams::Walk::kCutOff && children->IsUnbegun()) walking.Forget();
    level.started = true;
    if (walked + children->BytesWalked() > room) {
      Fail(ErrorCode::kContradiction, level.folder->Locator().headerOffset);
      return leaveAll();
    }
    if (step == ChildStreams::Walk::kLeadsBack) return leaveAll();
    if (step == ChildStreams::Walk::kOpened && child->IsFolder()) {
      leaveChildren();
      StreamCore* folder = child.get();
      levels.emplace_back(folder, std::move(child));
    } else if (step == ChildStreams::Walk::kOpened) {
      // A child whose slot cannot be rewritten stays behind; its folder goes all the same.
      unwritten.any = !Vacate(*child, Sharing::kMomentary) || unwritten.any;
    } else {
      leaveChildren();
      const std::unique_ptr<StreamCore> done = std::move(level.owned);
      levels.pop_back();
      if (done != nullptr) unwritten.any = !Vacate(*done, Sharing::kLasting) || unwritten.any;
    }
  }
  return true;
}

}  // namespace aostorage::detail
