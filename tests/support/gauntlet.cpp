#include "support/gauntlet.h"

#include <sys/stat.h>

#include <filesystem>
#include <utility>

#include <gtest/gtest.h>

#include "support/check_file.h"
#include "support/size.h"

namespace aostorage::testing {
namespace {

constexpr std::uint32_t kFolder = PackKind(true);
// Borders of everything that an operation can be asked for.
constexpr std::uint32_t kPlaces[] = {0,    1,          59,         60,         150,
                                     4096, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF};
constexpr int kMostSteps = 40;  // of a walk: what a large file holds is not looked at one by one
constexpr std::size_t kMostLines = 500;

std::uint64_t SizeOf(const std::string& file) {
  struct stat state {};
  return stat(file.c_str(), &state) == 0 ? static_cast<std::uint64_t>(state.st_size) : 0;
}

bool Opened(aoStream* stream) { return Stream(stream) != nullptr; }

void AddLines(aoStream& stream, const std::string& path, int depth, Gauntlet::Names& lines) {
  if (lines.size() >= kMostLines) return;
  lines.push_back(path + stream.GetName());
  if (stream.IsFolder() == 0) {
    Bytes value(std::min<std::uint32_t>(stream.GetLength(), 5000));
    const std::uint32_t got = stream.Read(value.data(), static_cast<std::uint32_t>(value.size()));
    value.resize(std::min<std::size_t>(got, value.size()));
    lines.back() += " " + std::to_string(stream.GetLength());
    lines.back().append(value.begin(), value.end());
    return;
  }
  std::uint32_t cookie = 0;
  const std::string below = lines.back() + "/";
  Stream child(stream.OpenStreamFirst(cookie, kReadFlags));
  while (child && depth < 50 && lines.size() < kMostLines) {
    AddLines(*child, below, depth + 1, lines);
    child.reset(stream.OpenStreamNext(cookie, kReadFlags));
  }
}

// What the public interface shows of the file, sorted by the names at the root.
Gauntlet::Names Contents(const std::string& path) {
  Gauntlet::Names lines;
  const Storage storage(aoStorage::Open(path.c_str(), kReadFlags, 0));
  if (!storage) return lines;
  storage->EnableSorting(1, 0);
  StreamCookie cookie = -1;
  Stream at(storage->OpenStreamFirst(cookie, kReadFlags));
  while (at && lines.size() < kMostLines) {
    AddLines(*at, "", 0, lines);
    at.reset(storage->OpenStreamNext(cookie, kReadFlags));
  }
  return lines;
}

void CheckRecords(const Inspection& found) {
  std::uint64_t end = 0;
  found.ForEachRecord([&](const Record& record) {
    if (record.state == RecordState::kOverlapping && record.kind == RecordKind::kBlockHeader &&
        record.block == kNoIndex)
      return true;  // lies on others
    EXPECT_EQ(record.offset, end) << "a byte of the file belongs to no record, or to two";
    EXPECT_TRUE(record.size != 0 || found.FileSize() == 0);
    EXPECT_TRUE(record.stream == kNoIndex || record.stream < found.Streams().size());
    EXPECT_TRUE(record.block == kNoIndex || record.block < found.Blocks().size());
    end = record.offset + record.size;
    return true;
  });
  EXPECT_EQ(end, found.FileSize());
}

void CheckFindings(const Inspection& found) {
  std::uint64_t last = 0;
  for (const Finding& finding : found.Findings()) {
    EXPECT_GE(finding.offset, last) << "findings are out of order";
    last = finding.offset;
    EXPECT_TRUE(finding.stream == kNoIndex || finding.stream < found.Streams().size());
    EXPECT_TRUE(found.CountOf(finding.rule) != 0 && found.CountOf(finding.severity) != 0);
    EXPECT_TRUE(*finding.detail != 0 && *RuleName(finding.rule) != 0);
  }
}

}  // namespace

Gauntlet::Gauntlet(const std::string& file, Names rootNames, Names childNames)
    : path(file), roots(std::move(rootNames)), children(std::move(childNames)), run({file}) {}

std::uint64_t Gauntlet::SizeNow() const { return SizeOf(path); }

Gauntlet::Names Gauntlet::Ways() const {
  return {roots[0],
          roots[0] + "/x",
          roots[1] + "/" + children[0],
          roots[1] + "/" + children[1 % children.size()] + "/" + children[0],
          roots[1] + "/..",
          "none/x"};
}

// --- Reading

void Gauntlet::Read() {
  const Bytes before = ReadFile(path);
  run.readOnly = true;
  for (const auto open : {&aoStorage::Open, &aoStorage::OpenFast, &aoStorage::OpenOrCreate}) {
    for (const std::uint32_t flags : {kReadFlags, kWriteFlags}) {
      if (!FullSize() && (flags == kWriteFlags) != (open == &aoStorage::OpenOrCreate)) continue;
      const Storage storage(run("open", [&] { return open(path.c_str(), flags, 0); }));
      if (storage) ReadStorage(*storage);
    }
  }
  ReadThroughOthers();
  Inspect();
  run.readOnly = false;
  EXPECT_TRUE(ReadFile(path) == before) << "reading wrote";
}

void Gauntlet::ReadStorage(aoStorage& storage) {
  WalkRoots(storage);
  for (const std::string& each : roots) {
    const char* const name = each.c_str();
    run("subfolders", [&] { return storage.GetSubfolderCount(name); });
    run("entry", [&] { return storage.GetEntry(name, 1); });
    run("entry", [&] { return storage.GetEntry(name, std::int64_t{1}); });
    run("entry", [&] { return storage.GetEntry(name, 1.0); });
    run("entry", [&] { return storage.GetEntry(name, "none"); });
    run("entry", [&] { return storage.GetEntryFast(name, "none"); });
    char erased[100];
    run("erased entry", [&] { return storage.GetEntryErasedOld(name, erased, sizeof erased); });
    run("find", [&] { return Opened(storage.FindRootStream(name)); });
    run("find", [&] { return Opened(storage.FindRootStorage(name)); });
    run("find", [&] { return Opened(storage.FindRootStorageWrite(name)); });
    run("fast", [&] { return Opened(storage.OpenStreamFast(name, kReadFlags)); });
    const Stream stream(run("open", [&] { return storage.OpenStream(name, kReadFlags); }));
    if (stream) ReadStream(*stream, 0);
  }
  run("drop", [&] { return storage.RemoveStream(roots[2].c_str()); });
}

void Gauntlet::WalkRoots(aoStorage& storage) {
  for (const int sorted : {0, 1}) {
    storage.EnableSorting(sorted, sorted);
    for (const StreamCookie wild : {StreamCookie{-2}, StreamCookie{7}, StreamCookie{1} << 33}) {
      StreamCookie cookie = wild;
      run("wild cookie", [&] { return Opened(storage.OpenStreamNext(cookie, kReadFlags)); });
    }
    StreamCookie cookie = 0;
    bool more = run("first", [&] { return Opened(storage.OpenStreamFirst(cookie, kReadFlags)); });
    for (int i = 0; more && i < kMostSteps; ++i)
      more = run("next", [&] { return Opened(storage.OpenStreamNext(cookie, kReadFlags)); });
  }
  int position = 0;
  run("first by name", [&] { return Opened(storage.OpenStreamFirst2(position, kReadFlags)); });
  run("next by name", [&] { return Opened(storage.OpenStreamNext2(position, kReadFlags)); });
  CIterateSortedStreams iteration;
  for (int i = 0; i < kMostSteps; ++i)
    run("sorted", [&] { return storage.IterateSortedStreamsNoOPENS(&iteration); });
  const Stream walking(run("slot", [&] { return storage.OpenStreamFirst(kReadFlags); }));
  bool more = walking != nullptr;
  for (int i = 0; more && i < kMostSteps; ++i)
    more = run("go next", [&] { return walking->GoNext(); });
  for (const std::uint32_t place : kPlaces) {
    const tag_aoStreamOffset locator{place + 44, place, 64, 0};
    run("offset",
        [&] { return Opened(storage.OpenStreamByOffset(locator, roots[0].c_str(), kReadFlags)); });
  }
}

void Gauntlet::ReadStream(aoStream& stream, int depth) {
  char buffer[512];
  std::uint32_t got = 0;
  for (int i = 0; i < kMostSteps; ++i) {
    got = run("read", [&] { return stream.Read(buffer, sizeof buffer); });
    if (got == 0 || got == kFailed) break;
  }
  for (const std::uint32_t place : kPlaces) {
    for (std::uint8_t origin = 0; origin < 3; ++origin)
      run("seek", [&] { return stream.Seek(place, origin, place % 2 == 0); });
    run("seek", [&] { return stream.Seek2(static_cast<std::int32_t>(place), place % 3); });
    run("read", [&] { return stream.Read(buffer, place % 600); });
  }
  stream.Seek(0, 0);
  std::int64_t number = 0;
  std::string text;
  run("value", [&] { return &(stream >> number); });
  run("value", [&] { return &(stream >> text); });
  std::uint8_t* whole = nullptr;
  stream.Seek(0, 0);
  run("to buffer", [&] { return stream.CopyStreamToBuffer(whole); });
  aoStream::FreeBuffer(whole);
  aoStream2 memory;
  stream.Seek(0, 0);
  run("to memory", [&] { return stream.CopyStream(&memory); });
  CAoStreamFile file(&stream);
  run("as file", [&] { return file.Seek(1, 0); });
  run("as file", [&] { return file.Read(buffer, 9); });
  ReadFolder(stream, depth);
}

void Gauntlet::ReadFolder(aoStream& folder, int depth) {
  tag_aoStream header;
  tag_aoStreamOffset offset;
  for (const std::string& each : children) {
    const char* const name = each.c_str();
    run("find child", [&] { return folder.FindStream(name, header, offset); });
    run("entry", [&] { return folder.GetEntry(name, 1); });
    run("entry", [&] { return folder.GetEntry(name, 1U); });
    run("entry", [&] { return folder.GetEntry(name, std::int64_t{1}); });
    run("entry", [&] { return folder.GetEntry(name, 1.0); });
    run("entry", [&] { return folder.GetEntry(name, "none"); });
    tagSIZE extent{};
    run("entry", [&] { return folder.GetEntry(name, &extent, nullptr); });
    tagRECT area{};
    run("entry", [&] { return folder.GetEntry(name, &area, nullptr); });
    std::uint8_t* bytes = nullptr;
    std::uint32_t size = 0;
    run("erased entry", [&] { return folder.GetEntryErasedOld(name, &bytes, &size); });
    aoStream::FreeBuffer(bytes);
    const Stream child(run("open child", [&] { return folder.OpenStream(name, kReadFlags); }));
    if (child && depth < 3) ReadStream(*child, depth + 1);
  }
  if (folder.IsFolder() == 0) return;
  std::vector<std::string> names;
  run("names", [&] { return folder.EnumStreams(names); });
  for (std::uint32_t cookie : kPlaces)
    run("wild cookie", [&] { return Opened(folder.OpenStreamNext(cookie, kReadFlags)); });
  std::uint32_t cookie = 0;
  Stream child(run("first child", [&] { return folder.OpenStreamFirst(cookie, kReadFlags); }));
  for (int i = 0; child && i < kMostSteps; ++i) {
    // Depth first, and breadth where names are not the known ones.
    if (depth < 3 && i == 0) ReadFolder(*child, depth + 1);
    child.reset(run("next child", [&] { return folder.OpenStreamNext(cookie, kReadFlags); }));
  }
}

void Gauntlet::ReadThroughOthers() {
  std::uint8_t buffer[100];
  const char* const child0 = children[0].c_str();
  CCompStgFile facade;
  run("facade", [&] { return facade.Open(path.c_str(), 1); });
  for (const char* name : {roots[0].c_str(), roots[1].c_str()}) {
    run("facade", [&] { return facade.OpenGenericStreams(name, child0); });
    run("facade", [&] { return facade.GetStreamSize(); });
    run("facade", [&] { return facade.ReadGenericStream(buffer, 100); });
    run("facade", [&] { return facade.ReadGenericChildStream(buffer, 100); });
    run("facade", [&] { return facade.ReadTagSeekBack(buffer, 100); });
    run("facade", [&] { return facade.SeekForward(0x80000000); });
    run("facade", [&] { return facade.GoToEndOfGenericChildStream(); });
    aoStream* child = nullptr;
    for (int i = 0; i < kMostSteps; ++i) {
      run("facade", [&] { return facade.GetNextChildStreamName(child); });
      if (child == nullptr) break;
    }
    Stream{child};
  }
  facade.CloseStream();
  bool more = true;
  for (int i = 0; more && i < kMostSteps; ++i)
    more = run("facade", [&] { return facade.OpenNextGenericStream(); }) != 0;
  run("facade", [&] { return facade.OpenNextStream(); });
  for (int i = 0; i < kMostSteps; ++i)
    run("facade", [&] { return facade.GetNextStreamName(kReadFlags); });
  facade.Close();
  const Storage storage(aoStorage::Open(path.c_str(), kReadFlags, 0));
  if (!storage) return;
  CPathLoader loader;
  for (const std::string& way : Ways())
    run("path", [&] { return loader.GetStreamByPath(storage.get(), way, 0, 0); });
  const Stream folder(storage->OpenStream(roots[1].c_str(), kReadFlags));
  run("path", [&] { return loader.GetSubStreamByPath(folder.get(), "sub/child", 0, 0); });
}

void Gauntlet::Inspect() {
  for (const bool salvage : {false, true}) {
    InspectOptions options;
    options.salvage = salvage;
    const auto found = run("inspect", [&] { return Inspection::Of(path.c_str(), options); });
    EXPECT_TRUE(found || !salvage) << LastError().text;
    if (!found) continue;
    run("records", [&] { CheckRecords(*found); });
    CheckStreams(*found);
    CheckFindings(*found);
    if (salvage) continue;
    options.mostRecords = found->Streams().size() / 2;
    const auto part = Inspection::Of(path.c_str(), options);
    if (part) CheckRecords(*part);
  }
}

void Gauntlet::CheckStreams(const Inspection& found) {
  const auto count = static_cast<std::uint32_t>(found.Streams().size());
  std::uint64_t all = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    const InspectedStream& stream = found.Streams()[i];
    EXPECT_TRUE(stream.parent == kNoIndex || stream.parent < i) << "a child before its folder";
    EXPECT_TRUE(stream.blockCount == 0 ||
                stream.firstBlock + std::uint64_t{stream.blockCount} <= found.Blocks().size());
    EXPECT_TRUE(stream.childCount == 0 ||
                stream.firstChild + std::uint64_t{stream.childCount} <= count);
    all += stream.dataBytes;
    if (i % (1 + count / 50) != 0) continue;
    const std::size_t name = run("path of", [&] { return found.PathOf(i).size(); });
    EXPECT_TRUE(name != 0 || stream.header.name[0] == 0) << "a path is empty";
    std::uint64_t pieces = 0;
    const std::uint64_t given = run("bytes of", [&] {
      return found.ReadStream(i, [&](const void*, std::size_t piece) {
        pieces += piece;
        return true;
      });
    });
    EXPECT_TRUE(given == pieces && given <= stream.dataBytes) << "a stream gives other bytes";
    found.ReadStream(
        i, [](const void*, std::size_t) { return false; }, given / 2);
  }
  EXPECT_LE(all, found.FileSize()) << "the streams hold more than the file";
}

