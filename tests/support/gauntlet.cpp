#include "support/gauntlet.h"

#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include <aostorage/inspect.h>

#include "support/size.h"

namespace aostorage::testing {
namespace {

constexpr std::uint32_t kFolder = PackKind(true);
const char* const kRoots[] = {"sound", "target", "folder", "gone", "f", "none"};
const char* const kChildren[] = {"child", "sub", "gone", "none"};
// Borders of everything that an operation can be asked for.
constexpr std::uint32_t kPlaces[] = {0,    1,          59,         60,         150,
                                     4096, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF};
constexpr int kMostSteps = 40;  // of a walk: what a large file holds is not looked at one by one

std::uint64_t operations = 0;

std::uint64_t SizeOf(const std::string& file) {
  struct stat state {};
  return stat(file.c_str(), &state) == 0 ? static_cast<std::uint64_t>(state.st_size) : 0;
}

bool Opened(aoStream* stream) { return Stream(stream) != nullptr; }

}  // namespace

Gauntlet::Gauntlet(std::string file) : path(std::move(file)) {}

std::uint64_t Gauntlet::Operations() { return operations; }

std::uint64_t Gauntlet::SizeNow() const {
  return SizeOf(path) + (second.empty() ? 0 : SizeOf(second));
}

void Gauntlet::Judge(const char* name, std::uint64_t size, const Watch& watch,
                     std::uint64_t memory) {
  ++operations;
  // What the operation made of the file was its to look at, too.
  size = std::max(size, SizeNow());
  EXPECT_LE(watch.Total(), MostCalls(size)) << name << ", " << size << " bytes: " << watch.Text();
  EXPECT_LE(watch.Moved(), MostMoved(size)) << name << ", " << size << " bytes moved";
  EXPECT_LE(memory, MostMemory(size) + memoryMore) << name << ", " << size << " bytes of memory";
}

// --- Reading

void Gauntlet::Read() {
  const Bytes before = ReadFile(path);
  for (const auto open : {&aoStorage::Open, &aoStorage::OpenFast, &aoStorage::OpenOrCreate}) {
    for (const std::uint32_t flags : {kReadFlags, kWriteFlags}) {
      if (!FullSize() && (flags == kWriteFlags) != (open == &aoStorage::OpenOrCreate)) continue;
      const Storage storage(Do("open", [&] { return open(path.c_str(), flags, 0); }));
      if (storage) ReadStorage(*storage);
    }
  }
  ReadThroughOthers();
  Inspect();
  EXPECT_TRUE(ReadFile(path) == before) << "reading wrote";
}

void Gauntlet::ReadStorage(aoStorage& storage) {
  WalkRoots(storage);
  for (const char* name : kRoots) {
    Do("subfolders", [&] { return storage.GetSubfolderCount(name); });
    Do("entry", [&] { return storage.GetEntry(name, 1); });
    Do("entry", [&] { return storage.GetEntry(name, std::int64_t{1}); });
    Do("entry", [&] { return storage.GetEntry(name, 1.0); });
    Do("entry", [&] { return storage.GetEntry(name, "none"); });
    Do("entry", [&] { return storage.GetEntryFast(name, "none"); });
    char erased[100];
    Do("erased entry", [&] { return storage.GetEntryErasedOld(name, erased, sizeof erased); });
    Do("find", [&] { return Opened(storage.FindRootStream(name)); });
    Do("find", [&] { return Opened(storage.FindRootStorage(name)); });
    Do("find", [&] { return Opened(storage.FindRootStorageWrite(name)); });
    Do("fast", [&] { return Opened(storage.OpenStreamFast(name, kReadFlags)); });
    const Stream stream(Do("open", [&] { return storage.OpenStream(name, kReadFlags); }));
    if (stream) ReadStream(*stream, 0);
  }
  Do("drop", [&] { return storage.RemoveStream("sound"); });
}

void Gauntlet::WalkRoots(aoStorage& storage) {
  for (const int sorted : {0, 1}) {
    storage.EnableSorting(sorted, sorted);
    for (const StreamCookie wild : {StreamCookie{-2}, StreamCookie{7}, StreamCookie{1} << 33}) {
      StreamCookie cookie = wild;
      Do("wild cookie", [&] { return Opened(storage.OpenStreamNext(cookie, kReadFlags)); });
    }
    StreamCookie cookie = 0;
    bool more = Do("first", [&] { return Opened(storage.OpenStreamFirst(cookie, kReadFlags)); });
    for (int i = 0; more && i < kMostSteps; ++i)
      more = Do("next", [&] { return Opened(storage.OpenStreamNext(cookie, kReadFlags)); });
  }
  int position = 0;
  Do("first by name", [&] { return Opened(storage.OpenStreamFirst2(position, kReadFlags)); });
  Do("next by name", [&] { return Opened(storage.OpenStreamNext2(position, kReadFlags)); });
  CIterateSortedStreams iteration;
  for (int i = 0; i < kMostSteps; ++i)
    Do("sorted", [&] { return storage.IterateSortedStreamsNoOPENS(&iteration); });
  const Stream walking(Do("slot", [&] { return storage.OpenStreamFirst(kReadFlags); }));
  bool more = walking != nullptr;
  for (int i = 0; more && i < kMostSteps; ++i)
    more = Do("go next", [&] { return walking->GoNext(); });
  for (const std::uint32_t place : kPlaces) {
    const tag_aoStreamOffset locator{place + 44, place, 64, 0};
    Do("offset", [&] { return Opened(storage.OpenStreamByOffset(locator, "target", kReadFlags)); });
  }
}

void Gauntlet::ReadStream(aoStream& stream, int depth) {
  char buffer[512];
  std::uint32_t got = 0;
  for (int i = 0; i < kMostSteps; ++i) {
    got = Do("read", [&] { return stream.Read(buffer, sizeof buffer); });
    if (got == 0 || got == kFailed) break;
  }
  for (const std::uint32_t place : kPlaces) {
    for (std::uint8_t origin = 0; origin < 3; ++origin)
      Do("seek", [&] { return stream.Seek(place, origin, place % 2 == 0); });
    Do("seek", [&] { return stream.Seek2(static_cast<std::int32_t>(place), place % 3); });
    Do("read", [&] { return stream.Read(buffer, place % 600); });
  }
  stream.Seek(0, 0);
  std::int64_t number = 0;
  std::string text;
  Do("value", [&] { return &(stream >> number); });
  Do("value", [&] { return &(stream >> text); });
  std::uint8_t* whole = nullptr;
  stream.Seek(0, 0);
  Do("to buffer", [&] { return stream.CopyStreamToBuffer(whole); });
  aoStream::FreeBuffer(whole);
  aoStream2 memory;
  stream.Seek(0, 0);
  Do("to memory", [&] { return stream.CopyStream(&memory); });
  CAoStreamFile file(&stream);
  Do("as file", [&] { return file.Seek(1, 0); });
  Do("as file", [&] { return file.Read(buffer, 9); });
  ReadFolder(stream, depth);
}

void Gauntlet::ReadFolder(aoStream& folder, int depth) {
  tag_aoStream header;
  tag_aoStreamOffset offset;
  for (const char* name : kChildren) {
    Do("find child", [&] { return folder.FindStream(name, header, offset); });
    Do("entry", [&] { return folder.GetEntry(name, 1); });
    Do("entry", [&] { return folder.GetEntry(name, 1U); });
    Do("entry", [&] { return folder.GetEntry(name, std::int64_t{1}); });
    Do("entry", [&] { return folder.GetEntry(name, 1.0); });
    Do("entry", [&] { return folder.GetEntry(name, "none"); });
    tagSIZE size{};
    Do("entry", [&] { return folder.GetEntry(name, &size, nullptr); });
    tagRECT area{};
    Do("entry", [&] { return folder.GetEntry(name, &area, nullptr); });
    std::uint8_t* bytes = nullptr;
    std::uint32_t count = 0;
    Do("erased entry", [&] { return folder.GetEntryErasedOld(name, &bytes, &count); });
    aoStream::FreeBuffer(bytes);
    const Stream child(Do("open child", [&] { return folder.OpenStream(name, kReadFlags); }));
    if (child && depth < 3) ReadStream(*child, depth + 1);
  }
  if (folder.IsFolder() == 0) return;
  std::vector<std::string> names;
  Do("names", [&] { return folder.EnumStreams(names), 0; });
  for (std::uint32_t cookie : kPlaces)
    Do("wild cookie", [&] { return Opened(folder.OpenStreamNext(cookie, kReadFlags)); });
  std::uint32_t cookie = 0;
  Stream child(Do("first child", [&] { return folder.OpenStreamFirst(cookie, kReadFlags); }));
  for (int i = 0; child && i < kMostSteps; ++i) {
    // Depth first, and breadth where names are not the known ones.
    if (depth < 3 && i == 0) ReadFolder(*child, depth + 1);
    child.reset(Do("next child", [&] { return folder.OpenStreamNext(cookie, kReadFlags); }));
  }
}

void Gauntlet::ReadThroughOthers() {
  std::uint8_t buffer[100];
  CCompStgFile facade;
  Do("facade", [&] { return facade.Open(path.c_str(), 1); });
  for (const char* name : {"target", "folder"}) {
    Do("facade", [&] { return facade.OpenGenericStreams(name, "child"); });
    Do("facade", [&] { return facade.GetStreamSize(); });
    Do("facade", [&] { return facade.ReadGenericStream(buffer, 100); });
    Do("facade", [&] { return facade.ReadGenericChildStream(buffer, 100); });
    Do("facade", [&] { return facade.ReadTagSeekBack(buffer, 100); });
    Do("facade", [&] { return facade.SeekForward(0x80000000); });
    Do("facade", [&] { return facade.GoToEndOfGenericChildStream(); });
    aoStream* child = nullptr;
    for (int i = 0; i < kMostSteps; ++i) {
      Do("facade", [&] { return facade.GetNextChildStreamName(child); });
      if (child == nullptr) break;
    }
    Stream{child};
  }
  facade.CloseStream();
  bool more = true;
  for (int i = 0; more && i < kMostSteps; ++i)
    more = Do("facade", [&] { return facade.OpenNextGenericStream(); }) != 0;
  Do("facade", [&] { return facade.OpenNextStream(); });
  for (int i = 0; i < kMostSteps; ++i)
    Do("facade", [&] { return facade.GetNextStreamName(kReadFlags); });
  facade.Close();
  const Storage storage(aoStorage::Open(path.c_str(), kReadFlags, 0));
  if (!storage) return;
  CPathLoader loader;
  for (const char* way : {"target", "folder/child", "folder/sub/child", "folder/..", "none/x"})
    Do("path", [&] { return loader.GetStreamByPath(storage.get(), way, 0, 0); });
  const Stream folder(storage->OpenStream("folder", kReadFlags));
  Do("path", [&] { return loader.GetSubStreamByPath(folder.get(), "sub/child", 0, 0); });
}

void Gauntlet::Inspect() {
  for (const bool salvage : {false, true}) {
    InspectOptions options;
    options.salvage = salvage;
    const auto found = Do("inspect", [&] { return Inspection::Of(path.c_str(), options); });
    if (!found) {
      EXPECT_FALSE(salvage) << LastError().text;
      continue;
    }
    std::uint64_t end = 0, given = 0;
    Do("records", [&] {
      return found->ForEachRecord([&](const Record& record) {
        if (record.state == RecordState::kOverlapping && record.block == kNoIndex) return true;
        EXPECT_EQ(record.offset, end);
        end = record.offset + record.size;
        return true;
      });
    });
    EXPECT_EQ(end, found->FileSize());
    const auto streams = static_cast<std::uint32_t>(found->Streams().size());
    for (std::uint32_t i = 0; i < streams; i += 1 + streams / 50) {
      Do("path of", [&] { return found->PathOf(i).size(); });
      Do("bytes of", [&] {
        return found->ReadStream(i, [&](const void*, std::size_t count) {
          given += count;
          return true;
        });
      });
    }
    EXPECT_LE(given, std::uint64_t{50} * (found->FileSize() + 1));
  }
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
  const Storage made(Do("create", [&] { return aoStorage::Create(path.c_str(), 0, 0); }));
  EXPECT_EQ(std::filesystem::file_size(path), kEmptyFileSize);
}

void Gauntlet::WriteRoots(aoStorage& storage) {
  for (const char* name : {"new", "gone", "f", "target"}) {
    for (const std::uint32_t kind : {PackKind(false), kFolder}) {
      Stream made(Do("create", [&] { return storage.CreateStream(name, kind, kWriteFlags); }));
      if (made && kind == kFolder) WriteFolder(*made);
      if (made && kind != kFolder) WritePlain(*made);
      if (made && Do("remove", [&] { return made->Remove(); })) static_cast<void>(made.release());
    }
    Do("set", [&] { return storage.SetEntry(name, "text"); });
    Do("set", [&] { return storage.SetEntryFast(name, 5.5); });
    Do("set", [&] { return storage.SetEntryEraseOld(name, "0123456789", 10); });
  }
  Do("set", [&] { return storage.SetEntry("number", 7); });
  Do("fast", [&] { return Opened(storage.CreateStreamFast("fast", kWriteFlags)); });
  Do("fast", [&] { return Opened(storage.OpenOrCreateStreamFast("fast", 1)); });
  for (const char* name : {"target", "folder"}) {
    Stream stream(Do("open", [&] { return storage.OpenOrCreateStream(name, 0); }));
    if (!stream) continue;
    WriteFolder(*stream);
    if (stream->IsFolder() == 0) WritePlain(*stream);
    const Stream copy(storage.OpenOrCreateStream("copy", 0));
    if (copy) Do("copy", [&] { return stream->CopyStream(copy.get()); });
    Do("rename", [&] { return stream->Rename("renamed"); });
    Do("clear", [&] { return stream->ClearFolder(), 0; });
    if (Do("remove", [&] { return stream->Remove(); })) static_cast<void>(stream.release());
  }
}

void Gauntlet::WritePlain(aoStream& stream) {
  const Bytes data = Pattern(300);
  const auto write = [&](std::uint32_t count, bool final) {
    Do("write", [&] { return stream.Write(data.data(), count, final); });
  };
  write(20, false);
  stream.Seek(0, 0);
  write(170, false);
  Do("seek", [&] { return stream.Seek(0, 1); });
  write(300, false);
  stream.Seek(30, 0);
  write(0, true);
  write(5, true);
  Do("value", [&] { return &(stream << "text"); });
  Do("shorten", [&] { return stream.SetLength(stream.GetLength() / 2); });
  Do("lengthen", [&] { return stream.SetLength(0x7FFFFFFF); });
  Do("erase", [&] { return stream.Erase(); });
  write(40, false);
}

void Gauntlet::WriteFolder(aoStream& folder) {
  for (const char* name : kChildren) {
    Do("set", [&] { return folder.SetEntry(name, 77); });
    const tagRECT area{1, 2, 3, 4};
    Do("set", [&] { return folder.SetEntry(name, &area); });
    Do("set", [&] { return folder.SetEntry(name, "text"); });
    Do("log", [&] { return folder.SetEntry(name, "012345", 6); });
    Do("set", [&] { return folder.SetEntryEraseOld(name, "0123456789", 10); });
    Stream child(
        Do("open child", [&] { return folder.OpenOrCreateStream(name, kFolder, kWriteFlags); }));
    if (!child) continue;
    if (child->IsFolder() == 0) WritePlain(*child);
    Do("make", [&] { return Opened(child->CreateStream("x", PackKind(false), kWriteFlags)); });
    Do("rename", [&] { return child->Rename("other"); });
    if (Do("remove", [&] { return child->Remove(); })) static_cast<void>(child.release());
  }
  tag_aoStream header;
  tag_aoStreamOffset offset;
  Do("header", [&] { return folder.AddStreamHeader("added", 0, header, offset); });
  Do("make", [&] { return Opened(folder.CreateStream("gone", kFolder, kWriteFlags)); });
}

void Gauntlet::WriteThroughOthers() {
  const Bytes data = Pattern(100);
  CCompStgFile facade;
  if (Do("facade", [&] { return facade.Open(path.c_str(), 2); }) == 0) return;
  for (const char* name : {"target", "folder"}) {
    Do("facade", [&] { return facade.OpenOrCreateGenericStream(name, 1, 0); });
    Do("facade", [&] { return facade.WriteGenericStream(data.data(), 100); });
    Do("facade", [&] { return facade.WriteGenericChildStream("child", data.data(), 100, 1, 1); });
    Do("facade", [&] { return facade.OpenGenericStreams(name, "child"); });
    Do("facade", [&] { return facade.WriteGenericChildOpenedStream(data.data(), 100, 1); });
    Do("facade", [&] { return facade.RemoveGenericChildStream(name, "child"); });
    Do("facade", [&] { return facade.RemoveGenericStream(name); });
  }
  facade.Close();
  const Storage storage(aoStorage::OpenOrCreate(path.c_str(), kWriteFlags, 10));
  if (!storage) return;
  CPathLoader loader;
  for (const char* way : {"target/x", "folder/child", "folder/sub/child", "none/x"}) {
    Do("path", [&] { return loader.GetStreamByPath(storage.get(), way, 1, 1); });
    Do("path", [&] { return loader.DeleteStreamByPath(storage.get(), way); });
  }
  loader.CloseOpenStorages();
}

void Gauntlet::Carry(const Bytes& bytes, bool sound) {
  WriteFile(path, bytes);
  const std::string goal = path + "_goal";
  for (const char* name : kRoots) {  // into another storage, then within this one
    const Storage storage(aoStorage::Open(path.c_str(), kWriteFlags, 0));
    if (!storage) break;
    const Stream from(storage->OpenStream(name, kReadFlags));
    if (!from) continue;
    const std::uint32_t kind = PackKind(from->IsFolder() != 0);
    const bool mayFail = !sound || from->GetLength() == 0;
    {
      const Storage other(aoStorage::Create(goal.c_str(), 0, 0));
      const Stream to(other->CreateStream("copy", kind, kWriteFlags));
      second = goal;
      EXPECT_TRUE(Do("copy", [&] { return from->CopyFolder(to.get()); }) || mayFail) << name;
    }
    second.clear();
    EXPECT_LE(SizeOf(goal), MostOutput(bytes.size())) << name;
    const Stream to(storage->CreateStream("copy", kind, kWriteFlags));
    from->Seek(0, 0);
    if (to) Do("copy", [&] { return from->CopyFolder(to.get()); });
    EXPECT_LE(SizeNow(), bytes.size() + MostOutput(bytes.size())) << name;
    WriteFile(path, bytes);
  }
  Storage storage(aoStorage::Open(path.c_str(), kReadFlags, 0));
  if (storage) {
    aoStorage* const before = storage.get();
    storage.reset(Do("rebuild", [&, old = storage.release()] {
      return aoStorage::Recreate(old, goal.c_str());
    }));
    EXPECT_TRUE(storage.get() != before || !sound) << LastError().text;
    EXPECT_LE(SizeOf(goal), MostOutput(bytes.size()));
  }
  storage.reset();
  EXPECT_TRUE(ReadFile(path) == bytes) << "a rebuild to another path wrote to its source";
  const int replaced = Do("rebuild", [&] { return aoStorage::Recreate(path.c_str()); });
  EXPECT_TRUE(replaced == 1 || !sound) << LastError().text;
  if (replaced == 1)
    EXPECT_LE(SizeNow(), MostOutput(bytes.size()));
  else
    EXPECT_TRUE(ReadFile(path) == bytes) << "a refused rebuild wrote";
  EXPECT_FALSE(std::filesystem::exists(path + "_tmp") || std::filesystem::exists(goal + "_tmp"));
}

}  // namespace aostorage::testing
