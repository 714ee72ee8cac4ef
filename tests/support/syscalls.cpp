// The definitions below stand for the plain and the 64-bit name of each call, so neither name may
// be an alias of the other here, and no checking inline form may stand in the way.
#undef _FILE_OFFSET_BITS
#undef _FORTIFY_SOURCE

#include "support/syscalls.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>

#if defined(__SANITIZE_ADDRESS__)
#define AOSTORAGE_TESTS_WITH_ASAN
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define AOSTORAGE_TESTS_WITH_ASAN
#endif
#endif
#ifdef AOSTORAGE_TESTS_WITH_ASAN
#include <sanitizer/asan_interface.h>
#endif
#include "support/allocations.h"

namespace aostorage::testing {
namespace {

thread_local Watch* current = nullptr;

const char* const kCallNames[kCallKinds] = {"open",   "state",  "read", "write",   "sync",
                                            "rename", "unlink", "copy", "truncate"};

// A call without data: counted, then made.
template <class Make>
long Plain(Call call, Make make) {
  const SpareAllocations own;
  if (Watch* watch = Watch::Current()) {
    if (const int error = watch->Enter(call); error != 0) {
      errno = error;
      return -1;
    }
  }
  return make();
}

// Stands for the check that AddressSanitizer makes in the functions replaced below: an access to
// the first bad byte makes its report.
void CheckMemory([[maybe_unused]] const iovec& piece) {
#ifdef AOSTORAGE_TESTS_WITH_ASAN
  const void* bad = __asan_region_is_poisoned(piece.iov_base, piece.iov_len);
  if (bad != nullptr) static_cast<void>(*static_cast<const volatile char*>(bad));
#endif
}

// A read or write of several pieces, cut to what the watch lets through.
ssize_t Transfer(Call call, int descriptor, const iovec* pieces, int count, off64_t offset) {
  const SpareAllocations own;
  const long number = call == Call::kRead ? SYS_preadv : SYS_pwritev;
  std::for_each_n(pieces, count, CheckMemory);
  Watch* watch = Watch::Current();
  if (watch == nullptr) return syscall(number, descriptor, pieces, count, offset, 0L);
  if (const int error = watch->Enter(call); error != 0) {
    errno = error;
    return -1;
  }
  std::size_t wanted = 0;
  for (int i = 0; i < count; ++i) wanted += pieces[i].iov_len;
  std::size_t left = watch->Allowed(wanted);
  std::vector<iovec> cut;
  for (int i = 0; i < count; ++i) {
    cut.push_back({pieces[i].iov_base, std::min(pieces[i].iov_len, left)});
    left -= cut.back().iov_len;
  }
  const ssize_t moved = syscall(number, descriptor, cut.data(), count, offset, 0L);
  if (moved > 0) watch->Move(static_cast<std::size_t>(moved));
  if (call == Call::kWrite && moved > 0 && watch->Records()) {
    std::vector<std::uint8_t> bytes;
    for (const iovec& piece : cut) {
      const auto* first = static_cast<const std::uint8_t*>(piece.iov_base);
      bytes.insert(bytes.end(), first, first + piece.iov_len);
    }
    watch->Record(descriptor, static_cast<std::uint64_t>(offset), bytes.data(),
                  static_cast<std::size_t>(moved));
  }
  return moved;
}

}  // namespace

Watch::Watch() { current = this; }
Watch::~Watch() { current = nullptr; }
Watch* Watch::Current() { return current != nullptr && !current->suspended ? current : nullptr; }

std::size_t Watch::Total() const {
  std::size_t total = 0;
  for (const std::size_t count : counts) total += count;
  return total;
}

std::string Watch::Text() const {
  std::string text;
  for (std::size_t kind = 0; kind < kCallKinds; ++kind) {
    if (counts[kind] != 0) text += std::to_string(counts[kind]) + " " + kCallNames[kind] + ", ";
  }
  return text.empty() ? "no call" : text.substr(0, text.size() - 2);
}

void Watch::FailAt(std::size_t k, unsigned kinds, int error, std::size_t more) {
  callsUntilFault = k;
  failKinds = kinds;
  failError = error;
  faultsLeft = more == SIZE_MAX ? more : more + 1;
}

void Watch::ShortAt(std::size_t k, std::size_t bytes, bool forEver) {
  shortCall = calls.size() + k;
  shortBytes = bytes;
  shortForEver = forEver;
}

int Watch::Enter(Call call) {
  if (before) {
    suspended = true;
    before(call, Total());
    suspended = false;
  }
  ++counts[static_cast<std::size_t>(call)];
  calls.push_back(call);
  if ((call == Call::kRead || call == Call::kWrite) && interruptionsDone < interruptions) {
    ++interruptionsDone;
    return EINTR;
  }
  interruptionsDone = 0;
  if (callsUntilFault == 0 || (failKinds & Only(call)) == 0) return 0;
  if (callsUntilFault > 1) {
    --callsUntilFault;
    return 0;
  }
  fired = true;
  if (--faultsLeft == 0) callsUntilFault = 0;
  return failError;
}

std::size_t Watch::Allowed(std::size_t wanted) {
  const bool cut =
      shortCall != 0 && (calls.size() == shortCall || (shortForEver && calls.size() > shortCall));
  if (!cut) return std::min(wanted, transferLimit);
  fired = true;
  if (shortBytes == kAllButOne) return wanted > 1 ? wanted - 1 : wanted;
  return std::min(wanted, shortBytes);
}

void Watch::Record(int descriptor, std::uint64_t offset, const std::uint8_t* bytes,
                   std::size_t count) {
  writes.push_back({descriptor, offset, {bytes, bytes + count}});
}

}  // namespace aostorage::testing

