// The POSIX body of the directory scan.
#include <cerrno>
#include <cstring>

#include "platform/directory_scan.h"
#include "platform/posix_support.h"

namespace aostorage::detail {
namespace {

bool IsRegularFile(int directory, const char* name) {
  struct stat status {};
  if (posix::StatusInside(directory, name, &status) != 0) return posix::FailWithErrno();
  return S_ISREG(status.st_mode);
}

}  // namespace

void RemoveDirectoryOfFiles(const char* path) noexcept {
  const int directory =
      posix::OpenAboveStandardStreams(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC, mode_t{});
  DIR* const scan = directory >= 0 ? posix::StartScan(directory) : nullptr;
  if (directory >= 0 && scan == nullptr) posix::FailWithErrno();
  errno = 0;
  while (const dirent* const entry = scan != nullptr ? posix::NextEntry(scan) : nullptr) {
    // Files are named by the directory that was opened, not by the path: whatever comes to stand at
    // the path meanwhile stays as it is, and no name gets too long.
    if (std::strchr(entry->d_name, '.') == nullptr && IsRegularFile(directory, entry->d_name) &&
        posix::UnlinkInside(directory, entry->d_name) != 0) {
      posix::FailWithErrno();
    }
    errno = 0;  // the end of the scan leaves it so
  }
  if (scan != nullptr && errno != 0) posix::FailWithErrno();
  if (scan != nullptr) {
    posix::EndScan(scan);
  } else if (directory >= 0) {
    posix::Close(directory);
  }
  // Takes nothing but an empty directory, so there is no need to know what stands there.
  const bool stays = posix::RemoveDirectory(path) != 0;
  // One that still holds something stays, and so does one behind a symbolic link: as it should.
  if (stays && errno != ENOTEMPTY && errno != EEXIST && errno != ENOTDIR) posix::FailWithErrno();
}

}  // namespace aostorage::detail
