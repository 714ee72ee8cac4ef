// A walk over everything that a store or a folder holds.
#ifndef AOSTORAGE_TOOLS_WALK_H_
#define AOSTORAGE_TOOLS_WALK_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

#include "paths.h"
#include "store.h"

namespace aotool {

// Depth first, without recursion, each folder open as long as what is in it. Root streams come
// sorted, children in slot order. Ends on damaged stores too: a folder whose data was met before is
// not entered. An interrupt gives one kFailed with an empty name, then kEnd.
class TreeWalk {
 public:
  enum class Event {
    kStream,  // a plain stream
    kFolder,  // a folder; what it holds comes next, unless Skip is called
    kLeave,   // the end of a folder that was entered; Name and Depth are those of the folder
    kFailed,  // something could not be opened: Failure and Name, which may be empty; the walk goes
              // on
    kEnd,
  };

  explicit TreeWalk(Place start);
  TreeWalk(const TreeWalk&) = delete;
  TreeWalk& operator=(const TreeWalk&) = delete;
  ~TreeWalk();

  Event Next();
  void Skip() { enter = false; }

  // Of kStream and kFolder, its cursor at the start; open until the next event.
  aostorage::aoStream& Stream() { return *current; }
  const std::string& Name() const { return name; }
  // From the start of the walk down to Name.
  std::string Path() const { return folderPath + name; }
  // Folders between the start and Name.
  std::size_t Depth() const { return levels.size() - (levels.empty() ? 0 : 1); }
  const Result& Failure() const { return failure; }

 private:
  struct Level {
    StreamPtr owned;  // null at the start of the walk
    Place place;
    std::string name;
    std::uint32_t cookie = 0;
    bool started = false;
    bool ended = false;
  };

  void Enter();
  Event Leave();
  Event NextRootStream();
  Event NextChild(Level& level);
  Event Found();
  Event Failed(Result reason);
  Event GiveUp();
  bool MetBefore(Level& level);

  std::vector<Level> levels;
  std::vector<std::string> rootNames;
  std::size_t nextRoot = 0;
  StreamPtr current;
  bool enter = false;
  bool interrupted = false;
  std::string name;
  std::string folderPath;  // of the folder that is walked, with a slash at its end
  Result failure;
  std::unordered_set<std::uint32_t> entered;  // first blocks of folders
};

// The names of all root streams in byte order. Opens nothing.
std::vector<std::string> RootNames(aostorage::aoStorage& storage);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_WALK_H_
