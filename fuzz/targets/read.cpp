// Any bytes as a file: every reading operation changes nothing and keeps to its budget, in each way
// to open it. Then the changing operations, which may fail.
#include <filesystem>

#include <aostorage/aostorage.h>

#include "support/handles.h"
#include "support/input.h"
#include "support/meter.h"
#include "support/record_scan.h"
#include "support/scratch.h"
#include "targets/targets.h"

namespace aostorage::fuzz {
namespace {

using testing::Storage;
using testing::Stream;

// Trees in a circle, or as wide as the file allows, need not be seen whole.
constexpr int kMostStreams = 60, kMostDepth = 8, kMostSteps = 200;

class Reader {
  template <class Operation>
  auto Look(const char* label, Operation operation) {
    return measured.Reading(label, operation);
  }

 public:
  Reader(const std::string& path, const std::vector<std::string>& scannedNames)
      : measured({path}), names(scannedNames) {
    names.resize(std::min<std::size_t>(names.size(), 12));
    names.insert(names.end(), {"none", ""});
  }

  void ReadAll(aoStorage* (*open)(const char*, std::uint32_t, std::uint32_t), const char* path) {
    left = kMostStreams;
    const Storage storage(Look("open", [&] { return open(path, kStreamRead, 0); }));
    if (!storage) return;
    Walks(*storage);
    for (const std::string& name : names) Lookups(*storage, name.c_str());
  }

 private:
  template <class Operation>
  void Visit(const char* label, int depth, Operation open) {
    const Stream stream(Look(label, open));
    if (stream && --left >= 0) One(*stream, depth);
  }

  void Walks(aoStorage& storage) {
    for (const int sorted : {0, 1}) {
      storage.EnableSorting(sorted, static_cast<int>(names.size() % 2));
      StreamCookie cookie = sorted == 0 ? 0 : -1;
      Stream at(Look("first", [&] { return storage.OpenStreamFirst(cookie, kReadFlags); }));
      for (int i = 0; at && i < kMostSteps; ++i) {
        if (--left >= 0) One(*at, 0);
        at.reset(Look("next", [&] { return storage.OpenStreamNext(cookie, kReadFlags); }));
      }
      CIterateSortedStreams scan;
      scan.descending = sorted;
      for (int i = 0; i < kMostSteps; ++i) {
        if (Look("scan", [&] { return storage.IterateSortedStreamsNoOPENS(&scan); }) == 0) break;
        const char* name = scan.streamName.c_str();
        Visit("by offset", 0,
              [&] { return storage.OpenStreamByOffset(scan.streamOffset, name, kReadFlags); });
      }
    }
    int position = -1;
    for (int i = 0; i < kMostSteps; ++i) {
      const Stream at(Look("by slot", [&] {
        return i == 0 ? storage.OpenStreamFirst2(position, kReadFlags)
                      : storage.OpenStreamNext2(position, kReadFlags);
      }));
      if (!at && position < 0) break;
    }
    const Stream moving(Look("first slot", [&] { return storage.OpenStreamFirst(kReadFlags); }));
    for (int i = 0; moving && i < kMostSteps; ++i) {
      if (!Look("next slot", [&] { return moving->GoNext(); })) break;
      if (i < 3) Bytes(*moving);
    }
  }

  void Lookups(aoStorage& storage, const char* name) {
    Visit("open stream", 0, [&] { return storage.OpenStream(name, kReadFlags); });
    Visit("open fast", 0, [&] { return storage.OpenStreamFast(name, kReadFlags); });
    Visit("find storage", 0, [&] { return storage.FindRootStorage(name); });
    Visit("find stream", 0, [&] { return storage.FindRootStream(name); });
    Look("count", [&] { return storage.GetSubfolderCount(name); });
    Look("entry", [&] { return storage.GetEntry(name, std::int32_t{1}); });
    Look("entry", [&] { return storage.GetEntry(name, 1.0); });
    Look("entry", [&] { return storage.GetEntry(name, "text"); });
    Look("fast entry", [&] { return storage.GetEntryFast(name, std::int64_t{1}); });
    Look("fast entry", [&] { return storage.GetEntryFast(name, "text"); });
    Look("erased entry", [&] { return storage.GetEntryErasedOld(name, room.data(), 100); });
  }

  void One(aoStream& stream, int depth) {
    Bytes(stream);
    if (stream.IsFolder() != 0 && depth < kMostDepth) Children(stream, depth + 1);
  }

