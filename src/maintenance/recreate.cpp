// The public operations that rebuild a storage file.
#include <string>

#include <aostorage/storage.h>

#include "maintenance/rebuild.h"
#include "platform/last_error.h"

namespace aostorage {

using detail::Fail;
using detail::Guarded;
using detail::Operation;
using detail::Rebuild;
using Outcome = detail::Replacement::Outcome;

namespace {

constexpr const char* kOperation = "aoStorage::Recreate";

Outcome RunRebuild(const detail::StoragePointer& source, const std::string& path,
                   Rebuild::Where where, const RebuildProgress& progress) {
  return Guarded(Outcome::kNothingReplaced,
                 [&] { return Rebuild(source, progress).Run(path, where); });
}

bool IsUsablePath(const char* path) {
  return (path != nullptr && *path != '\0') || Fail(ErrorCode::kNameUnusable);
}

}  // namespace

aoStorage* aoStorage::Recreate(aoStorage* storage, const char* path) {
  return Recreate(storage, path, RebuildProgress());
}

aoStorage* aoStorage::Recreate(aoStorage* storage, const char* path,
                               const RebuildProgress& progress) {
  const Operation operation(kOperation);
  if (storage == nullptr) return Fail(ErrorCode::kBadArgument), nullptr;
  if (!IsUsablePath(path)) return storage;
  return Guarded(storage, [&] {
    const std::string target(path);  // the pointer may be into the storage that ends here
    const Outcome outcome = RunRebuild(storage->core, target, Rebuild::Where::kAnywhere, progress);
    if (outcome == Outcome::kNothingReplaced) return storage;
    // Opened while the old object still has its memory: the caller tells success by the pointer.
    aoStorage* const rebuilt =
        outcome == Outcome::kReplaced ? Open(target.c_str(), kWriteFlags, 0) : nullptr;
    storage->Release();
    return rebuilt;
  });
}

int aoStorage::Recreate(const char* path) { return Recreate(path, RebuildProgress()); }

int aoStorage::Recreate(const char* path, const RebuildProgress& progress) {
  const Operation operation(kOperation);
  aoStorage* storage = Open(path, kReadFlags, 0);
  if (storage == nullptr) return 0;
  const Outcome outcome = Guarded(Outcome::kNothingReplaced, [&] {
    return RunRebuild(storage->core, storage->core->path, Rebuild::Where::kInPlace, progress);
  });
  storage->Release();
  return outcome == Outcome::kReplaced ? 1 : 0;
}

}  // namespace aostorage
