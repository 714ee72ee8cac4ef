#include "directories.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace aotool {
namespace {

// Open levels of a stack; the other descriptors are for the library and the files.
constexpr std::size_t kOpenLevels = 32;

Descriptor OpenDirectory(int parent, const std::string& name, int flags) {
  return Descriptor(
      ::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK | flags));
}

}  // namespace

Result DirectoryStack::Start(const std::string& path, bool make) {
  if (make && ::mkdir(path.c_str(), 0777) != 0 && errno != EEXIST) {
    return FromSystem(errno, "cannot make the directory '" + Shown(path) + "'");
  }
  Descriptor directory = OpenDirectory(AT_FDCWD, path, 0);
  if (directory) return Push(std::move(directory));
  Result result = FromSystem(errno, "cannot open the directory '" + Shown(path) + "'");
  if (errno == ENOENT || errno == ENOTDIR) result.code = kNotFound;
  return result;
}

Result DirectoryStack::Enter(const std::string& name) {
  Descriptor directory = OpenDirectory(Bottom(), name, O_NOFOLLOW);
  if (directory) return Push(std::move(directory));
  return FromSystem(errno, "cannot open the directory '" + Shown(name) + "'");
}

Result DirectoryStack::MakeAndEnter(const std::string& name) {
  if (::mkdirat(Bottom(), name.c_str(), 0777) != 0 && errno != EEXIST) {
    return FromSystem(errno, "cannot make the directory '" + Shown(name) + "'");
  }
  Descriptor directory = OpenDirectory(Bottom(), name, O_NOFOLLOW);
  if (directory) return Push(std::move(directory));
  if (errno == ENOTDIR || errno == ELOOP) {
    return {kFailure, "'" + Shown(name) + "' exists and is no directory"};
  }
  return FromSystem(errno, "cannot open the directory '" + Shown(name) + "'");
}

Result DirectoryStack::Leave() {
  Level& parent = levels[levels.size() - 2];
  if (!parent.directory) {
    parent.directory = OpenDirectory(Bottom(), "..", 0);
    if (!parent.directory) return FromSystem(errno, "cannot go back to the parent directory");
    if (!(FileIdentity::Of(parent.directory.Number()) == parent.identity)) {
      return {kInputOutput, "a directory was moved meanwhile"};
    }
  }
  levels.pop_back();
  return {};
}

Result DirectoryStack::Push(Descriptor directory) {
  const FileIdentity identity = FileIdentity::Of(directory.Number());
  levels.push_back({std::move(directory), identity});
  if (levels.size() > kOpenLevels) levels[levels.size() - 1 - kOpenLevels].directory.Close();
  return {};
}

Result ListDirectory(int directory, std::vector<std::string>& names) {
  Descriptor copy = OpenDirectory(directory, ".", 0);
  if (!copy) return FromSystem(errno, "cannot list the directory");
  DIR* listing = ::fdopendir(copy.Number());
  if (listing == nullptr) return FromSystem(errno, "cannot list the directory");
  copy.Release();  // closedir closes it
  errno = 0;
  while (const dirent* entry = ::readdir(listing)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
    errno = 0;
  }
  const int failed = errno;
  ::closedir(listing);
  if (failed != 0) return FromSystem(failed, "cannot list the directory");
  std::sort(names.begin(), names.end());
  return {};
}

}  // namespace aotool
