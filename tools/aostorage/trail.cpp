#include "trail.h"

#include <algorithm>
#include <utility>

#include <aostorage/error.h>
#include <aostorage/types.h>

namespace aotool {

std::vector<std::string> SplitPath(std::string_view path) {
  std::vector<std::string> names;
  for (std::size_t start = 0; start <= path.size();) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    names.emplace_back(path.substr(start, end - start));
    start = end + 1;
  }
  return names;
}

StreamPtr Place::Open(const std::string& name, std::uint32_t flags) const {
  return StreamPtr(folder != nullptr ? folder->OpenStream(name.c_str(), flags)
                                     : storage->OpenStream(name.c_str(), flags));
}

StreamPtr Place::Create(const std::string& name, std::uint32_t packedKind) const {
  return StreamPtr(folder != nullptr
                       ? folder->CreateStream(name.c_str(), packedKind, aostorage::kWriteFlags)
                       : storage->CreateStream(name.c_str(), packedKind, aostorage::kWriteFlags));
}

bool NameIsMissing() {
  const aostorage::ErrorCode code = aostorage::LastError().code;
  return code == aostorage::ErrorCode::kNone || code == aostorage::ErrorCode::kNotFound;
}

Trail::~Trail() { Reset(); }

bool Trail::Walk(const std::string& path, std::uint32_t flags) {
  if (path.empty() || path.back() == '/') return false;  // the loader would take the latter
  const bool write = flags == aostorage::kWriteFlags;
  walked = loader.GetStreamByPath(start.storage, path, write ? 1 : 0, 0);
  if (walked == nullptr || walked->IsFolder() != 1) {
    Reset();
    return false;
  }
  names = SplitPath(path);
  return true;
}

void Trail::Reset() {
  while (!folders.empty()) folders.pop_back();
  walked = nullptr;
  loader.CloseOpenStorages();
  names.clear();
}

Place Trail::Bottom() const {
  if (!folders.empty()) return {start.storage, folders.back().get()};
  return walked != nullptr ? Place{start.storage, walked} : start;
}

void Trail::Push(const std::string& name, StreamPtr folder) {
  names.push_back(name);
  folders.push_back(std::move(folder));
}

void Trail::Pop() {
  folders.pop_back();
  names.pop_back();
}

}  // namespace aotool
