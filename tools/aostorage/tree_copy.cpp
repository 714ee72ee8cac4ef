#include "tree_copy.h"

#include <utility>

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

Result TreeCopy::CopyTree(aostorage::aoStream& source, Place to, const std::string& name) {
  return source.IsFolder() == 1 ? CopyFolder(source, to, name) : CopyPlain(source, to, name);
}

Result TreeCopy::CopyPlain(aostorage::aoStream& source, Place to, const std::string& name) {
  aostorage::ClearLastError();
  if (const StreamPtr copy = to.Create(name, KindOf(source))) {
    if (Result result = transfer.CopyAcross(source, *copy); !result.Ok()) return result;
  } else {
    return FromLibrary();
  }
  const StreamPtr written = to.Open(name, aostorage::kReadFlags);
  if (!written) return FromLibrary();
  ++items;
  return transfer.Compare(source, *written);
}

Result TreeCopy::CopyFolder(aostorage::aoStream& source, Place to, const std::string& name) {
  std::uint64_t expected = 0;
  if (Result result = Count(source, expected); !result.Ok()) return result;
  Trail trail(to);
  if (Result result = MakeCopyOfFolder(source, trail, name); !result.Ok()) return result;
  TreeWalk walk({nullptr, &source});
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
    report.Progress(verb, items, bytes / 2);
    // In a damaged store the goal can lie inside the source, which then grows as it is copied.
    if (items > expected) return {kDamaged, kChanges};
  }
}

Result TreeCopy::MakeCopyOfFolder(aostorage::aoStream& source, Trail& trail,
                                  const std::string& name) {
  aostorage::ClearLastError();
  StreamPtr copy = trail.Bottom().Create(name, KindOf(source));
  if (!copy) return FromLibrary();
  trail.Push(name, std::move(copy));
  ++items;
  return {};
}

// How many streams and folders there are to copy. A folder that cannot be copied whole is not
// copied at all.
Result TreeCopy::Count(aostorage::aoStream& source, std::uint64_t& count) {
  count = 1;
  TreeWalk walk({nullptr, &source});
  for (;;) {
    const TreeWalk::Event event = walk.Next();
    if (event == TreeWalk::Event::kEnd) return {};
    if (event == TreeWalk::Event::kFailed) return InFolder(walk, walk.Failure());
    if (event != TreeWalk::Event::kLeave) ++count;
    report.Progress("counting", count, 0);
  }
}

}  // namespace aotool
