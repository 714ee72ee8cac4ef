#include "maintenance/rebuild.h"

#include <string>
#include <utility>
#include <vector>

#include "platform/last_error.h"
#include "storage/root_streams.h"

namespace aostorage::detail {
namespace {

// Calls `visit` with each slot in use of the directory, in its order. False when the directory
// cannot be read whole, or a visit gives false.
template <typename Visit>
bool VisitSlots(StorageCore& storage, Visit visit) {
  DirectoryBlock block;
  for (DirectoryWalk walk(storage.directory.FirstOffset());;) {
    if (!walk.Read(storage.file, block)) return false;
    for (std::uint32_t i = 0; i < block.SlotCount(); ++i) {
      if (!block.SlotInUse(i)) continue;
      const tag_aoStreamOffset locator{DirectoryBlock::SlotOffset(walk.Offset(), i), walk.Offset(),
                                       block.SlotCount(), 0};
      if (!visit(block.Slot(i), locator)) return false;
    }
    if (block.NextDirectory() == 0) return true;
    if (!walk.Step(storage.file, block.NextDirectory())) return false;
  }
}

// The names of the map, in the order of the cookie iteration.
std::vector<std::string> NamesOf(StorageCore& storage) {
  CMapSort& map = storage.streamMap;
  std::vector<std::string> names;
  names.reserve(map.Count());
  if (storage.sortEnabled) {
    map.Sort(storage.sortDescending);
    for (std::size_t i = 0; i < map.SortedCount(); ++i)
      names.emplace_back(map.SortedAt(static_cast<std::int64_t>(i))->name);
  } else {
    for (CMapSort::EntryId id = map.First(); id != CMapSort::kNoEntry; id = map.Next(id))
      names.emplace_back(map.At(id)->name);
  }
  return names;
}

}  // namespace

bool Rebuild::Carried::Copied(const tag_aoStream& header, const std::uint8_t* data,
                              std::uint32_t size) {
  ++report.streams;
  report.bytes += size;
  if (header.duration != 0) ++report.durations;
  return CopySeal::Copied(header, data, size) && GoOn();
}

bool Rebuild::Carried::GoOn() const {
  if (!progress) return true;
  bool goesOn = false;
  try {
    const Callback callersOwn;
    goesOn = progress(report);
  } catch (...) {
    Fail(ErrorCode::kCancelled);
    throw;
  }
  return goesOn || Fail(ErrorCode::kCancelled);
}

Replacement::Outcome Rebuild::Run(const std::string& path, Where where) {
  constexpr auto kNothing = Replacement::Outcome::kNothingReplaced;
  Replacement place;
  if (!place.Aim(path)) return kNothing;
  const FileIdentity goal = place.Goal().identity;
  const bool inPlace = place.Goal().exists && goal == source->file.Identity();
  if (where == Where::kInPlace && !inPlace) return Fail(ErrorCode::kChanged), kNothing;
  NoteState();
  if (!Survey() || !seal.GoOn()) return kNothing;
  File temporary = place.MakeTemporary(source->file.Identity());
  if (!temporary.IsOpen()) return kNothing;
  temporary.BeginWindow(source->file.KnownSize());
  const StoragePointer target = CreateStorageIn(place.TemporaryPath(), std::move(temporary), 0);
  if (target == nullptr || !CarryAll(target) || !target->file.EndWindow()) return kNothing;
  if (!Check(target, place.TemporaryPath()) || !IsStateAsNoted()) return kNothing;
  // A further storage object on the old file knows blocks that a copied content has elsewhere.
  const bool othersOnGoal =
      place.Goal().exists && ChangeCounter::HoldersOf(goal) > (inPlace ? 1 : 0);
  return place.PutInPlace(target->file, !othersOnGoal);
}

void Rebuild::NoteState() {
  epochBefore = source->IndexEpoch();
  changesBefore = source->OwnChanges();
  static_cast<void>(source->file.ChangedByOthers());  // what was before does not count
}

// What anybody wrote to the source meanwhile, the caller's progress function included, would be
// lost.
bool Rebuild::IsStateAsNoted() {
  return (source->IndexEpoch() == epochBefore && source->OwnChanges() == changesBefore &&
          !source->file.ChangedByOthers()) ||
         Fail(ErrorCode::kChanged);
}

// The map is what is carried. It must have all that the directory has, but for names that were
// taken out by request: a map that was never read, or has been overtaken by another handle on the
// file, would lose streams. And it must lead where a map that is read anew would lead.
bool Rebuild::Survey() {
  const std::uint32_t firstDirectory = source->directory.FirstOffset();
  const std::uint32_t reservedEnd =
      DirectoryBlock::SlotOffset(firstDirectory, source->directory.ReservedSlotCount());
  return VisitSlots(*source,
                    [&](const tag_aoStream& header, const tag_aoStreamOffset& locator) {
                      return SurveySlot(header, locator.headerOffset,
                                        locator.directoryOffset == firstDirectory &&
                                            locator.headerOffset < reservedEnd);
                    }) &&
         (awaited.empty() || Fail(ErrorCode::kIncompleteMap));
}

bool Rebuild::SurveySlot(const tag_aoStream& header, std::uint32_t headerOffset, bool reserved) {
  if (!IsSound(header, headerOffset)) return false;
  tag_aoStreamOffset mapped;
  if (!source->streamMap.Lookup(header.name, mapped)) {
    if (source->droppedNames.count(header.name) == 0) return Fail(ErrorCode::kIncompleteMap);
    ++report.hidden;
  } else if (mapped.headerOffset != headerOffset) {
    ++report.hidden;
    awaited.insert(header.name);  // hidden by a later one, which is the map's
  } else {
    awaited.erase(header.name);
    if (reserved) ++report.reserved;
  }
  return true;
}

bool Rebuild::CarryAll(const StoragePointer& target) {
  TreeCopy copy(*source, TreeCopy::Goal::kFresh, &seal);
  for (const std::string& name : NamesOf(*source)) {
    if (!CarryRoot(name.c_str(), copy, target)) return false;
  }
  return true;
}

bool Rebuild::CarryRoot(const char* name, TreeCopy& copy, const StoragePointer& target) {
  std::unique_ptr<StreamCore> opened = RootStreams(source).Open(name, kReadFlags);
  if (opened == nullptr) return false;
  if (!HasName(opened->Header(), name)) {  // another handle's doing
    source->openStreams.Close(name);
    return Fail(ErrorCode::kChanged);
  }
  const CountedStream stream(opened.release());
  const bool isFolder = stream->IsFolder();
  const std::unique_ptr<StreamCore> twin =
      RootStreams(target).Create(name, PackKind(isFolder), kWriteFlags, false);
  if (twin == nullptr || (isFolder && twin->Header().length == 0)) return false;
  copy.Copy(*stream, twin.get());
  return copy.IsWhole() &&
         (!copy.metMissingSlots || Fail(ErrorCode::kTruncated, stream->Locator().headerOffset));
}

// Walks the new file, its directory first, and compares. The name map is not needed for that.
bool Rebuild::Check(const StoragePointer& target, const std::string& path) const {
  File file = File::Open(path, File::Access::kRead);
  if (!file.IsOpen()) return false;
  if (!(file.Identity() == target->file.Identity())) return Fail(ErrorCode::kChanged);
  const StoragePointer written = OpenStorageIn(path, std::move(file), 0, false);
  if (written == nullptr) return false;
  CopySeal found;
  TreeCopy reading(*written, TreeCopy::Goal::kNone, &found);
  const bool read =
      VisitSlots(*written, [&](const tag_aoStream& header, const tag_aoStreamOffset& locator) {
        const CountedStream stream(
            RootStreams(written).OpenRead(header, locator, kReadFlags).release());
        if (stream == nullptr) return false;
        reading.Copy(*stream, nullptr);
        return reading.IsWhole() && !reading.metMissingSlots;
      });
  // What came back is not what was written.
  return (read && found == seal) || Fail(ErrorCode::kInputOutput);
}

}  // namespace aostorage::detail
