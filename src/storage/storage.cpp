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

using detail::Attempt;
using detail::Fail;
using detail::Guarded;
using detail::Operation;
using detail::RootStreams;
using detail::StorageCore;
using detail::StreamCore;
using detail::StreamMaker;

namespace {

bool IsUsablePath(const char* fileName) {
  return (fileName != nullptr && *fileName != '\0') || Fail(ErrorCode::kNameUnusable);
}

}  // namespace

aoStorage::aoStorage(std::shared_ptr<StorageCore> openCore) : core(std::move(openCore)) {}
aoStorage::~aoStorage() = default;

// Runs `openCore`, which gives a StoragePointer, and wraps what it gives. The object is there
// before, so that nothing fails once the file is made.
template <typename OpenBody>
aoStorage* aoStorage::Make(const char* operationName, const char* fileName, OpenBody openCore) {
  return Guarded<aoStorage*>(operationName, nullptr, [&]() -> aoStorage* {
    if (!IsUsablePath(fileName)) return nullptr;
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
  return Make("aoStorage::Create", fileName,
              [&] { return detail::CreateStorage(fileName, defaultBlockSize); });
}

aoStorage* aoStorage::Open(const char* fileName, std::uint32_t flags,
                           std::uint32_t defaultBlockSize) {
  return Make("aoStorage::Open", fileName,
              [&] { return detail::OpenStorage(fileName, flags, defaultBlockSize, true); });
}

aoStorage* aoStorage::OpenFast(const char* fileName, std::uint32_t flags,
                               std::uint32_t defaultBlockSize) {
  return Make("aoStorage::OpenFast", fileName,
              [&] { return detail::OpenStorage(fileName, flags, defaultBlockSize, false); });
}

aoStorage* aoStorage::OpenOrCreate(const char* fileName, std::uint32_t flags,
                                   std::uint32_t defaultBlockSize) {
  return Make("aoStorage::OpenOrCreate", fileName,
              [&] { return detail::OpenOrCreateStorage(fileName, flags, defaultBlockSize); });
}

void aoStorage::Release() {
  // Streams that are still open keep what they refer to, without a file: their operations fail.
  core->file.Close();
  core->openStreams.Clear();
  delete this;
}

const char* aoStorage::GetPath() const { return core->path.c_str(); }

bool aoStorage::Sync() {
  const Operation operation("aoStorage::Sync");
  return core->file.SyncData();
}

bool aoStorage::UseMapping(bool on) {
  const Operation operation("aoStorage::UseMapping");
  return core->file.UseMapping(on);
}

aoStream* aoStorage::CreateStream(const char* name, std::uint32_t packedKind, std::uint32_t flags) {
  return StreamMaker::Make("aoStorage::CreateStream", [&] {
    return RootStreams(core).Create(name, packedKind, flags, false);
  });
}

aoStream* aoStorage::CreateStream(const char* name, std::uint32_t flags) {
  return CreateStream(name, 0, flags);
}

aoStream* aoStorage::CreateStreamFast(const char* name, std::uint32_t packedKind,
                                      std::uint32_t flags) {
  return StreamMaker::Make("aoStorage::CreateStreamFast",
                           [&] { return RootStreams(core).Create(name, packedKind, flags, true); });
}

aoStream* aoStorage::CreateStreamFast(const char* name, std::uint32_t flags) {
  return CreateStreamFast(name, 0, flags);
}

aoStream* aoStorage::OpenStream(const char* name, std::uint32_t flags) {
  return StreamMaker::Make("aoStorage::OpenStream",
                           [&] { return RootStreams(core).Open(name, flags); });
}

aoStream* aoStorage::OpenStreamFast(const char* name, std::uint32_t flags) {
  return StreamMaker::Make("aoStorage::OpenStreamFast",
                           [&] { return RootStreams(core).OpenFast(name, flags); });
}

aoStream* aoStorage::OpenStreamByOffset(const tag_aoStreamOffset& offset, const char* name,
                                        std::uint32_t flags) {
  return StreamMaker::Make("aoStorage::OpenStreamByOffset", [&]() -> std::unique_ptr<StreamCore> {
    if (!detail::IsUsableName(name)) return nullptr;
    return RootStreams(core).OpenByOffset(offset, name, flags);
  });
}

aoStream* aoStorage::OpenOrCreateStream(const char* name, std::uint32_t packedKind) {
  const Operation operation("aoStorage::OpenOrCreateStream");
  // A name that the map holds is not created anew, whatever keeps it from being opened.
  if (name != nullptr && core->streamMap.Has(name)) return OpenStream(name, kWriteFlags);
  return CreateStream(name, packedKind, kWriteFlags);
}

aoStream* aoStorage::OpenOrCreateStreamFast(const char* name, int toEnd) {
  const Operation operation("aoStorage::OpenOrCreateStreamFast");
  Attempt opening;
  aoStream* stream = OpenStreamFast(name, kWriteFlags);
  if (stream == nullptr) {
    if (opening.Code() == ErrorCode::kNotFound) opening.Forget();
    stream = CreateStreamFast(name, kWriteFlags);
    if (stream != nullptr) opening.Forget();
  }
  if (stream != nullptr && toEnd != 0) StreamMaker::CoreOf(stream)->SeekLeft(0, true);
  return stream;
}

bool aoStorage::RemoveStream(const char* name) {
  return Guarded("aoStorage::RemoveStream", false, [&] {
    if (!detail::IsUsableName(name)) return false;
    if (!core->streamMap.Has(name)) return Fail(ErrorCode::kNotFound);
    core->droppedNames.insert(name);
    core->CountOwnChange();
    return core->streamMap.Remove(name);
  });
}

}  // namespace aostorage
