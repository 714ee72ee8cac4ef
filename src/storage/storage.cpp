// The life of a storage, and the public operations on root streams.
#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <utility>

#include <aostorage/storage.h>
#include <aostorage/stream.h>

#include "platform/last_error.h"
#include "storage/root_streams.h"
#include "storage/storage_core.h"
#include "stream/stream_maker.h"

namespace aostorage {

using detail::DirectoryBlock;
using detail::Fail;
using detail::File;
using detail::Guarded;
using detail::RootStreams;
using detail::StorageCore;
using detail::StorageFileHeader;
using detail::StreamMaker;

namespace {

using CorePointer = std::shared_ptr<StorageCore>;

// Header and first directory block in the longer of the two forms.
constexpr std::size_t kHeadSize = StorageFileHeader::kSize + DirectoryBlock::kSize;

bool IsUsablePath(const char* fileName) {
  return (fileName != nullptr && *fileName != '\0') || Fail(Error::kBadArgument);
}

File OpenExisting(const std::string& path, std::uint32_t flags) {
  return File::Open(path,
                    (flags & kStreamWrite) != 0 ? File::Access::kReadWrite : File::Access::kRead);
}

void MapSlots(StorageCore& storage, std::uint32_t blockOffset, const DirectoryBlock& block) {
  for (std::uint32_t i = 0; i < block.SlotCount(); ++i) {
    if (!block.SlotInUse(i)) continue;
    const tag_aoStream header = block.Slot(i);
    if (!detail::HasTerminatedName(header)) continue;  // damage: nothing can ask for it by name
    storage.streamMap.Store(header.name, {DirectoryBlock::SlotOffset(blockOffset, i), blockOffset,
                                          block.SlotCount(), detail::DurationSeconds(header)});
  }
}

// Reads the directory behind its first block into the map. At damage it ends; what was read stays.
void LoadFurtherBlocks(StorageCore& storage) {
  DirectoryBlock block;
  for (bool atEnd = false; storage.directory.ReadNext(storage.file, block, atEnd) && !atEnd;) {
    MapSlots(storage, storage.directory.LastKnownOffset(), block);
  }
}

CorePointer OpenCore(const char* fileName, File file, std::uint32_t defaultBlockSize,
                     bool withMap) {
  std::array<std::uint8_t, kHeadSize> head;
  const std::size_t wanted = withMap ? kHeadSize : StorageFileHeader::kSize;
  const std::optional<std::size_t> got = file.ReadAt(0, head.data(), wanted);
  if (!got) return nullptr;
  const auto header =
      *got < StorageFileHeader::kSize ? std::nullopt : StorageFileHeader::Decode(head.data());
  if (!header) return Fail(Error::kNotAStorage), nullptr;
  auto storage =
      std::make_shared<StorageCore>(fileName, std::move(file), *header, defaultBlockSize);
  if (!withMap) return storage;
  if (*got < header->firstDirectoryOffset + DirectoryBlock::kSize)
    return Fail(Error::kDamaged), storage;
  DirectoryBlock first;
  std::memcpy(first.Data(), head.data() + header->firstDirectoryOffset, DirectoryBlock::kSize);
  if (!first.HasMagic()) return Fail(Error::kDamaged), storage;
  storage->directory.NoteFirst(first);
  MapSlots(*storage, header->firstDirectoryOffset, first);
  LoadFurtherBlocks(*storage);
  return storage;
}

CorePointer OpenExistingCore(const char* fileName, std::uint32_t flags,
                             std::uint32_t defaultBlockSize, bool withMap) {
  File file = OpenExisting(fileName, flags);
  return file.IsOpen() ? OpenCore(fileName, std::move(file), defaultBlockSize, withMap) : nullptr;
}

// Writes header and directory of a new storage into an empty file.
CorePointer CreateIn(const char* fileName, File file, std::uint32_t defaultBlockSize) {
  const StorageFileHeader header;
  const auto headerBytes = header.Encode();
  const DirectoryBlock first = DirectoryBlock::ForNewFile(header.slotsPerDirectory);
  const std::array<detail::Stretch, 2> stretches{
      {{headerBytes.data(), headerBytes.size()}, {first.Data(), DirectoryBlock::kSize}}};
  if (!file.WriteAt(0, stretches.data(), stretches.size())) return nullptr;
  auto storage = std::make_shared<StorageCore>(fileName, std::move(file), header, defaultBlockSize);
  storage->directory.NoteFirst(first);
  return storage;
}

// Makes the file, which must not be there. One that cannot be made a storage is taken away again.
CorePointer CreateNew(const char* fileName, std::uint32_t defaultBlockSize) {
  File file = File::Open(fileName, File::Access::kCreateNew);
  if (!file.IsOpen()) return nullptr;
  CorePointer storage;
  try {
    storage = CreateIn(fileName, std::move(file), defaultBlockSize);
  } catch (const std::bad_alloc&) {
    Fail(Error::kNoMemory);
  }
  if (storage == nullptr) File::Delete(fileName);
  return storage;
}

// Makes a file that is not there, or opens what came to stand there meanwhile: a file of somebody
// who was faster, or one behind a symbolic link that led nowhere. `made` receives a storage in a
// file of this call.
File CreateOrOpen(const char* fileName, std::uint32_t defaultBlockSize, CorePointer& made) {
  made = CreateNew(fileName, defaultBlockSize);
  if (made != nullptr || LastError() != Error::kExists) return {};
  return File::Open(fileName, File::Access::kCreate);
}

CorePointer CreateCore(const char* fileName, std::uint32_t defaultBlockSize) {
  CorePointer made;
  File file = File::Open(fileName, File::Access::kReadWrite);
  if (!file.IsOpen() && LastError() == Error::kNotFound)
    file = CreateOrOpen(fileName, defaultBlockSize, made);
  if (made != nullptr || !file.IsOpen()) return made;
  if (file.KnownSize() > 0 && !file.Clear()) return nullptr;
  return CreateIn(fileName, std::move(file), defaultBlockSize);
}

// Never empties a file: whoever made one in the meantime keeps it.
CorePointer OpenOrCreateCore(const char* fileName, std::uint32_t flags,
                             std::uint32_t defaultBlockSize) {
  CorePointer made;
  File file = OpenExisting(fileName, flags);
  if (!file.IsOpen() && LastError() == Error::kNotFound) {
    file = CreateOrOpen(fileName, defaultBlockSize, made);
  } else if (file.IsOpen() && file.KnownSize() == 0) {
    file = File::Open(fileName, File::Access::kReadWrite);
  }
  if (made != nullptr || !file.IsOpen()) return made;
  if (file.KnownSize() == 0) return CreateIn(fileName, std::move(file), defaultBlockSize);
  return OpenCore(fileName, std::move(file), defaultBlockSize, true);
}

}  // namespace

aoStorage::aoStorage(std::shared_ptr<StorageCore> openCore) : core(std::move(openCore)) {}
aoStorage::~aoStorage() = default;

// Runs `openCore`, which gives a CorePointer, and wraps what it gives. The object is there before,
// so that nothing fails once the file is made.
template <typename OpenBody>
aoStorage* aoStorage::Make(const char* fileName, OpenBody openCore) {
  if (!IsUsablePath(fileName)) return nullptr;
  return Guarded<aoStorage*>(nullptr, [&]() -> aoStorage* {
    struct Ender {
      void operator()(aoStorage* storage) const { delete storage; }
    };
    std::unique_ptr<aoStorage, Ender> storage(new aoStorage(nullptr));
    storage->core = openCore();
    return storage->core == nullptr ? nullptr : storage.release();
  });
}

aoStorage* aoStorage::Create(const char* fileName, std::uint32_t /*flags*/,
                             std::uint32_t defaultBlockSize) {
  return Make(fileName, [&] { return CreateCore(fileName, defaultBlockSize); });
}

aoStorage* aoStorage::Open(const char* fileName, std::uint32_t flags,
                           std::uint32_t defaultBlockSize) {
  return Make(fileName, [&] { return OpenExistingCore(fileName, flags, defaultBlockSize, true); });
}

aoStorage* aoStorage::OpenFast(const char* fileName, std::uint32_t flags,
                               std::uint32_t defaultBlockSize) {
  return Make(fileName, [&] { return OpenExistingCore(fileName, flags, defaultBlockSize, false); });
}

aoStorage* aoStorage::OpenOrCreate(const char* fileName, std::uint32_t flags,
                                   std::uint32_t defaultBlockSize) {
  return Make(fileName, [&] { return OpenOrCreateCore(fileName, flags, defaultBlockSize); });
}

void aoStorage::Release() {
  // Streams that are still open keep what they refer to, without a file: their operations fail.
  core->file.Close();
  core->openStreams.Clear();
  delete this;
}

const char* aoStorage::GetPath() const { return core->path.c_str(); }

aoStream* aoStorage::CreateStream(const char* name, std::uint32_t packedKind, std::uint32_t flags) {
  return StreamMaker::Make(
      [&] { return RootStreams(core).Create(name, packedKind, flags, false); });
}

aoStream* aoStorage::CreateStream(const char* name, std::uint32_t flags) {
  return CreateStream(name, 0, flags);
}

aoStream* aoStorage::CreateStreamFast(const char* name, std::uint32_t packedKind,
                                      std::uint32_t flags) {
  return StreamMaker::Make([&] { return RootStreams(core).Create(name, packedKind, flags, true); });
}

aoStream* aoStorage::CreateStreamFast(const char* name, std::uint32_t flags) {
  return CreateStreamFast(name, 0, flags);
}

aoStream* aoStorage::OpenStream(const char* name, std::uint32_t flags) {
  return StreamMaker::Make([&] { return RootStreams(core).Open(name, flags); });
}

aoStream* aoStorage::OpenStreamFast(const char* name, std::uint32_t flags) {
  return StreamMaker::Make([&] { return RootStreams(core).OpenFast(name, flags); });
}

aoStream* aoStorage::OpenStreamByOffset(const tag_aoStreamOffset& offset, const char* name,
                                        std::uint32_t flags) {
  if (!detail::IsUsableName(name)) return nullptr;
  return StreamMaker::Make([&] { return RootStreams(core).OpenByOffset(offset, name, flags); });
}

aoStream* aoStorage::OpenOrCreateStream(const char* name, std::uint32_t packedKind) {
  // A name that the map holds is not created anew, whatever keeps it from being opened.
  if (name != nullptr && core->streamMap.Has(name)) return OpenStream(name, kWriteFlags);
  return CreateStream(name, packedKind, kWriteFlags);
}

aoStream* aoStorage::OpenOrCreateStreamFast(const char* name, int toEnd) {
  aoStream* stream = OpenStreamFast(name, kWriteFlags);
  if (stream == nullptr) stream = CreateStreamFast(name, kWriteFlags);
  if (stream != nullptr && toEnd != 0) StreamMaker::CoreOf(stream)->SeekLeft(0, true);
  return stream;
}

bool aoStorage::RemoveStream(const char* name) {
  return Guarded(false, [&] {
    return detail::IsUsableName(name) && (core->streamMap.Remove(name) || Fail(Error::kNotFound));
  });
}

}  // namespace aostorage
