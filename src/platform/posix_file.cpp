// The POSIX body of File.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

#include "platform/file.h"
#include "platform/last_error.h"
#include "platform/posix_calls.h"
#include "platform/posix_support.h"

namespace aostorage::detail {
namespace {

constexpr mode_t kNewFileMode = 0666;  // less the umask
constexpr mode_t kPrivateMode = 0600;

int OpenFlags(File::Access access) {
  // Without O_NONBLOCK the open of a pipe would wait for a peer; on a regular file it does nothing.
  constexpr int kAlways = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  switch (access) {
    case File::Access::kRead:
      return kAlways | O_RDONLY;
    case File::Access::kReadWrite:
      return kAlways | O_RDWR;
    case File::Access::kCreateNew:
    case File::Access::kCreatePrivate:
      return kAlways | O_RDWR | O_CREAT | O_EXCL;
  }
  return kAlways;
}

}  // namespace

bool FailShort(std::uint64_t offset, std::size_t got) noexcept {
  return Fail(got == 0 ? ErrorCode::kOutOfRange : ErrorCode::kTruncated, offset);
}

File File::Open(const std::string& path, Access access) {
  File file;
  const mode_t mode = access == Access::kCreatePrivate ? kPrivateMode : kNewFileMode;
  file.descriptor = posix::OpenAboveStandardStreams(path.c_str(), OpenFlags(access), mode);
  if (file.descriptor >= 0 && !file.LearnStatus()) {
    file.Close();
    if (access == Access::kCreateNew || access == Access::kCreatePrivate) Delete(path);
  }
  return file;
}

bool File::LearnStatus() {
  struct stat status {};
  if (posix::Repeated([&] { return posix::Status(descriptor, &status); }) < 0)
    return posix::FailWithErrno();
  if (!S_ISREG(status.st_mode)) return Fail(ErrorCode::kNotAFile);
  identity = {static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino)};
  knownSize = expectedSize = static_cast<std::uint64_t>(status.st_size);
  lastOwnWrite = {status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
  return true;
}

void File::Delete(const std::string& path) { posix::Unlink(path.c_str()); }

void File::Close() {
  UseMapping(false);
  if (descriptor >= 0) posix::Close(std::exchange(descriptor, -1));
}

bool File::UseMapping(bool on) {
  constexpr auto kRange = static_cast<std::size_t>(kReachableEnd);
  if (!on) {
    if (mapped != nullptr) posix::Unmap(const_cast<std::uint8_t*>(mapped), kRange);
    mapped = nullptr;
    return true;
  }
  if (mapped != nullptr) return true;
  void* const place = posix::MapForReading(descriptor, kRange);
  if (place == MAP_FAILED) return FailCall();
  mapped = static_cast<const std::uint8_t*>(place);
  return true;
}

std::optional<std::size_t> File::ReadMapped(std::uint64_t offset, void* buffer, std::size_t count) {
  if (offset >= kReachableEnd) {
    Fail(ErrorCode::kOutOfRange, offset);
    return std::nullopt;
  }
  count = static_cast<std::size_t>(std::min<std::uint64_t>(count, kReachableEnd - offset));
  if (offset + count > knownSize) {
    if (!AskStatus()) return std::nullopt;
    const std::uint64_t there = knownSize - std::min(offset, knownSize);
    count = static_cast<std::size_t>(std::min<std::uint64_t>(count, there));
  }
  if (count != 0) std::memcpy(buffer, mapped + offset, count);
  return count;
}

std::optional<std::size_t> File::ReadThrough(std::uint64_t offset, void* buffer,
                                             std::size_t count) {
  if (offset >= kReachableEnd) {
    Fail(ErrorCode::kOutOfRange, offset);
    return std::nullopt;
  }
  count = static_cast<std::size_t>(std::min<std::uint64_t>(count, kReachableEnd - offset));
  std::size_t done = 0;
  while (done < count) {
    const ssize_t got = posix::Repeated([&] {
      return posix::Read(descriptor, static_cast<char*>(buffer) + done, count - done,
                         static_cast<off_t>(offset + done));
    });
    if (got < 0) {
      FailCall(offset);
      return std::nullopt;
    }
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
    // Short, and as far as the file goes: another call would bring nothing.
    if (done < count && offset + done == knownSize) break;
  }
  return done;
}

std::optional<std::size_t> File::ReadAt(std::uint64_t offset, void* first, std::size_t firstCount,
                                        void* second, std::size_t secondCount) {
  ssize_t got = 0;
  if (window == nullptr && mapped == nullptr &&
      offset + firstCount + secondCount <= kReachableEnd) {
    const std::array<iovec, 2> pieces{{{first, firstCount}, {second, secondCount}}};
    got = posix::Repeated([&] {
      return posix::Read(descriptor, pieces.data(), static_cast<int>(pieces.size()),
                         static_cast<off_t>(offset));
    });
    if (got < 0) {
      FailCall(offset);
      return std::nullopt;
    }
  }
  auto done = static_cast<std::size_t>(got);
  if (done == firstCount + secondCount) return done;
  // The rest, if there is one, piece by piece.
  if (done < firstCount) {
    const std::optional<std::size_t> more =
        ReadAt(offset + done, static_cast<char*>(first) + done, firstCount - done);
    if (!more) return more;
    done += *more;
    if (done < firstCount) return done;
  }
  const std::size_t inSecond = done - firstCount;
  const std::optional<std::size_t> more =
      ReadAt(offset + done, static_cast<char*>(second) + inSecond, secondCount - inSecond);
  if (!more) return more;
  return done + *more;
}

bool File::ReadExactlyAt(std::uint64_t offset, void* buffer, std::size_t count) {
  const std::optional<std::size_t> got = ReadAt(offset, buffer, count);
  if (!got) return false;
  return *got == count || FailShort(offset, *got);
}

bool File::WriteAt(std::uint64_t offset, const void* data, std::size_t count) {
  const Stretch stretch{data, count};
  return WriteAt(offset, &stretch, 1);
}

bool File::WriteAt(std::uint64_t offset, const Stretch* stretches, std::size_t stretchCount) {
  std::uint64_t total = 0;
  for (std::size_t i = 0; i < stretchCount; ++i) total += stretches[i].size;
  if (!MayWrite()) return false;
  if (offset > kReachableEnd || total > kReachableEnd - offset)
    return Fail(ErrorCode::kTooLarge, offset);
  if (window == nullptr) return WriteThrough(offset, stretches, stretchCount);
  if (!window->Write(*this, offset, stretches, stretchCount)) return false;
  knownSize = expectedSize = std::max(knownSize, offset + total);
  return true;
}

bool File::WriteThrough(std::uint64_t offset, const Stretch* stretches, std::size_t stretchCount) {
  std::array<iovec, kMaxStretches> pieces{};
  int pieceCount = 0;
  for (std::size_t i = 0; i < stretchCount && i < kMaxStretches; ++i) {
    if (stretches[i].size == 0) continue;
    pieces[static_cast<std::size_t>(pieceCount++)] = {const_cast<void*>(stretches[i].data),
                                                      stretches[i].size};
  }

  iovec* next = pieces.data();
  std::uint64_t at = offset;
  while (pieceCount > 0) {
    const ssize_t taken = posix::Repeated([&] {
      return pieceCount == 1
                 ? posix::Write(descriptor, next->iov_base, next->iov_len, static_cast<off_t>(at))
                 : posix::Write(descriptor, next, pieceCount, static_cast<off_t>(at));
    });
    if (taken < 0) FailCall(offset);
    if (taken == 0)
      Fail(ErrorCode::kInputOutput, offset);  // a write that takes nothing will never end
    if (taken > 0) at += static_cast<std::uint64_t>(taken);
    NoteOwnWrite(at);
    if (taken <= 0) return false;
    auto left = static_cast<std::size_t>(taken);
    while (pieceCount > 0 && left >= next->iov_len) {
      left -= next->iov_len;
      ++next;
      --pieceCount;
    }
    if (pieceCount > 0) {
      next->iov_base = static_cast<char*>(next->iov_base) + left;
      next->iov_len -= left;
    }
  }
  return true;
}

bool File::SetSize(std::uint64_t size) {
  if (!MayWrite()) return false;
  if (posix::Repeated([&] { return posix::Truncate(descriptor, static_cast<off_t>(size)); }) < 0)
    return FailCall(size);
  knownSize = expectedSize = size;
  NoteOwnWrite(size);
  return true;
}

bool File::Sync() {
  return posix::Repeated([&] { return posix::Sync(descriptor); }) == 0 || FailCall();
}

bool File::SyncData() {
  if (!MayWrite()) return false;
  if (posix::Repeated([&] { return posix::SyncData(descriptor); }) == 0) return true;
  syncError = errno;
  return FailCall();
}

bool File::FailCall(std::uint64_t offset) const {
  const int systemError = errno;
  return IsOpen() ? Fail(posix::ReasonOf(systemError), offset, systemError)
                  : Fail(ErrorCode::kNotOpen);
}

bool File::MayWrite() const {
  return syncError == 0 || Fail(ErrorCode::kSyncFailed, kNoFileOffset, syncError);
}

bool File::EndWindow() {
  const std::unique_ptr<WriteWindow> ended = std::move(window);
  return ended == nullptr || ended->Flush(*this);
}

std::optional<std::uint64_t> File::Size() {
  if (window == nullptr && !AskStatus()) return std::nullopt;
  return knownSize;
}

bool File::ChangedByOthers() {
  if (window != nullptr) return false;
  if (!AskStatus()) return true;
  return std::exchange(othersSeen, false);
}

bool File::AskStatus() {
  struct stat status {};
  if (posix::Repeated([&] { return posix::Status(descriptor, &status); }) < 0) return FailCall();
  const Moment modified{status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
  knownSize = static_cast<std::uint64_t>(status.st_size);
  if (knownSize != expectedSize || lastOwnWrite < modified) {
    othersSeen = true;
    expectedSize = knownSize;
    lastOwnWrite = modified;
  }
  return true;
}

void File::NoteOwnWrite(std::uint64_t end) {
  knownSize = std::max(knownSize, end);
  expectedSize = std::max(expectedSize, end);
  timespec now{};
  posix::RealTime(&now);
  lastOwnWrite = {now.tv_sec, now.tv_nsec};
}

}  // namespace aostorage::detail
