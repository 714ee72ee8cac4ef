#include <cstring>

#include "entry_store.h"

namespace aobench {
namespace {

using namespace aostorage;

/// The place decides whose members are called; which of them, the size of the value: 4 bytes go as
/// a 32-bit and 8 bytes as a 64-bit integer, all else as bare bytes.
template <class Place>
bool SetIn(Place& place, const char* name, const std::uint8_t* bytes, std::size_t size) {
  if (size == sizeof(std::int32_t)) {
    std::int32_t value;
    std::memcpy(&value, bytes, sizeof value);
    return place.SetEntry(name, value) == 1;
  }
  if (size == sizeof(std::int64_t)) {
    std::int64_t value;
    std::memcpy(&value, bytes, sizeof value);
    return place.SetEntry(name, value) == 1;
  }
  return place.SetEntryEraseOld(name, bytes, static_cast<std::uint32_t>(size)) ==
         static_cast<int>(size);
}

/// An absent integer comes back as the default -1, which no benchmark stores: the caller's
/// comparison finds it.
template <class Place>
bool GetFrom(Place& place, const char* name, std::uint8_t* bytes, std::size_t size) {
  if (size == sizeof(std::int32_t)) {
    const std::int32_t value = place.GetEntry(name, std::int32_t{-1});
    std::memcpy(bytes, &value, sizeof value);
    return true;
  }
  if (size == sizeof(std::int64_t)) {
    const std::int64_t value = place.GetEntry(name, std::int64_t{-1});
    std::memcpy(bytes, &value, sizeof value);
    return true;
  }
  return place.GetEntryErasedOld(name, static_cast<void*>(bytes),
                                 static_cast<std::uint32_t>(size)) == 1;
}

StoragePtr OpenStore(const TempDir& directory) {
  return StoragePtr(aoStorage::OpenOrCreate(directory.File("store").c_str(), kWriteFlags, 0));
}

class RootStore final : public EntryStore {
 public:
  explicit RootStore(StoragePtr openStorage) : storage(std::move(openStorage)) {}
  bool Set(const std::string& name, const std::uint8_t* bytes, std::size_t size) override {
    return SetIn(*storage, name.c_str(), bytes, size);
  }
  bool Get(const std::string& name, std::uint8_t* bytes, std::size_t size) override {
    return GetFrom(*storage, name.c_str(), bytes, size);
  }
  std::size_t ScanNames() override {
    CIterateSortedStreams scan;
    std::size_t count = 0;
    while (storage->IterateSortedStreamsNoOPENS(&scan) == 1) {
      benchmark::DoNotOptimize(scan.streamName.data());
      ++count;
    }
    return count;
  }

 private:
  StoragePtr storage;
};

class FolderStore final : public EntryStore {
 public:
  FolderStore(StoragePtr openStorage, StreamPtr openFolder)
      : storage(std::move(openStorage)), folder(std::move(openFolder)) {}
  bool Set(const std::string& name, const std::uint8_t* bytes, std::size_t size) override {
    return SetIn(*folder, name.c_str(), bytes, size);
  }
  bool Get(const std::string& name, std::uint8_t* bytes, std::size_t size) override {
    return GetFrom(*folder, name.c_str(), bytes, size);
  }
  std::size_t ScanNames() override { return 0; }  // a folder has no sorted scan

 private:
  StoragePtr storage;
  StreamPtr folder;  // ends before the storage
};

}  // namespace

EntryStorePtr OpenRootStore(const TempDir& directory) {
  StoragePtr storage = OpenStore(directory);
  return storage ? std::make_unique<RootStore>(std::move(storage)) : nullptr;
}

EntryStorePtr OpenFolderStore(const TempDir& directory) {
  StoragePtr storage = OpenStore(directory);
  if (!storage) return nullptr;
  StreamPtr folder(storage->OpenOrCreateStream("folder", PackKind(true)));
  return folder ? std::make_unique<FolderStore>(std::move(storage), std::move(folder)) : nullptr;
}

}  // namespace aobench