// --- Writing

void Gauntlet::Write(const Bytes& bytes, const std::function<void()>& after) {
  for (const auto open : {&aoStorage::Open, &aoStorage::OpenFast}) {
    WriteFile(path, bytes);
    const Storage storage(open(path.c_str(), kWriteFlags, 10));
    if (storage) WriteRoots(*storage);
    EXPECT_LE(SizeNow(), bytes.size() + 50000) << "grown";
    after();
  }
  WriteFile(path, bytes);
  WriteThroughOthers();
  EXPECT_LE(SizeNow(), bytes.size() + 50000) << "grown";
  after();
  const Storage made(run("create", [&] { return aoStorage::Create(path.c_str(), 0, 0); }));
  EXPECT_EQ(std::filesystem::file_size(path), kEmptyFileSize);
}

void Gauntlet::WriteRoots(aoStorage& storage) {
  const char* const main = roots[0].c_str();
  for (const char* name : {"new", roots.back().c_str(), "gone", "f", main}) {
    for (const std::uint32_t kind : {PackKind(false), kFolder}) {
      Stream made(run("create", [&] { return storage.CreateStream(name, kind, kWriteFlags); }));
      if (made && kind == kFolder) WriteFolder(*made);
      if (made && kind != kFolder) WritePlain(*made);
      if (made && run("remove", [&] { return made->Remove(); })) static_cast<void>(made.release());
    }
    run("set", [&] { return storage.SetEntry(name, "text"); });
    run("set", [&] { return storage.SetEntryFast(name, 5.5); });
    run("set", [&] { return storage.SetEntryEraseOld(name, "0123456789", 10); });
  }
  run("set", [&] { return storage.SetEntry("number", 7); });
  run("fast", [&] { return Opened(storage.CreateStreamFast("fast", kWriteFlags)); });
  run("fast", [&] { return Opened(storage.OpenOrCreateStreamFast("fast", 1)); });
  for (const char* name : {main, roots[1].c_str()}) {
    Stream stream(run("open", [&] { return storage.OpenOrCreateStream(name, 0); }));
    if (!stream) continue;
    WriteFolder(*stream);
    if (stream->IsFolder() == 0) WritePlain(*stream);
    const Stream copy(storage.OpenOrCreateStream("copy", 0));
    if (copy) run("copy", [&] { return stream->CopyStream(copy.get()); });
    run("rename", [&] { return stream->Rename("renamed"); });
    run("clear", [&] { return stream->ClearFolder(); });
    if (run("remove", [&] { return stream->Remove(); })) static_cast<void>(stream.release());
  }
}

