// cp

#include <sys/stat.h>

#include <string>

#include <aostorage/types.h>

#include "files.h"
#include "paths.h"
#include "store.h"
#include "tree_copy.h"
#include "verbs.h"

namespace aotool {
namespace {

struct StorePath {
  std::string store, path;
};

bool IsFile(const std::string& path) {
  struct stat state {};
  return ::stat(path.c_str(), &state) == 0 && S_ISREG(state.st_mode);
}

// Names of files and of streams may hold colons, so the first one that has a file on its left
// counts, and where none has, the first one.
Result Split(const std::string& text, StorePath& parts) {
  const std::size_t first = text.find(':', 1);
  if (first == std::string::npos) return {kFailure, "names no store: STORE:PATH is needed"};
  std::size_t colon = first;
  while (colon != std::string::npos && !IsFile(text.substr(0, colon))) {
    colon = text.find(':', colon + 1);
  }
  if (colon == std::string::npos) colon = first;
  parts = {text.substr(0, colon), text.substr(colon + 1)};
  return {};
}

// What keeps the source from being copied to the goal. `oneStore` says that both lie in the same.
Result CheckGoal(const CopyTreeOptions& options, const Target& source, const Target& goal,
                 bool oneStore) {
  if (oneStore && LiesIn(goal, source)) {
    return {kFailure, goal.stream && LiesIn(source, goal) ? "is what is to be copied"
                                                          : "lies in what is to be copied"};
  }
  if (!goal.stream) return {};
  const bool isFolder = goal.stream->IsFolder() == 1;
  if (isFolder != (source.stream->IsFolder() == 1)) {
    return {kFailure, isFolder ? "is a folder (a slash at its end copies into it)"
                               : "is a plain stream: no folder can take its place"};
  }
  if (isFolder && !options.merge) return {kFailure, "exists already (--merge copies into it)"};
  if (!isFolder && !options.force) return {kFailure, "exists already (--force replaces it)"};
  if (oneStore && LiesIn(source, goal)) return {kFailure, "holds what is to be copied"};
  return {};
}

Result CopyTo(Target& goal, aostorage::aoStream& source, const std::string& fromStore,
              Report& report) {
  const bool isThere = goal.stream != nullptr;
  goal.stream.reset();
  TreeCopy copy(report, "copying", SizeOfFile(fromStore));
  return isThere ? copy.CopyOver(source, goal.parents.Bottom(), goal.name)
                 : copy.Copy(source, goal.parents.Bottom(), goal.name);
}

}  // namespace

void CopyTree(const CopyTreeOptions& options, Report& report) {
  StorePath from;
  StorePath to;
  if (Result result = Split(options.from, from); !result.Ok()) {
    return report.Fail(options.from, result);
  }
  if (Result result = Split(options.to, to); !result.Ok()) return report.Fail(options.to, result);
  const bool oneStore = FileIdentity::At(from.store) == FileIdentity::At(to.store);

  report.SpeakOf(from.store);
  const StoragePtr first = oneStore ? OpenForWriting(from.store, options.reserve, report)
                                    : OpenForReading(from.store, report);
  if (!first) return;
  Target source(*first);
  Result result = Locate(from.path, aostorage::kReadFlags, source);
  if (!result.Ok() && IsRoot(from.path)) {
    result = {kFailure, "the root cannot be copied, only what is in it"};
  }
  if (!result.Ok()) return report.Fail(from.path, result);

  report.SpeakOf(to.store);
  const StoragePtr second = oneStore ? nullptr : OpenForWriting(to.store, options.reserve, report);
  if (!oneStore && !second) return;
  Target goal(oneStore ? *first : *second);
  result = LocateGoal(to.path, source.name, goal);
  if (!result.Ok()) return report.Fail(to.path, result);
  result = CheckGoal(options, source, goal, oneStore);
  if (result.Ok()) {
    result = CopyTo(goal, *source.stream, from.store, report);
    if (!result.Ok()) result.reason = "copying '" + Shown(options.from) + "': " + result.reason;
  }
  if (!result.Ok()) report.Fail(PathOf(goal), result);
}

}  // namespace aotool
