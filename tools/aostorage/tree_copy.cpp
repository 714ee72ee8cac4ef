#include "tree_copy.h"

#include <unordered_set>
#include <utility>
#include <vector>

#include <aostorage/error.h>
#include <aostorage/types.h>

namespace aotool {
namespace {

constexpr const char* kChanges = "what it holds changes while it is copied";

std::uint32_t KindOf(const aostorage::aoStream& stream) {
  return aostorage::PackKind(stream.IsFolder() == 1, stream.GetDuration());
}

Result InFolder(const TreeWalk& walk, const Result& result) {
  return {result.code, "'" + Shown(walk.Path()) + "' in it: " + result.reason};
}

}  // namespace

TreeCopy::TreeCopy(Report& toReport, const char* copyVerb)
    : report(toReport), verb(copyVerb), transfer([this](std::uint64_t size) {
        bytes += size;
        report.Progress(verb, items, bytes / 2);
      }) {}

Result TreeCopy::Copy(aostorage::aoStream& source, Place to, const std::string& name) {
  Result result = CopyTree(source, to, name);
  if (result.Ok()) return result;
  aostorage::ClearLastError();
  StreamPtr partial = to.Open(name, aostorage::kWriteFlags);
  if (partial && !Remove(partial).Ok()) result.reason += "; an incomplete copy is left";
  return result;
}

Result TreeCopy::CopyOver(aostorage::aoStream& source, Place to, const std::string& name) {
  over = true;
  Result result = CopyTree(source, to, name);
  if (!result.Ok() && touched) result.reason += "; the goal may be changed in part";
  return result;
}

Result TreeCopy::CopyTree(aostorage::aoStream& source, Place to, const std::string& name) {
  return source.IsFolder() == 1 ? CopyFolder(source, to, name) : CopyPlain(source, to, name);
}

Result TreeCopy::CopyPlain(aostorage::aoStream& source, Place to, const std::string& name) {
  StreamPtr copy;
  if (Result result = Obtain(source, to, name, copy); !result.Ok()) return result;
  if (Result result = transfer.CopyAcross(source, *copy); !result.Ok()) return result;
  aostorage::ClearLastError();
  copy = to.Open(name, aostorage::kReadFlags);
  if (!copy) return FromLibrary();
  ++items;
  return transfer.Compare(source, *copy);
}

// Opens what the source is to be copied to.
Result TreeCopy::Obtain(aostorage::aoStream& source, Place to, const std::string& name,
                        StreamPtr& copy) {
  touched = true;
  aostorage::ClearLastError();
  if (over) {
    copy = to.Open(name, aostorage::kWriteFlags);
    if (!copy && !NameIsMissing()) return FromLibrary();
    if (copy && copy->IsFolder() != source.IsFolder()) {
      if (Result result = Remove(copy); !result.Ok()) return result;
    }
  }
  if (!copy) copy = to.Create(name, KindOf(source));
  return copy ? Result{} : FromLibrary();
}

Result TreeCopy::CopyFolder(aostorage::aoStream& source, Place to, const std::string& name) {
  std::uint64_t expected = 0;
  if (Result result = Count(source, expected); !result.Ok()) return result;
  Trail trail(to);
  if (Result result = EnterCopyOfFolder(source, trail, name); !result.Ok()) return result;
  TreeWalk walk({nullptr, &source});
  for (;;) {
    Result result;
    switch (walk.Next()) {
      case TreeWalk::Event::kStream:
        result = CopyPlain(walk.Stream(), trail.Bottom(), walk.Name());
        break;
      case TreeWalk::Event::kFolder:
        result = EnterCopyOfFolder(walk.Stream(), trail, walk.Name());
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
    report.Progress(verb, items, bytes / 2);
    // In a damaged store the goal can lie inside the source, which then grows as it is copied.
    if (items > expected) return {kDamaged, kChanges};
  }
}

Result TreeCopy::EnterCopyOfFolder(aostorage::aoStream& source, Trail& trail,
                                   const std::string& name) {
  StreamPtr copy;
  if (Result result = Obtain(source, trail.Bottom(), name, copy); !result.Ok()) return result;
  trail.Push(name, std::move(copy));
  ++items;
  return {};
}

// How many streams and folders there are to copy. A folder that is damaged, or has two streams of
// one name, is not copied at all.
Result TreeCopy::Count(aostorage::aoStream& source, std::uint64_t& count) {
  count = 1;
  std::vector<std::unordered_set<std::string>> names(1);  // of each folder on the way down
  TreeWalk walk({nullptr, &source});
  for (;;) {
    const TreeWalk::Event event = walk.Next();
    if (event == TreeWalk::Event::kEnd) return {};
    if (event == TreeWalk::Event::kFailed) return InFolder(walk, walk.Failure());
    if (event == TreeWalk::Event::kLeave) {
      names.pop_back();
      continue;
    }
    if (!names.back().insert(walk.Name()).second) {
      return InFolder(walk, {kFailure, "there are two of this name"});
    }
    if (event == TreeWalk::Event::kFolder) names.emplace_back();
    report.Progress("counting", ++count, 0);
  }
}

}  // namespace aotool
