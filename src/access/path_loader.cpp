#include <utility>

#include <aostorage/path_loader.h>
#include <aostorage/storage.h>
#include <aostorage/stream.h>

#include "platform/last_error.h"

namespace aostorage {

using detail::Attempt;
using detail::Fail;
using detail::Guarded;
using detail::Operation;

namespace {

constexpr char kSeparator = '/';
constexpr std::uint32_t kFolderKind = PackKind(true);

// Looked at as a whole before the first step, so that nothing is created under half a path.
bool IsUsable(const std::string& path) {
  const bool emptyName =
      !path.empty() && (path.front() == kSeparator || path.find("//") != std::string::npos);
  const bool cutName = path.find('\0') != std::string::npos;
  return (!emptyName && !cutName) || Fail(ErrorCode::kNameUnusable);
}

std::uint32_t WalkFlags(std::int32_t write) { return write != 0 ? kWriteFlags : kReadFlags; }

// Keeps what `open` gives. The place for it is there before, so that no open stream gets lost.
template <typename OpenBody>
aoStream* Keep(std::vector<aoStream*>& held, OpenBody open) {
  held.push_back(nullptr);
  aoStream* const stream = open();
  if (stream == nullptr) {
    held.pop_back();
  } else {
    held.back() = stream;
  }
  return stream;
}

aoStream* OpenRoot(aoStorage& storage, const char* name, std::uint32_t flags, bool create) {
  Attempt opening;
  aoStream* const stream = storage.OpenStream(name, flags);
  // A stream that is there and does not open is no reason to create another of its name.
  if (!create || opening.Code() != ErrorCode::kNotFound) return stream;
  opening.Forget();
  return storage.CreateStream(name, kFolderKind, flags);
}

}  // namespace

CPathLoader::CPathLoader() = default;
CPathLoader::~CPathLoader() { CloseOpenStorages(); }

std::string CPathLoader::GetNextFolder(std::string& path) {
  const std::size_t slash = path.find(kSeparator);
  std::string name = path.substr(0, slash);
  path.erase(0, slash == std::string::npos ? slash : slash + 1);
  return name;
}

aoStream* CPathLoader::GetStreamByPath(aoStorage* storage, std::string path, std::int32_t write,
                                       std::int32_t create) {
  return Guarded<aoStream*>("CPathLoader::GetStreamByPath", nullptr, [&]() -> aoStream* {
    if (storage == nullptr) return Fail(ErrorCode::kBadArgument), nullptr;
    if (path.empty()) return Fail(ErrorCode::kNameUnusable), nullptr;
    if (!IsUsable(path)) return nullptr;
    const std::string name = GetNextFolder(path);
    aoStream* const root = Keep(walkStreams, [&] {
      return OpenRoot(*storage, name.c_str(), WalkFlags(write), create != 0);
    });
    return root == nullptr ? nullptr : GetSubStreamByPath(root, std::move(path), write, create);
  });
}

aoStream* CPathLoader::GetSubStreamByPath(aoStream* start, std::string path, std::int32_t write,
                                          std::int32_t create) {
  return Guarded<aoStream*>("CPathLoader::GetSubStreamByPath", nullptr, [&]() -> aoStream* {
    if (start == nullptr) return Fail(ErrorCode::kBadArgument), nullptr;
    if (!IsUsable(path)) return nullptr;
    const std::uint32_t flags = WalkFlags(write);
    aoStream* current = start;
    while (current != nullptr && !path.empty()) {
      const std::string name = GetNextFolder(path);
      current = Keep(walkStreams, [&, folder = current] {
        return create != 0 ? folder->OpenOrCreateStream(name.c_str(), kFolderKind, flags)
                           : folder->OpenStream(name.c_str(), flags);
      });
    }
    return current;
  });
}

int CPathLoader::DeleteStreamByPath(aoStorage* storage, std::string path) {
  const Operation operation("CPathLoader::DeleteStreamByPath");
  aoStream* const stream = GetStreamByPath(storage, std::move(path), 1, 0);
  const bool removed = stream != nullptr && stream->Remove();
  if (removed) walkStreams.pop_back();  // the object has ended with its stream
  CloseOpenStorages();
  return removed ? 1 : 0;
}

void CPathLoader::CloseOpenStorages() {
  for (; !walkStreams.empty(); walkStreams.pop_back())
    walkStreams.back()->Release();  // children before their folders
  if (ownedStorage != nullptr) std::exchange(ownedStorage, nullptr)->Release();
}

void CPathLoader::OwnStorage(aoStorage* storage) {
  if (storage == nullptr || storage == ownedStorage) return;
  if (ownedStorage != nullptr) CloseOpenStorages();
  ownedStorage = storage;
}

}  // namespace aostorage