void Gauntlet::WritePlain(aoStream& stream) {
  const Bytes data = Pattern(300);
  const auto write = [&](std::uint32_t count, bool final) {
    run("write", [&] { return stream.Write(data.data(), count, final); });
  };
  write(20, false);
  stream.Seek(0, 0);
  write(170, false);
  run("seek", [&] { return stream.Seek(0, 1); });
  write(300, false);
  stream.Seek(30, 0);
  write(0, true);
  write(5, true);
  run("value", [&] { return &(stream << "text"); });
  run("shorten", [&] { return stream.SetLength(stream.GetLength() / 2); });
  run("lengthen", [&] { return stream.SetLength(0x7FFFFFFF); });
  run("erase", [&] { return stream.Erase(); });
  write(40, false);
}

void Gauntlet::WriteFolder(aoStream& folder) {
  for (const std::string& each : children) {
    const char* const name = each.c_str();
    run("set", [&] { return folder.SetEntry(name, 77); });
    const tagRECT area{1, 2, 3, 4};
    run("set", [&] { return folder.SetEntry(name, &area); });
    run("set", [&] { return folder.SetEntry(name, "text"); });
    run("log", [&] { return folder.SetEntry(name, "012345", 6); });
    run("set", [&] { return folder.SetEntryEraseOld(name, "0123456789", 10); });
    Stream child(
        run("open child", [&] { return folder.OpenOrCreateStream(name, kFolder, kWriteFlags); }));
    if (!child) continue;
    if (child->IsFolder() == 0) WritePlain(*child);
    run("make", [&] { return Opened(child->CreateStream("x", PackKind(false), kWriteFlags)); });
    run("rename", [&] { return child->Rename("other"); });
    if (run("remove", [&] { return child->Remove(); })) static_cast<void>(child.release());
  }
  tag_aoStream header;
  tag_aoStreamOffset offset;
  run("header", [&] { return folder.AddStreamHeader("added", 0, header, offset); });
  run("make", [&] { return Opened(folder.CreateStream("gone", kFolder, kWriteFlags)); });
}