  void Bytes(aoStream& stream) {
    const auto most = static_cast<std::uint32_t>(room.size());
    for (int i = 0; i < 20; ++i) {
      const std::uint32_t got = Look("read", [&] { return stream.Read(room.data(), most); });
      if (got == 0 || got == kFailed) break;
      Require(got <= most, "Read gives more than was asked for");
    }
    for (const std::uint32_t place : {0U, 1U, 20U, 84U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
      for (std::uint8_t origin = 0; origin < 4; ++origin)
        Look("seek", [&] { return stream.Seek(place, origin, (place & 1U) == 0); });
      Look("seek 2", [&] { return stream.Seek2(static_cast<std::int32_t>(place), place & 3U); });
      Look("read", [&] { return stream.Read(room.data(), 7); });
    }
    stream.Seek(0, 0);
    std::string text;
    double number = 0;
    Look("value", [&] { return &(stream >> text); });
    Look("value", [&] { return &(stream >> number); });
    stream.Seek(0, 0);
    std::uint8_t* buffer = nullptr;
    Look("copy", [&] { return stream.CopyStreamToBuffer(buffer); });
    aoStream::FreeBuffer(buffer);
    stream.Seek(0, 0);
    aoStream2 memory;
    Look("copy", [&] { return stream.CopyStream(&memory); });
    CAoStreamFile file(&stream);
    Look("file", [&] { return file.Seek(-1, 2) + static_cast<std::int32_t>(file.GetLength()); });
    Look("file", [&] { return file.Read(room.data(), 50); });
  }

  void Children(aoStream& folder, int depth) {
    std::vector<std::string> listed;
    Look("list", [&] { return folder.EnumStreams(listed); });
    std::uint32_t cookie = 0;
    Stream child(Look("first child", [&] { return folder.OpenStreamFirst(cookie, kReadFlags); }));
    for (int i = 0; child && i < kMostSteps; ++i) {
      if (--left >= 0) One(*child, depth);
      child.reset(Look("next child", [&] { return folder.OpenStreamNext(cookie, kReadFlags); }));
    }
    for (std::uint32_t odd : {1U, 3U, 85U, 0x80000000U, 0xFFFFFFFFU})
      Visit("odd cookie", depth, [&] { return folder.OpenStreamNext(odd, kReadFlags); });
    listed.resize(std::min<std::size_t>(listed.size(), 4));
    listed.emplace_back("none");
    for (const std::string& each : listed) {
      const char* name = each.c_str();
      tag_aoStream header;
      tag_aoStreamOffset offset;
      Look("find child", [&] { return folder.FindStream(name, header, offset); });
      Visit("open child", depth, [&] { return folder.OpenStream(name, kReadFlags); });
      Look("is open", [&] { return folder.IsStreamOpen(name); });
      Look("child entry", [&] { return folder.GetEntry(name, std::int32_t{1}); });
      Look("child entry", [&] { return folder.GetEntry(name, "text"); });
      tagRECT rectangle;
      Look("child entry", [&] { return folder.GetEntry(name, &rectangle, nullptr); });
      std::uint8_t* buffer = nullptr;
      std::uint32_t size = 0;
      Look("erased child entry", [&] { return folder.GetEntryErasedOld(name, &buffer, &size); });
      aoStream::FreeBuffer(buffer);
    }
  }

  Meter measured;
  std::vector<std::string> names;
  std::vector<std::uint8_t> room = std::vector<std::uint8_t>(20000);
  int left = 0;
};

// One of each kind of change, on every name.
void Change(const std::string& path, const std::vector<std::string>& names) {
  const std::string other = ScratchPath("goal");
  Meter measured({path, other});
  const Storage goal(aoStorage::Create(other.c_str(), kWriteFlags, 0));
  const Storage storage(
      measured("open", [&] { return aoStorage::OpenOrCreate(path.c_str(), kWriteFlags, 50); }));
  if (!storage || !goal) return;
  const Bytes data = testing::Pattern(150);
  for (std::size_t i = 0; i < std::min<std::size_t>(names.size(), 8); ++i) {
    const char* name = names[i].c_str();
    Stream stream(measured("open", [&] { return storage->OpenOrCreateStream(name, 0); }));
    if (!stream) continue;
    if (stream->IsFolder() != 0) {
      const Stream copy(goal->CreateStream(name, PackKind(true), kWriteFlags));
      if (copy) {
        const auto before = std::filesystem::file_size(other);
        measured("copy folder", [&] { return stream->CopyFolder(copy.get()); });
        const auto size = std::filesystem::file_size(path);
        Require(std::filesystem::file_size(other) - before <= size + size / 4 + 65536,
                "a copy is much larger than its source");
      }
      measured("entry", [&] { return stream->SetEntry("new", std::int32_t{1}); });
      Stream made(measured("child", [&] {
        return stream->OpenOrCreateStream(names.front().c_str(), PackKind(true), kWriteFlags);
      }));
      if (made) measured("remove", [&] { return testing::Remove(made); });
      if (i % 2 == 0) measured("clear", [&] { return stream->ClearFolder(); });
    } else {
      measured("append", [&] { return stream->Seek(0, 1) + stream->Write(data.data(), 150); });
      stream->Seek(0, 0);
      measured("overwrite", [&] { return stream->Write(data.data(), 150, i % 2 == 0); });
      measured("shorten", [&] { return stream->SetLength(stream->GetLength() / 2); });
    }
    measured("rename", [&] { return stream->Rename("renamed"); });
    measured("remove", [&] { return testing::Remove(stream); });
  }
  const Stream made(measured(
      "create", [&] { return storage->CreateStream("made", PackKind(true), kWriteFlags); }));
  if (made) measured("entry", [&] { return made->SetEntry("new", "text"); });
  measured("fast entry", [&] { return storage->SetEntryFast("fast", 2.5); });
}

}  // namespace

void ReadFile(const std::uint8_t* data, std::size_t size) {
  const Bytes bytes(data, data + size);
  const std::vector<std::string> names = ScanNames(bytes);
  const std::string path = ScratchFile("file", bytes);
  {
    Reader reader(path, names);
    reader.ReadAll(aoStorage::Open, path.c_str());
    reader.ReadAll(aoStorage::OpenFast, path.c_str());
  }
  Change(path, names);
}

}  // namespace aostorage::fuzz
