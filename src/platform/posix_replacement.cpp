// The POSIX body of Replacement.
#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/posix_support.h"
#include "platform/replacement.h"

namespace aostorage::detail {
namespace {

// A name that was put into a directory, or taken out, has reached the disk. Not every file system
// can do that for a directory, and none loses a whole file over it: there is nothing to report.
void SyncDirectory(const std::string& directory) {
  Attempt attempt;
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  const int descriptor = posix::OpenAboveStandardStreams(directory.c_str(), kFlags, mode_t{});
  attempt.Forget();
  if (descriptor < 0) return;
  posix::Repeated([&] { return posix::Sync(descriptor); });
  posix::Close(descriptor);
}

// Copies by the kernel from `done` on as far as it can.
void CopyInKernel(const File& from, const File& to, std::uint64_t size, std::uint64_t& done) {
  while (done < size) {
    auto fromOffset = static_cast<off_t>(done);
    auto toOffset = fromOffset;
    const ssize_t copied = posix::Repeated([&] {
      return posix::Copy(from.Descriptor(), &fromOffset, to.Descriptor(), &toOffset,
                         static_cast<std::size_t>(size - done));
    });
    if (copied <= 0) return;  // it cannot, or not here: reading and writing tells why
    done += static_cast<std::uint64_t>(copied);
  }
}

// The first bytes of a file, without which nothing takes it for what it is.
constexpr std::size_t kHeadSize = 24;
using Head = std::array<std::uint8_t, kHeadSize>;

// The head goes first and comes last, so that a file that was copied in part is never taken for a
// whole one.
bool CopyContent(File& from, File& to) {
  const std::uint64_t size = from.KnownSize();
  Head head{};
  if (!to.WriteAt(0, head.data(), head.size()) || !to.Sync()) return false;
  std::uint64_t done = kHeadSize;
  CopyInKernel(from, to, size, done);
  std::array<std::uint8_t, 32768> piece;
  while (done < size) {
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(size - done, piece.size()));
    if (!from.ReadExactlyAt(done, piece.data(), count) || !to.WriteAt(done, piece.data(), count))
      return false;
    done += count;
  }
  if (!to.SetSize(size) || !to.Sync()) return false;
  return from.ReadExactlyAt(0, head.data(), head.size()) &&
         to.WriteAt(0, head.data(), head.size()) && to.Sync();
}

}  // namespace

bool Replacement::Aim(const std::string& path) {
  temporaryPath = path + "_tmp";
  temporaryDirectory = posix::DirectoryOf(temporaryPath);
  if (!Standing::Look(path, goal)) return false;
  goalDirectory = posix::DirectoryOf(goal.path);
  return true;
}

File Replacement::MakeTemporary(const FileIdentity& source) {
  struct stat status {};
  if (posix::Status(temporaryPath.c_str(), &status) == 0) {
    const FileIdentity there = posix::IdentityOf(status);
    if (!S_ISREG(status.st_mode)) return Fail(ErrorCode::kNotAFile), File();
    if (there == source || (goal.exists && there == goal.identity))
      return Fail(ErrorCode::kBadArgument), File();
    // Another name of that file is none of ours: a new file is made instead of emptying this one.
    if (posix::Unlink(temporaryPath.c_str()) < 0) return posix::FailWithErrno(), File();
  }
  File file = File::Open(temporaryPath,
                         goal.exists ? File::Access::kCreatePrivate : File::Access::kCreateNew);
  made = file.IsOpen();
  temporaryIdentity = file.Identity();
  return file;
}

// Whoever put another file there meanwhile must neither lose it nor see it put in place.
bool Replacement::IsStillThere() const {
  struct stat status {};
  if (posix::Status(temporaryPath.c_str(), &status) < 0) return posix::FailWithErrno();
  return posix::IdentityOf(status) == temporaryIdentity || Fail(ErrorCode::kChanged);
}

Replacement::~Replacement() {
  if (!made) return;
  struct stat status {};
  if (posix::Status(temporaryPath.c_str(), &status) == 0 &&
      posix::IdentityOf(status) == temporaryIdentity) {
    File::Delete(temporaryPath);
  }
}

Replacement::Outcome Replacement::PutInPlace(File& temporary, bool mayCopyOver) {
  Standing old;
  if (!Standing::Look(goal.path, old) || !IsStillThere()) return Outcome::kNothingReplaced;
  if (old.path != goal.path || old.exists != goal.exists || !(old.identity == goal.identity))
    return Fail(ErrorCode::kChanged), Outcome::kNothingReplaced;  // it is another file by now
  bool inOneStep = !old.hasOtherNames;
  if (old.exists) {
    struct stat status {};
    if (posix::Status(temporary.Descriptor(), &status) < 0)
      return posix::FailWithErrno(), Outcome::kNothingReplaced;
    const bool sameOwner = status.st_uid == old.user && status.st_gid == old.group;
    if (!sameOwner && posix::ChangeOwner(temporary.Descriptor(), old.user, old.group) < 0)
      inOneStep = false;
    // Not for a copy: another owner's group is none of the old file's business.
    if (inOneStep && posix::ChangeMode(temporary.Descriptor(), static_cast<mode_t>(old.mode)) < 0) {
      return posix::FailWithErrno(), Outcome::kNothingReplaced;
    }
  }
  if (!temporary.Sync()) return Outcome::kNothingReplaced;
  if (inOneStep) {
    if (posix::Rename(temporaryPath.c_str(), goal.path.c_str()) == 0) {
      made = false;
      SyncDirectory(goalDirectory);
      return Outcome::kReplaced;
    }
    // Another file system, or a file that something is mounted on.
    if (errno != EXDEV && errno != EBUSY) return posix::FailWithErrno(), Outcome::kNothingReplaced;
  }
  if (!mayCopyOver) return Fail(ErrorCode::kShared), Outcome::kNothingReplaced;
  return CopyOver(temporary, old);
}

Replacement::Outcome Replacement::CopyOver(File& temporary, const Standing& old) {
  File target =
      File::Open(goal.path, old.exists ? File::Access::kReadWrite : File::Access::kCreateNew);
  if (!target.IsOpen()) return Outcome::kNothingReplaced;
  if (old.exists && !(target.Identity() == old.identity))
    return Fail(ErrorCode::kChanged), Outcome::kNothingReplaced;
  // From here on the temporary file may be the only whole one: its name must last.
  SyncDirectory(temporaryDirectory);
  made = false;
  if (!CopyContent(temporary, target)) return Outcome::kBrokenOff;
  if (!old.exists) SyncDirectory(goalDirectory);
  File::Delete(temporaryPath);
  SyncDirectory(temporaryDirectory);
  return Outcome::kReplaced;
}

}  // namespace aostorage::detail