void Gauntlet::WriteThroughOthers() {
  const Bytes data = Pattern(100);
  CCompStgFile facade;
  if (run("facade", [&] { return facade.Open(path.c_str(), 2); }) == 0) return;
  const char* const child = children[0].c_str();
  for (const char* name : {roots[0].c_str(), roots[1].c_str()}) {
    run("facade", [&] { return facade.OpenOrCreateGenericStream(name, 1, 0); });
    run("facade", [&] { return facade.WriteGenericStream(data.data(), 100); });
    run("facade", [&] { return facade.WriteGenericChildStream(child, data.data(), 100, 1, 1); });
    run("facade", [&] { return facade.OpenGenericStreams(name, child); });
    run("facade", [&] { return facade.WriteGenericChildOpenedStream(data.data(), 100, 1); });
    run("facade", [&] { return facade.RemoveGenericChildStream(name, child); });
    run("facade", [&] { return facade.RemoveGenericStream(name); });
  }
  facade.Close();
  const Storage storage(aoStorage::OpenOrCreate(path.c_str(), kWriteFlags, 10));
  if (!storage) return;
  CPathLoader loader;
  for (const std::string& way : Ways()) {
    run("path", [&] { return loader.GetStreamByPath(storage.get(), way, 1, 1); });
    run("path", [&] { return loader.DeleteStreamByPath(storage.get(), way); });
  }
  loader.CloseOpenStorages();
}

