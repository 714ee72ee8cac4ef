// The calls that the library makes to a POSIX system, all of them: what a test or a tracer has to
// watch. Built with 64-bit file offsets, so that the symbols are the 64-bit ones where a system has
// both.
#ifndef AOSTORAGE_PLATFORM_POSIX_CALLS_H_
#define AOSTORAGE_PLATFORM_POSIX_CALLS_H_

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>

namespace aostorage::detail::posix {

static_assert(sizeof(off_t) == 8, "the POSIX layer needs 64-bit file offsets");

inline int Open(const char* path, int flags, mode_t mode) { return ::open(path, flags, mode); }
inline int Close(int descriptor) { return ::close(descriptor); }
inline int DuplicateAbove(int descriptor, int lowest) {
  return ::fcntl(descriptor, F_DUPFD_CLOEXEC, lowest);
}
inline int Status(int descriptor, struct stat* status) { return ::fstat(descriptor, status); }
inline ssize_t Read(int descriptor, void* buffer, size_t count, off_t offset) {
  return ::pread(descriptor, buffer, count, offset);
}
inline ssize_t Read(int descriptor, const iovec* pieces, int pieceCount, off_t offset) {
  return ::preadv(descriptor, pieces, pieceCount, offset);
}
inline ssize_t Write(int descriptor, const void* data, size_t count, off_t offset) {
  return ::pwrite(descriptor, data, count, offset);
}
inline ssize_t Write(int descriptor, const iovec* pieces, int pieceCount, off_t offset) {
  return ::pwritev(descriptor, pieces, pieceCount, offset);
}
inline void* MapForReading(int descriptor, size_t count) {
  return ::mmap(nullptr, count, PROT_READ, MAP_SHARED | MAP_NORESERVE, descriptor, 0);
}
inline int Unmap(void* place, size_t count) { return ::munmap(place, count); }
inline int Truncate(int descriptor, off_t size) { return ::ftruncate(descriptor, size); }
inline int Sync(int descriptor) { return ::fsync(descriptor); }
inline int SyncData(int descriptor) { return ::fdatasync(descriptor); }
inline ssize_t Copy(int from, off_t* fromOffset, int to, off_t* toOffset, size_t count) {
  return ::copy_file_range(from, fromOffset, to, toOffset, count, 0);
}
inline int Unlink(const char* path) { return ::unlink(path); }
inline int Rename(const char* from, const char* to) { return ::rename(from, to); }
inline int Status(const char* path, struct stat* status) { return ::lstat(path, status); }
inline ssize_t ReadLink(const char* path, char* buffer, size_t size) {
  return ::readlink(path, buffer, size);
}
inline int ChangeMode(int descriptor, mode_t mode) { return ::fchmod(descriptor, mode); }
inline int ChangeOwner(int descriptor, uid_t user, gid_t group) {
  return ::fchown(descriptor, user, group);
}

// A scan takes over the descriptor of an open directory.
inline DIR* StartScan(int directory) { return ::fdopendir(directory); }
inline dirent* NextEntry(DIR* scan) { return ::readdir(scan); }
inline int EndScan(DIR* scan) { return ::closedir(scan); }
inline int StatusInside(int directory, const char* name, struct stat* status) {
  return ::fstatat(directory, name, status, AT_SYMLINK_NOFOLLOW);
}
inline int UnlinkInside(int directory, const char* name) { return ::unlinkat(directory, name, 0); }
inline int RemoveDirectory(const char* path) { return ::rmdir(path); }

inline int RealTime(timespec* now) { return ::clock_gettime(CLOCK_REALTIME, now); }

}  // namespace aostorage::detail::posix

#endif  // AOSTORAGE_PLATFORM_POSIX_CALLS_H_
