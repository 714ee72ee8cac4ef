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
  if (walk.Path().empty()) return result;  // it is about no stream
  return {result.code, "'" + Shown(walk.Path()) + "' in it: " + result.reason};
}

}  // namespace

TreeCopy::TreeCopy(Report& toReport, const char* copyVerb, std::uint64_t sizeOfSourceStore)
    : report(toReport),
      verb(copyVerb),
      room(sizeOfSourceStore),
      transfer([this](std::uint64_t size) {
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
  StreamPtr old;
  if (Result result = OpenOld(to, name, old); !result.Ok()) return result;
  const bool keepsDuration = old && old->IsFolder() != 1;
  const std::uint32_t kind =
      aostorage::PackKind(false, (keepsDuration ? *old : source).GetDuration());
  return writer.Write(to, name, kind, std::move(old),
                      [&](aostorage::aoStream& copy, const std::string& nameForNow) {
                        return FillAndCompare(source, copy, to, nameForNow);
                      });
}

Result TreeCopy::FillAndCompare(aostorage::aoStream& source, aostorage::aoStream& copy, Place to,
                                const std::string& name) {
  if (Result result = transfer.CopyAcross(source, copy); !result.Ok()) return result;
  aostorage::ClearLastError();
  const StreamPtr again = to.Open(name, aostorage::kReadFlags);
  if (!again) return FromLibrary();
  ++items;
  return transfer.Compare(source, *again);
}

// Opens what stands where the source is to be copied to.
Result TreeCopy::OpenOld(Place to, const std::string& name, StreamPtr& old) {
  touched = true;
  if (!over) return {};
  aostorage::ClearLastError();
  old = to.Open(name, aostorage::kWriteFlags);
  return old || NameIsMissing() ? Result{} : FromLibrary();
}

Result TreeCopy::CopyFolder(aostorage::aoStream& source, Place to, const std::string& name) {
  std::uint64_t expected = 0;
  if (Result result = Count(source, expected); !result.Ok()) return result;
  Trail trail(to);
  Result result = EnterCopyOfFolder(source, trail, name);
  if (result.Ok()) result = CopyWhatItHolds(source, trail, expected);
  if (!result.Ok()) TakeBackAside(trail, result);
  return result;
}

Result TreeCopy::CopyWhatItHolds(aostorage::aoStream& source, Trail& trail,
                                 std::uint64_t expected) {
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
        result = PutAsideInPlace(trail);
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
  const Place to = trail.Bottom();
  StreamPtr copy;
  if (Result result = OpenOld(to, name, copy); !result.Ok()) return result;
  std::string nameForNow = name;
  const bool plainIsThere = copy && copy->IsFolder() != 1;
  if (plainIsThere) {
    copy.reset();
    if (Result result = FreeNameBeside(to, name, nameForNow); !result.Ok()) return result;
  }
  if (!copy) {
    aostorage::ClearLastError();
    copy = to.Create(nameForNow, KindOf(source));
    if (!copy) return FromLibrary();
  }
  if (plainIsThere) aside.push_back({trail.Names().size(), name, nameForNow});
  trail.Push(nameForNow, std::move(copy));
  ++items;
  return {};
}

// The folder that was left is whole: when it was made aside, it takes the place of the stream.
Result TreeCopy::PutAsideInPlace(Trail& trail) {
  if (aside.empty() || aside.back().depth != trail.Names().size()) return {};
  const auto [depth, name, nameForNow] = aside.back();
  aside.pop_back();
  const Place place = trail.Bottom();
  aostorage::ClearLastError();
  StreamPtr old = place.Open(name, aostorage::kWriteFlags);
  StreamPtr fresh = old ? place.Open(nameForNow, aostorage::kWriteFlags) : nullptr;
  if (!fresh) return FromLibrary();
  return PutInPlace(place, name, nameForNow, old, fresh);
}

// Removes the folders made aside: the outermost one holds the others.
void TreeCopy::TakeBackAside(Trail& trail, Result& result) {
  if (aside.empty()) return;
  while (trail.Names().size() > aside.front().depth) trail.Pop();
  StreamPtr folder = trail.Bottom().Open(aside.front().nameForNow, aostorage::kWriteFlags);
  if (folder && !Remove(folder).Ok()) result.reason += "; an incomplete copy is left";
  aside.clear();
}

// How many streams and folders there are to copy. A folder that is damaged, or has two streams of
// one name, is not copied at all.
Result TreeCopy::Count(aostorage::aoStream& source, std::uint64_t& count) {
  count = 1;
  std::uint64_t bytesToCopy = 0;
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
    if (event == TreeWalk::Event::kFolder) {
      names.emplace_back();
    } else if ((bytesToCopy += walk.Stream().GetLength()) > room) {
      return InFolder(walk, {kDamaged, kTooMuch});
    }
    report.Progress("counting", ++count, 0);
  }
}

}  // namespace aotool
