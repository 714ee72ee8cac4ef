// The POSIX body of Replacement.
#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>

#include "platform/posix_support.h"
#include "platform/replacement.h"

namespace aostorage::detail {
namespace {

constexpr int kMostLinks = 40;
constexpr mode_t kModeBits = 07777;

std::string DirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// A name that was put into a directory, or taken out, has reached the disk. Not every file system
// can do that for a directory, and none loses a whole file over it: there is nothing to report.
void SyncDirectory(const std::string& directory) {
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  const int descriptor = posix::OpenAboveStandardStreams(directory.c_str(), kFlags, mode_t{});
  if (descriptor < 0) return;
  posix::Repeated([&] { return posix::Sync(descriptor); });
  posix::Close(descriptor);
}

FileIdentity IdentityOf(const struct stat& status) {
  return {static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino)};
}

// Copies by the kernel as far as it can. `done` receives how far that is.
void CopyInKernel(const File& from, const File& to, std::uint64_t size, std::uint64_t& done) {
  for (done = 0; done < size;) {
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

bool CopyContent(File& from, File& to) {
  const std::uint64_t size = from.KnownSize();
  std::uint64_t done = 0;
  CopyInKernel(from, to, size, done);
  std::array<std::uint8_t, 32768> piece;
  while (done < size) {
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(size - done, piece.size()));
    if (!from.ReadExactlyAt(done, piece.data(), count) || !to.WriteAt(done, piece.data(), count))
      return false;
    done += count;
  }
  return to.SetSize(size) && to.Sync();
}

}  // namespace

bool Replacement::Look(const std::string& path, Standing& found) {
  found = {};
  found.path = path;
  for (int links = 0; links <= kMostLinks; ++links) {
    struct stat status {};
    if (posix::Status(found.path.c_str(), &status) < 0)
      return errno == ENOENT || posix::FailWithErrno();
    if (!S_ISLNK(status.st_mode)) {
      found.exists = true;
      found.identity = IdentityOf(status);
      found.mode = status.st_mode & kModeBits;
      found.user = status.st_uid;
      found.group = status.st_gid;
      found.hasOtherNames = status.st_nlink > 1;
      return S_ISREG(status.st_mode) || Fail(Error::kNotAStorage);
    }
    std::array<char, PATH_MAX> text;
    const ssize_t size = posix::ReadLink(found.path.c_str(), text.data(), text.size());
    if (size < 0) return posix::FailWithErrno();
    const std::string link(text.data(), static_cast<std::size_t>(size));
    found.path = link.front() == '/' ? link : DirectoryOf(found.path) + "/" + link;
  }
  return Fail(Error::kBadArgument, ELOOP);
}

bool Replacement::Aim(const std::string& path) {
  temporaryPath = path + "_tmp";
  temporaryDirectory = DirectoryOf(temporaryPath);
  if (!Look(path, goal)) return false;
  goalDirectory = DirectoryOf(goal.path);
  return true;
}

File Replacement::MakeTemporary(const FileIdentity& source) {
  struct stat status {};
  if (posix::Status(temporaryPath.c_str(), &status) == 0) {
    const FileIdentity there = IdentityOf(status);
    if (!S_ISREG(status.st_mode) || there == source || (goal.exists && there == goal.identity))
      return Fail(Error::kRefused), File();
    // Another name of that file is none of ours: a new file is made instead of emptying this one.
    if (posix::Unlink(temporaryPath.c_str()) < 0) return posix::FailWithErrno(), File();
  }
  File file = File::Open(temporaryPath,
                         goal.exists ? File::Access::kCreatePrivate : File::Access::kCreateNew);
  made = file.IsOpen();
  return file;
}

void Replacement::Discard() {
  if (made) File::Delete(temporaryPath);
  made = false;
}

// Whoever put another file there meanwhile must not see it put in place.
bool Replacement::IsStillThere(const File& temporary) const {
  struct stat status {};
  if (posix::Status(temporaryPath.c_str(), &status) < 0) return posix::FailWithErrno();
  return IdentityOf(status) == temporary.Identity() || Fail(Error::kRefused);
}

Replacement::Outcome Replacement::PutInPlace(File& temporary) {
  Standing old;
  if (!Look(goal.path, old) || !IsStillThere(temporary)) return Outcome::kNothingReplaced;
  if (old.path != goal.path || old.exists != goal.exists || !(old.identity == goal.identity))
    return Fail(Error::kRefused), Outcome::kNothingReplaced;  // it is another file by now
  bool inOneStep = !old.hasOtherNames;
  if (old.exists) {
    struct stat status {};
    if (posix::Status(temporary.Descriptor(), &status) < 0)
      return posix::FailWithErrno(), Outcome::kNothingReplaced;
    const bool sameOwner = status.st_uid == old.user && status.st_gid == old.group;
    if (!sameOwner && posix::ChangeOwner(temporary.Descriptor(), old.user, old.group) < 0)
      inOneStep = false;
    if (posix::ChangeMode(temporary.Descriptor(), static_cast<mode_t>(old.mode)) < 0)
      return posix::FailWithErrno(), Outcome::kNothingReplaced;
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
  return CopyOver(temporary, old);
}

Replacement::Outcome Replacement::CopyOver(File& temporary, const Standing& old) {
  File target =
      File::Open(goal.path, old.exists ? File::Access::kReadWrite : File::Access::kCreateNew);
  if (!target.IsOpen()) return Outcome::kNothingReplaced;
  if (old.exists && !(target.Identity() == old.identity))
    return Fail(Error::kRefused), Outcome::kNothingReplaced;
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
