// mkdir, mv

#include <algorithm>
#include <string>
#include <utility>

#include <aostorage/error.h>
#include <aostorage/types.h>

#include "paths.h"
#include "store.h"
#include "transfer.h"
#include "verbs.h"
#include "walk.h"

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

constexpr const char* kChanges = "what it holds changes while it is copied";

// Copies a stream, or a folder with all it holds, under another name or to another folder. All of
// it is read back from the store before the copy counts as done.
class TreeCopy {
 public:
  TreeCopy(aostorage::aoStorage& ofStorage, Report& toReport)
      : storage(ofStorage),
        report(toReport),
        transfer([this](std::uint64_t size) { bytes += size; }) {}

  // A copy that failed is removed again. `name` is free in `to`.
  Result Copy(aostorage::aoStream& source, Place to, const std::string& name) {
    Result result =
        source.IsFolder() == 1 ? CopyFolder(source, to, name) : CopyPlain(source, to, name);
    if (result.Ok()) return result;
    aostorage::ClearLastError();
    StreamPtr partial = to.Open(name, aostorage::kWriteFlags);
    if (partial && !Remove(partial).Ok()) result.reason += "; an incomplete copy is left";
    return result;
  }

 private:
  static std::uint32_t KindOf(const aostorage::aoStream& stream) {
    return aostorage::PackKind(stream.IsFolder() == 1, stream.GetDuration());
  }

  Result CopyPlain(aostorage::aoStream& source, Place to, const std::string& name) {
    aostorage::ClearLastError();
    if (const StreamPtr copy = to.Create(name, KindOf(source))) {
      if (Result result = transfer.CopyAcross(source, *copy); !result.Ok()) return result;
    } else {
      return FromLibrary();
    }
    const StreamPtr written = to.Open(name, aostorage::kReadFlags);
    if (!written) return FromLibrary();
    report.Progress("moving", ++items, bytes);
    return transfer.Compare(source, *written);
  }

  // How many streams and folders there are to copy. A folder that is damaged is not copied at all.
  Result Count(aostorage::aoStream& source, std::uint64_t& count) {
    count = 1;
    TreeWalk walk({&storage, &source});
    for (;;) {
      const TreeWalk::Event event = walk.Next();
      if (event == TreeWalk::Event::kEnd) return {};
      if (event == TreeWalk::Event::kFailed) return InFolder(walk, walk.Failure());
      if (event != TreeWalk::Event::kLeave) ++count;
      report.Progress("counting", count, 0);
    }
  }

  static Result InFolder(const TreeWalk& walk, const Result& result) {
    return {result.code, "'" + Shown(walk.Path()) + "' in it: " + result.reason};
  }

  Result CopyFolder(aostorage::aoStream& source, Place to, const std::string& name) {
    std::uint64_t expected = 0;
    if (Result result = Count(source, expected); !result.Ok()) return result;
    Trail trail(to);
    if (Result result = MakeCopyOfFolder(source, trail, name); !result.Ok()) return result;
    TreeWalk walk({&storage, &source});
    for (;;) {
      Result result;
      switch (walk.Next()) {
        case TreeWalk::Event::kStream:
          result = CopyPlain(walk.Stream(), trail.Bottom(), walk.Name());
          break;
        case TreeWalk::Event::kFolder:
          result = MakeCopyOfFolder(walk.Stream(), trail, walk.Name());
          break;
        case TreeWalk::Event::kLeave:
          trail.Pop();
          break;
        case TreeWalk::Event::kFailed:
          result = walk.Failure();
          break;
        case TreeWalk::Event::kEnd:
          return items == expected ? Result{} : Result{kDamaged, kChanges};
      }
      if (!result.Ok()) return InFolder(walk, result);
      // In a damaged store the goal can lie inside the source, which then grows as it is copied.
      if (items > expected) return {kDamaged, kChanges};
    }
  }

  Result MakeCopyOfFolder(aostorage::aoStream& source, Trail& trail, const std::string& name) {
    aostorage::ClearLastError();
    StreamPtr copy = trail.Bottom().Create(name, KindOf(source));
    if (!copy) return FromLibrary();
    trail.Push(name, std::move(copy));
    report.Progress("moving", ++items, bytes);
    return {};
  }

  aostorage::aoStorage& storage;
  Report& report;
  std::uint64_t items = 0;
  std::uint64_t bytes = 0;
  Transfer transfer;
};

bool LiesInside(const Trail& folder, const Target& source) {
  const std::vector<std::string>& inner = folder.Names();
  const std::vector<std::string>& outer = source.parents.Names();
  return inner.size() > outer.size() && std::equal(outer.begin(), outer.end(), inner.begin()) &&
         inner[outer.size()] == source.name;
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
  if (Result result = LocateForCreation(path, goal); !result.Ok()) {
    return {result.code, "'" + Shown(path) + "': " + result.reason};
  }
  if (goal.stream) return {kFailure, "'" + Shown(path) + "' exists already"};
  if (goal.parents.Names() == source.parents.Names()) return RenameTo(source, goal.name);
  if (LiesInside(goal.parents, source)) return {kFailure, "cannot be moved into itself"};
  Result result = TreeCopy(storage, report).Copy(*source.stream, goal.parents.Bottom(), goal.name);
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
    const std::string& to = options.to;
    if (to.find('/') == std::string::npos) {
      result = RenameBeside(source, to);
    } else {
      result = MoveTo(source, to.back() == '/' ? to + source.name : to, *storage, report);
    }
  }
  if (!result.Ok()) report.Fail(options.path, result);
}

}  // namespace aotool
