#include "storage/storage_file.h"

#include <array>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

#include "platform/last_error.h"
#include "platform/standing.h"

namespace aostorage::detail {
namespace {

// Header and first directory block in the longer of the two forms.
constexpr std::size_t kHeadSize = StorageFileHeader::kSize + DirectoryBlock::kSize;

File OpenExisting(const std::string& path, std::uint32_t flags) {
  return File::Open(path,
                    (flags & kStreamWrite) != 0 ? File::Access::kReadWrite : File::Access::kRead);
}

void MapSlots(StorageCore& storage, std::uint32_t blockOffset, const DirectoryBlock& block) {
  for (std::uint32_t i = 0; i < block.SlotCount(); ++i) {
    if (!block.SlotInUse(i)) continue;
    const tag_aoStream header = block.Slot(i);
    if (!HasTerminatedName(header)) continue;  // damage: nothing can ask for it by name
    storage.streamMap.Store(header.name, {DirectoryBlock::SlotOffset(blockOffset, i), blockOffset,
                                          block.SlotCount(), DurationSeconds(header)});
  }
}

// Reads the directory behind its first block into the map. At damage it ends; what was read stays.
void LoadFurtherBlocks(StorageCore& storage) {
  DirectoryBlock block;
  for (bool atEnd = false; storage.directory.ReadNext(storage.file, block, atEnd) && !atEnd;) {
    MapSlots(storage, storage.directory.LastKnownOffset(), block);
  }
}

}  // namespace

StoragePointer OpenStorageIn(const std::string& fileName, File file, std::uint32_t defaultBlockSize,
                             bool withMap) {
  std::array<std::uint8_t, kHeadSize> head;
  const std::size_t wanted = withMap ? kHeadSize : StorageFileHeader::kSize;
  const std::optional<std::size_t> got = file.ReadAt(0, head.data(), wanted);
  if (!got) return nullptr;
  const auto header =
      *got < StorageFileHeader::kSize ? std::nullopt : StorageFileHeader::Decode(head.data());
  if (!header) return Fail(ErrorCode::kNotAStorage, 0), nullptr;
  auto storage =
      std::make_shared<StorageCore>(fileName, std::move(file), *header, defaultBlockSize);
  if (!withMap) return storage;
  if (*got < header->firstDirectoryOffset + DirectoryBlock::kSize)
    return Fail(ErrorCode::kTruncated, header->firstDirectoryOffset), storage;
  DirectoryBlock first;
  std::memcpy(first.Data(), head.data() + header->firstDirectoryOffset, DirectoryBlock::kSize);
  if (!first.HasMagic()) return Fail(ErrorCode::kBadMagic, header->firstDirectoryOffset), storage;
  storage->directory.NoteFirst(first);
  MapSlots(*storage, header->firstDirectoryOffset, first);
  LoadFurtherBlocks(*storage);
  return storage;
}

StoragePointer CreateStorageIn(const std::string& fileName, File file,
                               std::uint32_t defaultBlockSize) {
  const StorageFileHeader header;
  const auto headerBytes = header.Encode();
  const DirectoryBlock first = DirectoryBlock::ForNewFile(header.slotsPerDirectory);
  const std::array<Stretch, 2> stretches{
      {{headerBytes.data(), headerBytes.size()}, {first.Data(), DirectoryBlock::kSize}}};
  if (!file.WriteAt(0, stretches.data(), stretches.size())) return nullptr;
  auto storage = std::make_shared<StorageCore>(fileName, std::move(file), header, defaultBlockSize);
  storage->directory.NoteFirst(first);
  return storage;
}

namespace {

// Makes the file, which must not be there, at `place`. One that cannot be made a storage is taken
// away again.
StoragePointer CreateNew(const std::string& fileName, const std::string& place,
                         std::uint32_t defaultBlockSize) {
  File file = File::Open(place, File::Access::kCreateNew);
  if (!file.IsOpen()) return nullptr;
  StoragePointer storage;
  try {
    storage = CreateStorageIn(fileName, std::move(file), defaultBlockSize);
  } catch (const std::bad_alloc&) {
    Fail(ErrorCode::kNoMemory);
  }
  if (storage == nullptr) File::Delete(place);
  return storage;
}

// Makes a file that is not there, also at the end of a symbolic link that led nowhere, or opens
// what came to stand there meanwhile, of somebody who was faster. `made` receives a storage in a
// file of this call.
File CreateOrOpen(const std::string& fileName, std::uint32_t defaultBlockSize,
                  StoragePointer& made) {
  const auto isThere = [&](const std::string& place) {
    Attempt making;
    made = CreateNew(fileName, place, defaultBlockSize);
    if (made != nullptr || making.Code() != ErrorCode::kExists) return false;
    making.Forget();
    return true;
  };
  if (!isThere(fileName)) return {};
  Standing end;
  if (!Standing::Look(fileName, end)) return {};
  if (!end.exists && !isThere(end.path)) return {};
  return File::Open(fileName, File::Access::kReadWrite);
}

}  // namespace

StoragePointer OpenStorage(const std::string& fileName, std::uint32_t flags,
                           std::uint32_t defaultBlockSize, bool withMap) {
  File file = OpenExisting(fileName, flags);
  return file.IsOpen() ? OpenStorageIn(fileName, std::move(file), defaultBlockSize, withMap)
                       : nullptr;
}

StoragePointer CreateStorage(const std::string& fileName, std::uint32_t defaultBlockSize) {
  StoragePointer made;
  Attempt opening;
  File file = File::Open(fileName, File::Access::kReadWrite);
  if (opening.Code() == ErrorCode::kNotFound) {
    opening.Forget();
    file = CreateOrOpen(fileName, defaultBlockSize, made);
  }
  if (made != nullptr || !file.IsOpen()) return made;
  if (file.KnownSize() > 0 && !file.SetSize(0)) return nullptr;
  return CreateStorageIn(fileName, std::move(file), defaultBlockSize);
}

StoragePointer OpenOrCreateStorage(const std::string& fileName, std::uint32_t flags,
                                   std::uint32_t defaultBlockSize) {
  StoragePointer made;
  Attempt opening;
  File file = OpenExisting(fileName, flags);
  if (opening.Code() == ErrorCode::kNotFound) {
    opening.Forget();
    file = CreateOrOpen(fileName, defaultBlockSize, made);
  } else if (file.IsOpen() && file.KnownSize() == 0) {
    file = File::Open(fileName, File::Access::kReadWrite);
  }
  if (made != nullptr || !file.IsOpen()) return made;
  if (file.KnownSize() == 0) return CreateStorageIn(fileName, std::move(file), defaultBlockSize);
  return OpenStorageIn(fileName, std::move(file), defaultBlockSize, true);
}

}  // namespace aostorage::detail
