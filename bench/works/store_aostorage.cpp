#include <cstring>
#include <utility>

#include "../support.h"
#include "store.h"

namespace aobench {
namespace {

using namespace aostorage;

/// Turns the mapping on where the library has it; false where it has not.
template <class Storage>
auto TurnMappingOn(Storage& storage, int) -> decltype(storage.UseMapping(true)) {
  return storage.UseMapping(true);
}
template <class Storage>
bool TurnMappingOn(Storage&, long) {
  return false;
}

constexpr char kQuickName[] = "quick";

/// Streams at the root, values in one folder, with the calls that the README shows.
class LibraryStore final : public Store {
 public:
  explicit LibraryStore(bool useMapping) : mapped(useMapping) {}

  Outcome Create(const Plan& plan) override {
    Remember(plan);
    storage.reset(aoStorage::Create(Path().c_str(), kWriteFlags, 0));
    if (!storage || !SetMode()) return Outcome::kFailed;
    switch (plan.content) {
      case Content::kStreams:
      case Content::kStreamsToClean:
        return Outcome::kDone;
      case Content::kValues:
        if (storage->SetEntryFast(kQuickName, kQuickValue) != 1) return Outcome::kFailed;
        folder.reset(storage->CreateStream("folder", PackKind(true), kWriteFlags));
        return DoneIf(folder != nullptr);
      case Content::kPieces:
      case Content::kRecords:
        streams[0].reset(storage->CreateStream("first", kWriteFlags));
        streams[1].reset(storage->CreateStream("second", kWriteFlags));
        return DoneIf(streams[0] && streams[1]);
    }
    return Outcome::kFailed;
  }

  void Close() override {
    folder.reset();
    for (StreamPtr& stream : streams) stream.reset();
    storage.reset();
  }

  /// A stream is read from an object of its own in a file opened anew.
  Outcome BeginReads() override {
    if (!streams[0]) return Outcome::kDone;
    Close();
    storage.reset(aoStorage::Open(Path().c_str(), kReadFlags, 0));
    if (!storage || !SetMode()) return Outcome::kFailed;
    streams[0].reset(storage->OpenStream("first", kReadFlags));
    return DoneIf(streams[0] != nullptr);
  }

  Outcome Put(Key key, const void* bytes, std::size_t size) override {
    const StreamPtr stream(storage->CreateStream(key.name.c_str(), kWriteFlags));
    return DoneIf(stream && stream->Write(bytes, Count(size)) == size);
  }
  Outcome Fetch(Key key, void* bytes, std::size_t size) override {
    const StreamPtr stream(storage->OpenStream(key.name.c_str(), kReadFlags));
    return DoneIf(stream && stream->Read(bytes, Count(size)) == size);
  }
  Outcome Remove(Key key) override {
    return DoneIf(RemoveStream(StreamPtr(storage->OpenStream(key.name.c_str(), kWriteFlags))));
  }

  Outcome Set(Key key, const void* bytes, std::size_t size) override {
    const int stored = folder->SetEntryEraseOld(key.name.c_str(), bytes, Count(size));
    return DoneIf(stored == static_cast<int>(size));
  }
  Outcome SetAgain(Key key, const void* bytes, std::size_t size) override {
    return Set(key, bytes, size);
  }
  Outcome Get(Key key, void* bytes, std::size_t size) override {
    return DoneIf(folder->GetEntryErasedOld(key.name.c_str(), bytes, Count(size)) == 1);
  }
  Outcome OpenAndGet(Key key, void* bytes, std::size_t size) override {
    const StoragePtr opened(aoStorage::Open(Path().c_str(), kReadFlags, 0));
    if (!opened || (mapped && !TurnMappingOn(*opened, 0))) return Outcome::kFailed;
    const StreamPtr values(opened->OpenStream("folder", kReadFlags));
    return DoneIf(values && values->GetEntryErasedOld(key.name.c_str(), bytes, Count(size)) == 1);
  }
  /// A value in a reserved slot is found without the directory.
  Outcome OpenAndGetQuick(Key, void*, std::size_t) override {
    const StoragePtr opened(aoStorage::OpenFast(Path().c_str(), kReadFlags, 0));
    if (!opened || (mapped && !TurnMappingOn(*opened, 0))) return Outcome::kFailed;
    return DoneIf(opened->GetEntryFast(kQuickName, std::int64_t{-1}) == kQuickValue);
  }

  Outcome Append(int stream, const void* bytes, std::size_t size) override {
    return DoneIf(streams[stream]->Write(bytes, Count(size)) == size);
  }
  Outcome ReadNext(void* bytes, std::size_t size) override {
    return DoneIf(streams[0]->Read(bytes, Count(size)) == size);
  }
  Outcome ReadAt(std::uint32_t position, void* bytes, std::size_t size) override {
    return DoneIf(streams[0]->Seek(position, 0) == 0 &&
                  streams[0]->Read(bytes, Count(size)) == size);
  }

  Outcome Compact(const std::string& goal) override {
    aoStorage* const source = storage.release();
    storage.reset(aoStorage::Recreate(source, goal.c_str()));
    return DoneIf(storage && storage.get() != source);
  }

 private:
  static constexpr std::int64_t kQuickValue = 0x123456789;

  static std::uint32_t Count(std::size_t size) { return static_cast<std::uint32_t>(size); }
  std::string Path() const { return File("store"); }
  bool SetMode() { return !mapped || TurnMappingOn(*storage, 0); }

  bool mapped;
  StoragePtr storage;
  StreamPtr folder, streams[2];  // end before the storage
};

template <class Storage>
auto HasMapping(int) -> decltype(std::declval<Storage&>().UseMapping(true), true) {
  return true;
}
template <class Storage>
bool HasMapping(long) {
  return false;
}

}  // namespace

StorePtr MakeLibrary() { return std::make_unique<LibraryStore>(false); }

StorePtr MakeMappedLibrary() {
  return HasMapping<aoStorage>(0) ? std::make_unique<LibraryStore>(true) : nullptr;
}

}  // namespace aobench
