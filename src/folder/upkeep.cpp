// Renaming streams and vacating their slots.
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "folder/child_streams.h"
#include "platform/last_error.h"

namespace aostorage::detail {

bool RenameStream(StreamCore& stream, const char* newName) {
  StorageCore& storage = stream.Storage();
  const std::string oldName = stream.Header().name;
  // All that takes memory comes before the file is changed.
  std::string cutName(std::string_view(newName).substr(0, kMaxNameLength));
  std::string key = cutName;
  if (!stream.IsChild()) storage.streamMap.MakeRoom();
  if (!stream.WriteName(cutName)) {
    stream.ForgetFolderIndex();
    return false;
  }
  if (stream.IsChild()) {
    stream.ChangeFolderIndex(
        [&](FolderIndex& index) { index.SlotRenamed(stream.SlotIndex(), oldName, cutName); });
  } else {
    tag_aoStreamOffset locator = stream.Locator();
    locator.durationSeconds = DurationSeconds(stream.Header());
    storage.streamMap.Remove(oldName);
    storage.streamMap.Store(cutName, locator);
  }
  stream.OwningRegistry().Rename(oldName, std::move(cutName), std::move(key));
  return true;
}

bool VacateSlot(StreamCore& stream, StreamCore::Sharing sharing) {
  StorageCore& storage = stream.Storage();
  const std::string name = stream.Header().name;
  if (sharing == StreamCore::Sharing::kLasting) stream.CloseInRegistry();
  if (!stream.IsChild()) storage.streamMap.Remove(name);
  if (stream.IsRemoved())
    return true;  // through another object; the slot may be somebody else's by now
  if (!stream.WriteVacated()) {
    stream.ForgetFolderIndex();
    return false;
  }
  if (stream.IsChild()) {
    stream.ChangeFolderIndex(
        [&](FolderIndex& index) { index.SlotVacated(stream.SlotIndex(), name); });
  } else {
    storage.directory.SlotVacated(stream.Locator());
  }
  return true;
}

bool RemoveChildren(StreamCore& top) {
  using Sharing = StreamCore::Sharing;
  struct Level {
    StreamCore* folder;
    std::unique_ptr<StreamCore> owned;  // null at the top
    std::uint32_t slotIndex = 0;
    bool started = false;
  };
  std::vector<Level> levels;
  levels.push_back({&top, nullptr});
  bool endless = false;
  while (!levels.empty()) {
    Level& level = levels.back();
    std::unique_ptr<StreamCore> child;
    ChildStreams::Walk step = ChildStreams::Walk::kEnd;
    if (!endless) {
      step =
          ChildStreams(*level.folder)
              .OpenNext(level.slotIndex, !level.started, kWriteFlags, child, Sharing::kMomentary);
    }
    level.started = true;
    endless = endless || step == ChildStreams::Walk::kLeadsBack;
    if (step == ChildStreams::Walk::kOpened && child->IsFolder()) {
      StreamCore* folder = child.get();
      levels.push_back({folder, std::move(child)});
    } else if (step == ChildStreams::Walk::kOpened) {
      // A child whose slot cannot be rewritten stays behind; its folder goes all the same.
      static_cast<void>(VacateSlot(*child, Sharing::kMomentary));
    } else {
      const std::unique_ptr<StreamCore> done = std::move(level.owned);
      levels.pop_back();
      if (done != nullptr && endless) {
        done->CloseInRegistry();
      } else if (done != nullptr) {
        static_cast<void>(VacateSlot(*done, Sharing::kLasting));
      }
    }
  }
  return !endless;
}

}  // namespace aostorage::detail
