// The life of a storage, and the public operations on root streams.
#include <memory>
#include <utility>

#include <aostorage/storage.h>
#include <aostorage/stream.h>

#include "platform/last_error.h"
#include "storage/root_streams.h"
#include "storage/storage_core.h"
#include "storage/storage_file.h"
#include "stream/stream_maker.h"

namespace aostorage {

using detail::Fail;
using detail::Guarded;
using detail::RootStreams;
using detail::StorageCore;
using detail::StreamMaker;

namespace {

bool IsUsablePath(const char* fileName) {
  return (fileName != nullptr && *fileName != '\0') || Fail(Error::kBadArgument);
}

}  // namespace

aoStorage::aoStorage(std::shared_ptr<StorageCore> openCore) : core(std::move(openCore)) {}
aoStorage::~aoStorage() = default;

// Runs `openCore`, which gives a StoragePointer, and wraps what it gives. The object is there
// before, so that nothing fails once the file is made.
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
  return Make(fileName, [&] { return detail::CreateStorage(fileName, defaultBlockSize); });
}

aoStorage* aoStorage::Open(const char* fileName, std::uint32_t flags,
                           std::uint32_t defaultBlockSize) {
  return Make(fileName,
              [&] { return detail::OpenStorage(fileName, flags, defaultBlockSize, true); });
}

aoStorage* aoStorage::OpenFast(const char* fileName, std::uint32_t flags,
                               std::uint32_t defaultBlockSize) {
  return Make(fileName,
              [&] { return detail::OpenStorage(fileName, flags, defaultBlockSize, false); });
}

aoStorage* aoStorage::OpenOrCreate(const char* fileName, std::uint32_t flags,
                                   std::uint32_t defaultBlockSize) {
  return Make(fileName,
              [&] { return detail::OpenOrCreateStorage(fileName, flags, defaultBlockSize); });
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
    if (!detail::IsUsableName(name)) return false;
    if (!core->streamMap.Has(name)) return Fail(Error::kNotFound);
    core->droppedNames.insert(name);
    core->CountOwnChange();
    return core->streamMap.Remove(name);
  });
}

}  // namespace aostorage
