#include "walk.h"

#include <cstddef>
#include <utility>

#include <aostorage/error.h>
#include <aostorage/types.h>

#include "interrupt.h"

namespace aotool {
namespace {

constexpr std::uint32_t kBehindFirstBlock =
    sizeof(aostorage::tag_aoStream) - offsetof(aostorage::tag_aoStream, firstBlock);

}  // namespace

TreeWalk::TreeWalk(Place start) {
  levels.emplace_back();
  levels.back().place = start;
  if (start.folder == nullptr) rootNames = RootNames(*start.storage);
}

TreeWalk::~TreeWalk() {
  current.reset();
  while (!levels.empty()) levels.pop_back();
}

TreeWalk::Event TreeWalk::Next() {
  if (enter) Enter();
  current.reset();
  if (levels.empty() || interrupted) return Event::kEnd;
  if (Interrupted()) return GiveUp();
  Level& level = levels.back();
  return level.place.folder == nullptr ? NextRootStream() : NextChild(level);
}

void TreeWalk::Enter() {
  enter = false;
  Level level;
  level.place = {levels.front().place.storage, current.get()};
  level.owned = std::move(current);
  level.name = name;
  levels.push_back(std::move(level));
  folderPath += name + "/";
}

TreeWalk::Event TreeWalk::Leave() {
  name = levels.back().name;
  levels.pop_back();
  if (levels.empty()) return Event::kEnd;
  folderPath.resize(folderPath.size() - name.size() - 1);
  return Event::kLeave;
}

TreeWalk::Event TreeWalk::NextRootStream() {
  if (nextRoot == rootNames.size()) return Leave();
  name = rootNames[nextRoot++];
  aostorage::ClearLastError();
  current = levels.back().place.Open(name, aostorage::kReadFlags);
  return current ? Found() : Failed(FromLibrary());
}

TreeWalk::Event TreeWalk::NextChild(Level& level) {
  if (level.ended) return Leave();
  aostorage::aoStream& folder = *level.place.folder;
  aostorage::ClearLastError();
  current.reset(level.started ? folder.OpenStreamNext(level.cookie, aostorage::kReadFlags)
                              : folder.OpenStreamFirst(level.cookie, aostorage::kReadFlags));
  level.started = true;
  if (!current) {
    level.ended = true;
    if (NameIsMissing()) return Leave();  // the end
    name.clear();
    return Failed(FromLibrary());
  }
  name = current->GetName();
  if (current->IsFolder() == 1 && MetBefore(level)) {
    current.reset();
    return Failed({kDamaged, "this folder's data belongs to another folder as well"});
  }
  return Found();
}

TreeWalk::Event TreeWalk::Found() {
  enter = current->IsFolder() == 1;
  return enter ? Event::kFolder : Event::kStream;
}

TreeWalk::Event TreeWalk::Failed(Result reason) {
  failure = std::move(reason);
  return Event::kFailed;
}

TreeWalk::Event TreeWalk::GiveUp() {
  interrupted = true;
  name.clear();
  folderPath.clear();
  return Failed(Interruption());
}

// Looks at the record that the walk has just passed, because a search by name would find the first
// of two children of one name. A root folder has no such record: one that is met again below itself
// is seen at the second time.
bool TreeWalk::MetBefore(Level& level) {
  aostorage::aoStream& folder = *level.place.folder;
  std::uint32_t firstBlock = 0;
  if (level.cookie < kBehindFirstBlock || folder.Seek(level.cookie - kBehindFirstBlock, 0) != 0) {
    return false;
  }
  folder >> firstBlock;
  return firstBlock != 0 && !entered.insert(firstBlock).second;
}

std::vector<std::string> RootNames(aostorage::aoStorage& storage) {
  std::vector<std::string> names;
  aostorage::CIterateSortedStreams scan;
  while (storage.IterateSortedStreamsNoOPENS(&scan) == 1) names.push_back(scan.streamName);
  return names;
}

}  // namespace aotool