using aostorage::testing::Call;
using aostorage::testing::Plain;
using aostorage::testing::Transfer;

static_assert(sizeof(off_t) == sizeof(off64_t), "or the second names are other functions");

extern "C" {

int open(const char* path, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(more, mode_t) : 0;
  va_end(more);
  return static_cast<int>(
      Plain(Call::kOpen, [&] { return syscall(SYS_openat, AT_FDCWD, path, flags, mode); }));
}
int fstat(int descriptor, struct stat* out) noexcept {
  return static_cast<int>(Plain(Call::kState, [&] { return syscall(SYS_fstat, descriptor, out); }));
}
ssize_t pread(int descriptor, void* buffer, std::size_t count, off_t offset) {
  const iovec piece{buffer, count};
  return Transfer(Call::kRead, descriptor, &piece, 1, offset);
}
ssize_t preadv(int descriptor, const iovec* pieces, int count, off_t offset) {
  return Transfer(Call::kRead, descriptor, pieces, count, offset);
}
ssize_t pwrite(int descriptor, const void* buffer, std::size_t count, off_t offset) {
  const iovec piece{const_cast<void*>(buffer), count};
  return Transfer(Call::kWrite, descriptor, &piece, 1, offset);
}
ssize_t pwritev(int descriptor, const iovec* pieces, int count, off_t offset) {
  return Transfer(Call::kWrite, descriptor, pieces, count, offset);
}
int fdatasync(int descriptor) {
  return static_cast<int>(Plain(Call::kSync, [&] { return syscall(SYS_fdatasync, descriptor); }));
}

int fsync(int descriptor) {
  return static_cast<int>(Plain(Call::kSync, [&] { return syscall(SYS_fsync, descriptor); }));
}
int rename(const char* from, const char* to) noexcept {
  return static_cast<int>(Plain(
      Call::kRename, [&] { return syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0U); }));
}
int unlinkat(int directory, const char* path, int flags) noexcept {
  return static_cast<int>(
      Plain(Call::kUnlink, [&] { return syscall(SYS_unlinkat, directory, path, flags); }));
}
int unlink(const char* path) noexcept { return unlinkat(AT_FDCWD, path, 0); }
ssize_t copy_file_range(int from, off64_t* fromOffset, int to, off64_t* toOffset, std::size_t count,
                        unsigned flags) {
  return Plain(Call::kCopy, [&] {
    return syscall(SYS_copy_file_range, from, fromOffset, to, toOffset, count, flags);
  });
}
int ftruncate(int descriptor, off_t length) noexcept {
  return static_cast<int>(
      Plain(Call::kTruncate, [&] { return syscall(SYS_ftruncate, descriptor, length); }));
}

// The names that the same functions have where file offsets are asked to be of 64 bits.
int open64(const char*, int, ...) __attribute__((alias("open")));
int fstat64(int, struct stat64*) noexcept __attribute__((alias("fstat")));
ssize_t pread64(int, void*, std::size_t, off64_t) __attribute__((alias("pread")));
ssize_t preadv64(int, const iovec*, int, off64_t) __attribute__((alias("preadv")));
ssize_t pwrite64(int, const void*, std::size_t, off64_t) __attribute__((alias("pwrite")));
ssize_t pwritev64(int, const iovec*, int, off64_t) __attribute__((alias("pwritev")));
int ftruncate64(int, off64_t) noexcept __attribute__((alias("ftruncate")));

}  // extern "C"
