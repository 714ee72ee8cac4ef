// mkdir, mv

#include <string>

#include <aostorage/error.h>
#include <aostorage/types.h>

#include "files.h"
#include "paths.h"
#include "store.h"
#include "tree_copy.h"
#include "verbs.h"

namespace aotool {
namespace {

Result MakeFolder(const std::string& path, aostorage::aoStorage& storage) {
  Target target(storage);
  if (Result result = LocateForCreation(path, target); !result.Ok()) return result;
  if (target.stream) return {kFailure, "exists already"};
  aostorage::ClearLastError();
  return target.parents.Bottom().Create(target.name, aostorage::PackKind(true)) ? Result{}
                                                                                : FromLibrary();
}

Result RenameTo(Target& source, const std::string& newName) {
  aostorage::ClearLastError();
  return source.stream->Rename(newName.c_str()) ? Result{} : FromLibrary();
}

Result RenameBeside(Target& source, const std::string& newName) {
  if (Result result = CheckName(newName); !result.Ok()) return result;
  aostorage::ClearLastError();
  if (source.parents.Bottom().Open(newName, aostorage::kReadFlags)) {
    return {kFailure, "'" + Shown(newName) + "' exists already"};
  }
  if (!NameIsMissing()) return FromLibrary();
  return RenameTo(source, newName);
}

Result MoveTo(Target& source, const std::string& path, aostorage::aoStorage& storage,
              Report& report) {
  Target goal(storage);
  if (Result result = LocateGoal(path, source.name, goal); !result.Ok()) {
    return {result.code, "'" + Shown(path) + "': " + result.reason};
  }
  if (goal.stream) return {kFailure, "'" + Shown(PathOf(goal)) + "' exists already"};
  if (goal.parents.Names() == source.parents.Names()) return RenameTo(source, goal.name);
  if (LiesIn(goal, source)) return {kFailure, "cannot be moved into itself"};
  TreeCopy copy(report, "moving", SizeOfFile(storage.GetPath()));
  Result result = copy.Copy(*source.stream, goal.parents.Bottom(), goal.name);
  if (!result.Ok()) return result;
  result = Remove(source.stream);
  if (!result.Ok()) result.reason = "is copied, but cannot be removed: " + result.reason;
  return result;
}

}  // namespace

void Mkdir(const MkdirOptions& options, Report& report) {
  const StoragePtr storage = OpenForWriting(options.store, 0, report);
  if (!storage) return;
  Trail trail({storage.get(), nullptr});
  Result result =
      options.parents ? EnterPath(options.path, trail) : MakeFolder(options.path, *storage);
  if (!result.Ok()) report.Fail(options.path, result);
}

void Move(const MoveOptions& options, Report& report) {
  const StoragePtr storage = OpenForWriting(options.store, options.reserve, report);
  if (!storage) return;
  Target source(*storage);
  Result result = Locate(options.path, aostorage::kWriteFlags, source);
  if (result.Ok()) {
    result = options.to.find('/') == std::string::npos
                 ? RenameBeside(source, options.to)
                 : MoveTo(source, options.to, *storage, report);
  }
  if (!result.Ok()) report.Fail(options.path, result);
}

}  // namespace aotool