// Each stream into another storage, then within this one.
void Gauntlet::Copy(const Bytes& bytes, const std::string& goal, bool sound) {
  for (const std::string& name : roots) {
    const Storage storage(aoStorage::Open(path.c_str(), kWriteFlags, 0));
    if (!storage) return;
    const Stream from(storage->OpenStream(name.c_str(), kReadFlags));
    if (!from) continue;
    const std::uint32_t kind = PackKind(from->IsFolder() != 0);
    const bool mayFail = !sound || from->GetLength() == 0;
    {
      const Storage other(aoStorage::Create(goal.c_str(), 0, 0));
      const Stream to(other->CreateStream("copy", kind, kWriteFlags));
      run.paths.push_back(goal);
      EXPECT_TRUE(run("copy", [&] { return from->CopyFolder(to.get()); }) || mayFail) << name;
      run.paths.pop_back();
    }
    EXPECT_LE(SizeOf(goal), MostOutput(bytes.size())) << name;
    const Stream to(storage->CreateStream("copy", kind, kWriteFlags));
    from->Seek(0, 0);
    if (to) run("copy", [&] { return from->CopyFolder(to.get()); });
    EXPECT_LE(SizeNow(), bytes.size() + MostOutput(bytes.size())) << name;
    WriteFile(path, bytes);
  }
}

