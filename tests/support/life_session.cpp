// What the steps of a life run on.
#include <utility>

#include "support/allocations.h"
#include "support/life.h"

namespace aostorage::testing {
namespace {

bool IsAtOrBelow(const std::string& path, const std::string& top) {
  return path.compare(0, top.size(), top) == 0 &&
         (path.size() == top.size() || top.back() == '/' || path[top.size()] == '/');
}

}  // namespace

bool Step::Run(Session& session) const {
  ClearLastError();
  return perform(session);
}

bool Step::Changes(const std::string& streamPath) const {
  return (!path.empty() && IsAtOrBelow(streamPath, path)) ||
         (!other.empty() && IsAtOrBelow(streamPath, other));
}

bool Step::ChangesFolderAround(const std::string& streamPath) const {
  const std::size_t slash = path.rfind('/');
  return slash != std::string::npos && IsAtOrBelow(streamPath, path.substr(0, slash));
}

aoStorage* Session::Opened() {
  if (storage) return storage.get();
  storage.reset(aoStorage::Open(path.c_str(), kStreamWrite, kLifeReserve));
  if (LastError().code != ErrorCode::kNone) storage.reset();  // not all of the directory was read
  return storage.get();
}

aoStream* Session::At(const std::string& streamPath) {
  const auto known = held.find(streamPath);
  if (known != held.end()) return known->second.get();
  const std::size_t slash = streamPath.rfind('/');
  if (slash == std::string::npos) {
    aoStorage* const root = Opened();
    return root != nullptr && Keep(streamPath, root->OpenStream(streamPath.c_str(), kWriteFlags))
               ? At(streamPath)
               : nullptr;
  }
  aoStream* const folder = Around(streamPath);
  if (folder == nullptr) return nullptr;
  return Keep(streamPath, folder->OpenStream(streamPath.c_str() + slash + 1, kWriteFlags))
             ? At(streamPath)
             : nullptr;
}

aoStream* Session::Around(const std::string& streamPath) {
  return At(streamPath.substr(0, streamPath.rfind('/')));
}

bool Session::Keep(const std::string& streamPath, aoStream* stream) {
  if (stream == nullptr) return false;
  const SpareAllocations own;
  held[streamPath].reset(stream);
  return true;
}

void Session::LetGo(const std::string& streamPath, bool removed) {
  if (removed) static_cast<void>(held[streamPath].release());
  for (auto it = held.end(); it != held.begin();) {
    --it;
    if (IsAtOrBelow(it->first, streamPath)) it = held.erase(it);
  }
}

void Session::Renamed(const std::string& from, const std::string& to) {
  const SpareAllocations own;
  std::map<std::string, Stream> renamed;
  for (auto& [streamPath, stream] : held) {
    const bool below = IsAtOrBelow(streamPath, from);
    renamed[below ? to + streamPath.substr(from.size()) : streamPath] = std::move(stream);
  }
  held = std::move(renamed);
}

void Session::Close() {
  while (!held.empty()) held.erase(std::prev(held.end()));
  storage.reset();
}

}  // namespace aostorage::testing
