// From slash-separated paths to streams.
//
// A path names a stream from the root down. One leading and one trailing slash add nothing. Names
// may hold slashes themselves. Where the names between the slashes lead nowhere, the longest run of
// them that is a name is taken at each level: a root stream called "a/b" is found as "a/b" even
// when there is a folder "a", unless that holds a "b".
#ifndef AOSTORAGE_TOOLS_PATHS_H_
#define AOSTORAGE_TOOLS_PATHS_H_

#include <cstdint>
#include <string>

#include "store.h"
#include "trail.h"

namespace aotool {

// What a path leads to. The order of the members is that of the owners.
struct Target {
  explicit Target(aostorage::aoStorage& storage) : parents({&storage, nullptr}) {}

  Trail parents;
  std::string name;
  StreamPtr stream;
};

// The path of a target, for messages.
std::string PathOf(const Target& target);

// True when `inner` is `outer` or lies in it, by their names.
bool LiesIn(const Target& inner, const Target& outer);

// True for "" and "/".
bool IsRoot(const std::string& path);

// Opens the stream at `path`.
Result Locate(const std::string& path, std::uint32_t flags, Target& target);

// As Locate, but a missing stream is no failure when its folder is there and its name is usable:
// then `target.stream` is null and a stream may be made in `target.parents`.
Result LocateForCreation(const std::string& path, Target& target);

// Where a copy of a stream called `name` goes: as LocateForCreation, but an empty path and one that
// ends in a slash name the folder that takes it under this name.
Result LocateGoal(const std::string& path, const std::string& name, Target& target);

// Removes what an ordinary path names. False when that failed, or slashes belong to names.
bool RemoveAt(const std::string& path, aostorage::aoStorage& storage);

// Locate for a plain stream, for reading.
Result LocatePlain(const std::string& path, Target& target);

// Opens the folder `name` below `trail` and makes it when it is missing.
Result EnterFolder(Trail& trail, const std::string& name);

// Opens the folder at `path` and makes whatever is missing of it. `trail` starts at the root.
Result EnterPath(const std::string& path, Trail& trail);

// What keeps `name` from being given to a stream.
Result CheckName(const std::string& name);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_PATHS_H_
