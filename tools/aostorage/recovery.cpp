#include "recovery.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include <aostorage/error.h>
#include <aostorage/types.h>

#include "interrupt.h"

namespace aotool {
namespace {

using aostorage::InspectedStream;
using aostorage::kNoIndex;
using aostorage::StreamOrigin;

constexpr std::size_t kMostNamesShown = 16;
constexpr const char* kReportName = "report.txt";

bool HasNameWithEnd(const InspectedStream& stream) {
  return std::memchr(stream.header.name, 0, sizeof stream.header.name) != nullptr;
}

bool IsNoStream(const InspectedStream& stream) {
  return stream.origin == StreamOrigin::kUnusedSlot || stream.origin == StreamOrigin::kDamagedSlot;
}

void AddReason(std::string& why, const std::string& reason) {
  if (!why.empty()) why += "; ";
  why += reason;
}

}  // namespace

Recovery::Recovery(const aostorage::Inspection& inspected, aostorage::aoStorage& target,
                   Report& toReport, Spool& text, Spool* json)
    : source(inspected), storage(target), report(toReport), lines(text), documents(json) {}

Result Recovery::Run() {
  Result result = WriteAll();
  if (!result.Ok() && full) {
    // What is written so far is worth more than nothing.
    ++totals.missing;
    result = TellOfStore("the new store has reached its limit of 2 GiB: the rest is not in it");
  }
  if (result.Ok() && !lines.IsEmpty()) result = StoreReport();
  CloseLevels(0);
  return result;
}

Result Recovery::WriteAll() {
  Result result = TellOfDirectory();
  if (result.Ok()) result = WriteReachable();
  if (result.Ok()) result = WriteLost();
  return result;
}

Result Recovery::WriteReachable() {
  // The reserved slots first: each takes the first one that is free.
  for (const bool reserved : {true, false}) {
    for (std::uint32_t i = 0; i < source.Streams().size(); ++i) {
      if (!IsLive(i) || At(i).parent != kNoIndex || IsReserved(At(i)) != reserved) continue;
      Result result = WriteReached(i, reserved);
      if (result.Ok()) result = DrainLevels(0);
      if (!result.Ok()) return result;
    }
  }
  return {};
}

Result Recovery::WriteLost() {
  for (std::uint32_t i = 0; i < source.Streams().size(); ++i) {
    if (!GoesUnderLost(i)) continue;
    Result result = OpenLostFolder();
    if (result.Ok()) result = WriteFind(i);
    if (result.Ok()) result = DrainLevels(1);
    if (!result.Ok()) return result;
  }
  return {};
}

// Goes on until no more than `floor` folders are open.
Result Recovery::DrainLevels(std::size_t floor) {
  while (levels.size() > floor) {
    if (Interrupted()) return Interruption();
    Level& level = levels.back();
    const InspectedStream& folder = At(level.stream);
    if (level.next == folder.childCount) {
      CloseLevels(levels.size() - 1);
      continue;
    }
    const std::uint32_t child = folder.firstChild + level.next++;
    const bool reached = IsLive(level.stream);
    Result result = reached ? WriteReached(child, false) : WriteFind(child);
    if (!result.Ok()) return result;
  }
  return {};
}

Result Recovery::WriteReached(std::uint32_t stream, bool reserved) {
  const InspectedStream& found = At(stream);
  if (found.origin == StreamOrigin::kDamagedSlot) {
    Find find = FindOf(source, stream, {});
    find.why = "a slot of this folder is damaged: the stream it may have held has lost its name";
    ++totals.missing;
    return Tell(find);
  }
  if (!IsLive(stream) || GoesUnderLost(stream)) return {};  // later
  Verdict verdict = JudgeStream(source, stream);
  const std::string name = source.NameOf(stream);
  Result result = Write(stream, name, reserved, verdict);
  if (!result.Ok()) return result;
  if (found.isFolder) {
    ++totals.folders;
    if (verdict.Whole()) return {};
    Find find = FindOf(source, stream, verdict);
    find.path = TargetPath("");
    find.why = "streams in it may be missing: " + verdict.why;
    ++totals.missing;
    return Tell(find);
  }
  if (unreadable.count(stream) != 0) return {};
  ++totals.streams;
  totals.bytes += verdict.bytes;
  return {};
}

Result Recovery::WriteFind(std::uint32_t stream) {
  Verdict verdict = JudgeStream(source, stream);
  if (unreadable.count(stream) != 0) verdict.why = "the system cannot read all of it";
  if (!HoldsAnything(stream, verdict)) return {};
  const std::string name = KeepsName(stream, verdict)
                               ? source.NameOf(stream)
                               : LostName(source, stream, verdict, levels.back().used);
  const std::string path = TargetPath(name);
  if (Result result = Write(stream, name, false, verdict); !result.Ok()) return result;
  Find find = FindOf(source, stream, verdict);
  find.path = path;
  ++totals.finds;
  if (!find.folder) totals.findBytes += verdict.bytes;
  const bool damaged = std::strcmp(find.what, kDamagedHeader) == 0;
  if (IsLive(stream) || damaged) ++totals.missing;
  return Tell(find);
}

Result Recovery::Write(std::uint32_t stream, const std::string& name, bool reserved,
                       Verdict& verdict) {
  if (Interrupted()) return Interruption();
  const InspectedStream& found = At(stream);
  const std::uint32_t kind = aostorage::PackKind(found.isFolder, found.header.duration);
  aostorage::ClearLastError();
  StreamPtr made;
  if (reserved) made.reset(storage.CreateStreamFast(name.c_str(), kind, aostorage::kWriteFlags));
  if (!made) {
    aostorage::ClearLastError();
    made = Bottom().Create(name, kind);
  }
  if (!made) return FromTarget();
  report.Progress("writing", totals.streams + totals.folders + totals.finds, totals.bytes);
  if (found.isFolder) {
    Enter(stream, name, std::move(made));
    return {};
  }
  Result result = WritePlain(stream, *made, verdict);
  // A part of it must not look like the whole; where the disk is full, the new store goes anyway.
  const bool takeBack = full || (IsLive(stream) && lostFolder.empty() && !verdict.Whole());
  if (!takeBack || (!result.Ok() && !full)) return result;
  if (Result removed = Remove(made); !removed.Ok()) return removed;
  if (result.Ok()) unreadable.insert(stream);
  return result;
}

Result Recovery::WritePlain(std::uint32_t stream, aostorage::aoStream& to, Verdict& verdict) {
  const std::uint64_t madeUpBefore = source.BytesMadeUp();
  Result result;
  const std::uint64_t given = source.ReadStream(stream, [&](const void* bytes, std::size_t count) {
    const auto size = static_cast<std::uint32_t>(count);
    aostorage::ClearLastError();
    if (Interrupted()) {
      result = Interruption();
    } else if (to.Write(bytes, size) != size) {
      result = FromTarget();
    }
    report.Progress("writing", totals.streams + totals.folders + totals.finds,
                    totals.bytes + totals.findBytes);
    return result.Ok();
  });
  if (given < verdict.bytes)
    AddReason(verdict.why, "only " + std::to_string(given) + " bytes could be read");
  verdict.bytes = given;
  if (const std::uint64_t madeUp = source.BytesMadeUp() - madeUpBefore; madeUp != 0) {
    AddReason(verdict.why,
              std::to_string(madeUp) + " of its bytes could not be read and are zeros here");
  }
  return result;
}

Result Recovery::OpenLostFolder() {
  if (!levels.empty()) return {};
  const std::string name = FreeLostName();
  aostorage::ClearLastError();
  StreamPtr folder = Bottom().Create(name, aostorage::PackKind(true));
  if (!folder) return FromTarget();
  lostFolder = name;
  Enter(kNoIndex, name, std::move(folder));
  levels.back().used.Add(kReportName);
  return {};
}

void Recovery::Enter(std::uint32_t stream, const std::string& name, StreamPtr folder) {
  levels.emplace_back();
  Level& level = levels.back();
  level.stream = stream;
  level.name = name;
  level.folder = std::move(folder);
  if (stream == kNoIndex || IsLive(stream)) return;
  // The names that the file gives go before those that are made up.
  const InspectedStream& found = At(stream);
  for (std::uint32_t i = found.firstChild; i < found.firstChild + found.childCount; ++i) {
    if (At(i).origin == StreamOrigin::kFolder && HasNameWithEnd(At(i)))
      level.used.Add(source.NameOf(i));
  }
}

void Recovery::CloseLevels(std::size_t floor) {
  while (levels.size() > floor) levels.pop_back();  // the folders inside before those around them
}

Result Recovery::StoreReport() {
  CloseLevels(lostFolder.empty() ? 0 : 1);
  if (Result result = OpenLostFolder(); !result.Ok()) return full ? Result{} : result;
  aostorage::ClearLastError();
  StreamPtr stream = Bottom().Create(kReportName, aostorage::PackKind(false));
  if (!stream) return full ? Result{} : FromTarget();
  const auto write = [&](std::string_view text) {
    const auto size = static_cast<std::uint32_t>(text.size());
    aostorage::ClearLastError();
    return stream->Write(text.data(), size) == size ? Result{} : FromTarget();
  };
  Result result = lines.ForEach(write);
  if (result.Ok()) result = write(Summary() + "\n");
  return full ? Result{} : result;
}

Result Recovery::FromTarget() {
  full = full || aostorage::LastError().code == aostorage::ErrorCode::kTooLarge;
  return FromLibrary();
}

bool Recovery::IsReserved(const InspectedStream& stream) const {
  constexpr std::uint64_t kMostReserved = 6;
  constexpr std::uint64_t kHeadSize = 12;
  const std::uint64_t end = source.FileHeaderSize() + kHeadSize +
                            sizeof(aostorage::tag_aoStream) *
                                std::min<std::uint64_t>(kMostReserved, source.ReservedSlotCount());
  return stream.parent == kNoIndex && stream.headerOffset < end;
}

// Whether it stands right in lost+found, and not in another folder there.
bool Recovery::GoesUnderLost(std::uint32_t stream) const {
  const InspectedStream& found = At(stream);
  if (IsNoStream(found)) return false;
  if (IsLive(stream))
    return !found.isFolder &&
           (unreadable.count(stream) != 0 || !JudgeStream(source, stream).Whole());
  return found.parent == kNoIndex || IsLive(found.parent);
}

// Of what was removed, and of blocks without a header, not even a name is left.
bool Recovery::HoldsAnything(std::uint32_t stream, const Verdict& verdict) const {
  const InspectedStream& found = At(stream);
  if (IsNoStream(found)) return false;
  if (found.origin != StreamOrigin::kVacated && found.origin != StreamOrigin::kOrphanChain)
    return true;
  if (!found.isFolder) return verdict.bytes != 0;
  const auto children = source.Streams().begin() + found.firstChild;
  return !std::all_of(children, children + found.childCount, IsNoStream);
}

bool Recovery::KeepsName(std::uint32_t stream, const Verdict& verdict) const {
  const InspectedStream& found = At(stream);
  return !IsLive(stream) && found.origin == StreamOrigin::kFolder && !IsLive(found.parent) &&
         HasNameWithEnd(found) && (found.isFolder || verdict.Whole());
}

std::string Recovery::FreeLostName() const {
  const std::string wanted = "lost+found";
  UsedNames used;
  for (std::uint32_t i = 0; i < source.Streams().size(); ++i) {
    if (!IsLive(i) || At(i).parent != kNoIndex) continue;
    if (const std::string name = source.NameOf(i); name.rfind(wanted, 0) == 0) used.Add(name);
  }
  return used.MakeUnique(wanted, aostorage::kMaxNameLength);
}

Place Recovery::Bottom() const {
  return {&storage, levels.empty() ? nullptr : levels.back().folder.get()};
}

// The path of what has this name in the folder at the bottom; that of the folder without a name.
std::string Recovery::TargetPath(const std::string& name) const {
  const std::size_t first = levels.size() - std::min(levels.size(), kMostNamesShown);
  std::string path = first != 0 ? ".../" : "";
  for (std::size_t i = first; i < levels.size(); ++i) path += levels[i].name + "/";
  if (name.empty()) path.pop_back();
  return path + name;
}

}  // namespace aotool
