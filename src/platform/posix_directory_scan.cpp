// The POSIX body of the directory scan.
#include <cstring>

#include "platform/directory_scan.h"
#include "platform/posix_support.h"

namespace aostorage::detail {
namespace {

bool IsRegularFile(int directory, const char* name) {
  struct stat status {};
  return posix::StatusInside(directory, name, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

void RemoveDirectoryOfFiles(const char* path) noexcept {
  const int directory =
      posix::OpenAboveStandardStreams(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC, mode_t{});
  DIR* const scan = directory >= 0 ? posix::StartScan(directory) : nullptr;
  while (const dirent* const entry = scan != nullptr ? posix::NextEntry(scan) : nullptr) {
    // Files are named by the directory that was opened, not by the path: whatever comes to stand at
    // the path meanwhile stays as it is, and no name gets too long.
    if (std::strchr(entry->d_name, '.') == nullptr && IsRegularFile(directory, entry->d_name))
      posix::UnlinkInside(directory, entry->d_name);
  }
  if (scan != nullptr) {
    posix::EndScan(scan);
  } else if (directory >= 0) {
    posix::Close(directory);
  }
  // Takes nothing but an empty directory, so there is no need to know what stands there.
  posix::RemoveDirectory(path);
}

}  // namespace aostorage::detail
