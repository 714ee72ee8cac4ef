// What the POSIX bodies of this floor share.
#ifndef AOSTORAGE_PLATFORM_POSIX_SUPPORT_H_
#define AOSTORAGE_PLATFORM_POSIX_SUPPORT_H_

#include <cerrno>
#include <cstdint>
#include <string>

#include "platform/file.h"
#include "platform/last_error.h"
#include "platform/posix_calls.h"

namespace aostorage::detail::posix {

inline ErrorCode ReasonOf(int systemError) {
  switch (systemError) {
    case ENOENT:
    case ENOTDIR:
      return ErrorCode::kNotFound;
    case EACCES:
    case EPERM:
    case EROFS:
    case ETXTBSY:
      return ErrorCode::kAccessDenied;
    case EBADF:  // a descriptor that is open for something else
      return ErrorCode::kNotWritable;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return ErrorCode::kDiskFull;
    case EEXIST:
      return ErrorCode::kExists;
    case ENAMETOOLONG:
    case ELOOP:
      return ErrorCode::kNameUnusable;
    case EISDIR:
    case ENXIO:
    case ENODEV:
      return ErrorCode::kNotAFile;
    case ENOMEM:
      return ErrorCode::kNoMemory;
    default:
      return ErrorCode::kInputOutput;
  }
}

// `fileOffset`: where a read or a write was to begin.
inline bool FailWithErrno(std::uint64_t fileOffset = kNoFileOffset) {
  const int systemError = errno;
  return Fail(ReasonOf(systemError), fileOffset, systemError);
}

// Repeats an interrupted call, a bounded number of times in a row.
template <typename Call>
auto Repeated(Call call) {
  constexpr int kMostTries = 1000;
  auto result = call();
  for (int tries = 0; result < 0 && errno == EINTR && tries < kMostTries; ++tries) result = call();
  return result;
}

inline FileIdentity IdentityOf(const struct stat& status) {
  return {static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino)};
}

// The directory that a path's last name is in.
inline std::string DirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// An open descriptor, or -1 with the reason noted. It is never one of the standard streams'
// numbers, even when the caller closed those.
inline int OpenAboveStandardStreams(const char* path, int flags, mode_t mode) {
  constexpr int kFirstFree = 3;
  const int descriptor = Repeated([&] { return Open(path, flags, mode); });
  if (descriptor < 0) return FailWithErrno(), -1;
  if (descriptor >= kFirstFree) return descriptor;
  const int moved = DuplicateAbove(descriptor, kFirstFree);
  if (moved < 0) {
    FailWithErrno();
    if ((flags & O_EXCL) != 0) Unlink(path);  // this call has made it
  }
  Close(descriptor);
  return moved;
}

}  // namespace aostorage::detail::posix

#endif  // AOSTORAGE_PLATFORM_POSIX_SUPPORT_H_
