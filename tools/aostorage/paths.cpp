#include "paths.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include <aostorage/error.h>
#include <aostorage/types.h>

namespace aotool {
namespace {

Result NotFound(const std::string& what) { return {kNotFound, what}; }

// Opens what the path names where each slash stands between two names.
bool LocateOrdinary(std::string_view path, std::uint32_t flags, Target& target) {
  const std::size_t slash = path.rfind('/');
  const bool isAtRoot = slash == std::string_view::npos;
  if (!isAtRoot && !target.parents.Walk(std::string(path.substr(0, slash)), flags)) return false;
  target.name = path.substr(isAtRoot ? 0 : slash + 1);
  target.stream = target.parents.Bottom().Open(target.name, flags);
  return target.stream != nullptr;
}

// Opens what the longest usable run of components of `rest` names in `place`. `used` receives the
// length of the run; the stream is null when there is none.
Result OpenLongestRun(Place place, std::string_view rest, std::uint32_t flags, std::size_t& used,
                      StreamPtr& stream) {
  std::string plainInTheWay;
  for (used = rest.size(); used != std::string_view::npos && used != 0;
       used = rest.rfind('/', used - 1)) {
    if (used > aostorage::kMaxNameLength) continue;
    const std::string name(rest.substr(0, used));
    aostorage::ClearLastError();
    stream = place.Open(name, flags);
    if (!stream && !NameIsMissing()) return FromLibrary();
    if (stream && (used == rest.size() || stream->IsFolder() == 1)) return {};
    if (stream) plainInTheWay = name;
    stream.reset();
  }
  if (plainInTheWay.empty()) return NotFound("there is no such stream");
  return {kFailure, "'" + Shown(plainInTheWay) + "' on the way is no folder"};
}

// Opens what the path names where slashes may belong to names.
Result Descend(std::string_view rest, std::uint32_t flags, Target& target) {
  for (;;) {
    std::size_t used = 0;
    StreamPtr stream;
    if (Result result = OpenLongestRun(target.parents.Bottom(), rest, flags, used, stream);
        !result.Ok()) {
      return result;
    }
    const std::string name(rest.substr(0, used));
    if (used == rest.size()) {
      target.name = name;
      target.stream = std::move(stream);
      return {};
    }
    target.parents.Push(name, std::move(stream));
    rest.remove_prefix(used + 1);
  }
}

// Without the slashes at both ends that add nothing.
std::string_view Trimmed(std::string_view path) {
  if (!path.empty() && path.front() == '/') path.remove_prefix(1);
  if (!path.empty() && path.back() == '/') path.remove_suffix(1);
  return path;
}

// Goes down into a folder that is there.
Result EnterExisting(std::string_view path, Target& target) {
  if (target.parents.Walk(std::string(path), aostorage::kWriteFlags)) return {};
  Result result = Descend(path, aostorage::kWriteFlags, target);
  const std::string folder = "'" + Shown(path) + "'";
  if (result.code == kNotFound) return NotFound("there is no folder " + folder);
  if (!result.Ok()) return result;
  if (target.stream->IsFolder() != 1) return {kFailure, folder + " is no folder"};
  target.parents.Push(target.name, std::move(target.stream));
  return {};
}

// Makes all folders of a path of which nothing is there.
Result MakeFolders(Place place, std::string_view path) {
  for (const std::string& name : SplitPath(path)) {
    if (Result result = CheckName(name); !result.Ok()) return result;
  }
  const std::string way(path);
  aostorage::CPathLoader maker;
  aostorage::ClearLastError();
  return (place.folder != nullptr ? maker.GetSubStreamByPath(place.folder, way, 1, 1)
                                  : maker.GetStreamByPath(place.storage, way, 1, 1)) != nullptr
             ? Result{}
             : FromLibrary();
}

void Clear(Target& target) {
  target.stream.reset();
  target.parents.Reset();
}

}  // namespace

std::string PathOf(const Target& target) {
  std::string path;
  for (const std::string& parent : target.parents.Names()) path += parent + "/";
  return path + target.name;
}

bool LiesIn(const Target& inner, const Target& outer) {
  std::vector<std::string> innerNames = inner.parents.Names();
  innerNames.push_back(inner.name);
  std::vector<std::string> outerNames = outer.parents.Names();
  outerNames.push_back(outer.name);
  return innerNames.size() >= outerNames.size() &&
         std::equal(outerNames.begin(), outerNames.end(), innerNames.begin());
}

bool IsRoot(const std::string& path) { return Trimmed(path).empty(); }

Result Locate(const std::string& path, std::uint32_t flags, Target& target) {
  if (path.empty()) return {kFailure, "the path is empty"};
  const std::string_view trimmed = Trimmed(path);
  if (LocateOrdinary(trimmed, flags, target)) return {};
  Clear(target);
  // First as it stands: a root stream's name may begin or end with a slash.
  Result result = Descend(path, flags, target);
  if (result.code != kNotFound) return result;
  Clear(target);
  return trimmed.size() == path.size() ? result : Descend(trimmed, flags, target);
}

Result LocateForCreation(const std::string& path, Target& target) {
  Result result = Locate(path, aostorage::kWriteFlags, target);
  if (result.code != kNotFound) return result;

  Clear(target);
  const std::string_view trimmed = Trimmed(path);
  const std::size_t slash = trimmed.rfind('/');
  const std::string name(slash == std::string_view::npos ? trimmed : trimmed.substr(slash + 1));
  if (result = CheckName(name); !result.Ok()) return result;
  target.name = name;
  if (slash == std::string_view::npos) return {};

  if (result = EnterExisting(trimmed.substr(0, slash), target); !result.Ok()) return result;
  target.name = name;
  return {};
}

Result LocateGoal(const std::string& path, const std::string& name, Target& target) {
  if (!path.empty() && path.back() != '/') return LocateForCreation(path, target);
  if (Result result = CheckName(name); !result.Ok()) return result;
  if (!IsRoot(path)) {
    if (Result result = EnterExisting(Trimmed(path), target); !result.Ok()) return result;
  }
  target.name = name;
  aostorage::ClearLastError();
  target.stream = target.parents.Bottom().Open(name, aostorage::kWriteFlags);
  return target.stream || NameIsMissing() ? Result{} : FromLibrary();
}

bool RemoveAt(const std::string& path, aostorage::aoStorage& storage) {
  const std::string trimmed(Trimmed(path));
  return !trimmed.empty() && trimmed.back() != '/' &&
         aostorage::CPathLoader().DeleteStreamByPath(&storage, trimmed) == 1;
}

Result LocatePlain(const std::string& path, Target& target) {
  Result result = Locate(path, aostorage::kReadFlags, target);
  if (result.Ok() && target.stream->IsFolder() == 1) return {kFailure, "is a folder"};
  return result;
}

Result EnterFolder(Trail& trail, const std::string& name) {
  if (Result result = CheckName(name); !result.Ok()) return result;
  const Place place = trail.Bottom();
  aostorage::ClearLastError();
  StreamPtr folder = place.Open(name, aostorage::kWriteFlags);
  if (!folder) {
    if (!NameIsMissing()) return FromLibrary();
    folder = place.Create(name, aostorage::PackKind(true));
    if (!folder) return FromLibrary();
  }
  if (folder->IsFolder() != 1) return {kFailure, "a plain stream of that name is in the way"};
  trail.Push(name, std::move(folder));
  return {};
}

Result EnterPath(const std::string& path, Trail& trail) {
  std::string_view rest = Trimmed(path);
  if (trail.Walk(std::string(rest), aostorage::kWriteFlags)) return {};
  bool made = false;
  while (!rest.empty()) {
    std::size_t used = 0;
    StreamPtr folder;
    Result result = OpenLongestRun(trail.Bottom(), rest, aostorage::kWriteFlags, used, folder);
    if (result.code == kNotFound && !made) {
      if (result = MakeFolders(trail.Bottom(), rest); !result.Ok()) return result;
      made = true;
      continue;
    }
    if (!result.Ok()) return result;
    if (folder->IsFolder() != 1) return {kFailure, "is no folder"};
    trail.Push(std::string(rest.substr(0, used)), std::move(folder));
    rest.remove_prefix(std::min(used + 1, rest.size()));
  }
  return {};
}

Result CheckName(const std::string& name) {
  if (name.empty()) return {kFailure, "a name on the path is empty"};
  if (name.size() > aostorage::kMaxNameLength) {
    return {kFailure, "the name '" + Shown(name) + "' is longer than " +
                          std::to_string(aostorage::kMaxNameLength) + " bytes"};
  }
  return {};
}

}  // namespace aotool
