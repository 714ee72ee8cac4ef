#include "support/calls.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>

#include <cstdarg>
#include <cstddef>

namespace aostorage::fuzz {

CallCounts calls;

namespace {

enum class Effect { kNone, kChange };

template <class Result>
Result Counted(Effect effect, Result result) {
  ++calls.all;
  if (effect == Effect::kChange) ++calls.changes;
  return result;
}
ssize_t Moved(Effect effect, ssize_t count) {
  if (count > 0) calls.moved += static_cast<std::uint64_t>(count);
  return Counted(effect, count);
}

}  // namespace
}  // namespace aostorage::fuzz

using aostorage::fuzz::Counted;
using aostorage::fuzz::Effect;
using aostorage::fuzz::Moved;

// NAME(parameters) is made by __real_NAME(arguments).
#define AOSTORAGE_FUZZ_WRAP(Result, name, count, effect, parameters, arguments) \
  Result __real_##name parameters;                                              \
  Result __wrap_##name parameters;                                              \
  Result __wrap_##name parameters { return count(Effect::effect, __real_##name arguments); }

extern "C" {

AOSTORAGE_FUZZ_WRAP(ssize_t, pread64, Moved, kNone,
                    (int file, void* to, std::size_t count, off64_t at), (file, to, count, at))
AOSTORAGE_FUZZ_WRAP(ssize_t, preadv64, Moved, kNone,
                    (int file, const iovec* pieces, int count, off64_t at),
                    (file, pieces, count, at))
AOSTORAGE_FUZZ_WRAP(ssize_t, pwrite64, Moved, kChange,
                    (int file, const void* from, std::size_t count, off64_t at),
                    (file, from, count, at))
AOSTORAGE_FUZZ_WRAP(ssize_t, pwritev64, Moved, kChange,
                    (int file, const iovec* pieces, int count, off64_t at),
                    (file, pieces, count, at))
AOSTORAGE_FUZZ_WRAP(ssize_t, copy_file_range, Moved, kChange,
                    (int from, off64_t* fromAt, int to, off64_t* toAt, std::size_t count,
                     unsigned flags),
                    (from, fromAt, to, toAt, count, flags))
AOSTORAGE_FUZZ_WRAP(int, fstat64, Counted, kNone, (int file, struct stat64* state), (file, state))
AOSTORAGE_FUZZ_WRAP(int, lstat64, Counted, kNone, (const char* path, struct stat64* state),
                    (path, state))
AOSTORAGE_FUZZ_WRAP(int, fsync, Counted, kNone, (int file), (file))
AOSTORAGE_FUZZ_WRAP(int, fdatasync, Counted, kNone, (int file), (file))
AOSTORAGE_FUZZ_WRAP(int, ftruncate64, Counted, kChange, (int file, off64_t size), (file, size))
AOSTORAGE_FUZZ_WRAP(int, rename, Counted, kChange, (const char* from, const char* to), (from, to))
AOSTORAGE_FUZZ_WRAP(int, unlink, Counted, kChange, (const char* path), (path))

int __real_open64(const char* path, int flags, ...);
int __wrap_open64(const char* path, int flags, ...);
int __wrap_open64(const char* path, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
  va_end(more);
  return Counted(Effect::kNone, __real_open64(path, flags, mode));
}

}  // extern "C"