void Gauntlet::Carry(const Bytes& bytes, bool sound) {
  WriteFile(path, bytes);
  const std::string goal = path + "_goal";
  Copy(bytes, goal, sound);
  const Names before = Contents(path);
  const auto expectCarried = [&](const std::string& to) {
    EXPECT_LE(SizeOf(to), MostOutput(bytes.size()));
    EXPECT_EQ(CheckFile(to), "") << "the rebuilt file is not sound";
    EXPECT_TRUE(Contents(to) == before) << "the rebuilt file holds something else";
  };
  Storage storage(aoStorage::Open(path.c_str(), kReadFlags, 0));
  if (storage) {
    aoStorage* const old = storage.release();
    storage.reset(run("rebuild", [&] { return aoStorage::Recreate(old, goal.c_str()); }));
    EXPECT_TRUE(storage != nullptr && (storage.get() != old || !sound)) << LastError().text;
    if (storage.get() != old) expectCarried(goal);
  }
  storage.reset();
  EXPECT_TRUE(ReadFile(path) == bytes) << "a rebuild to another path wrote to its source";
  const int replaced = run("rebuild", [&] { return aoStorage::Recreate(path.c_str()); });
  EXPECT_TRUE(replaced == 1 || !sound) << LastError().text;
  if (replaced == 1) expectCarried(path);
  EXPECT_TRUE(replaced == 1 || ReadFile(path) == bytes) << "a refused rebuild wrote";
  EXPECT_FALSE(std::filesystem::exists(path + "_tmp") || std::filesystem::exists(goal + "_tmp"));
}

}  // namespace aostorage::testing
