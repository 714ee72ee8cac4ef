#include "files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "interrupt.h"

namespace aotool {
namespace {

bool IsStandardStream(const std::string& path) { return path.empty() || path == "-"; }

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this != &other) {
    Close();
    number = std::exchange(other.number, -1);
  }
  return *this;
}

bool Descriptor::Close() {
  const int open = std::exchange(number, -1);
  return open < 0 || open <= STDERR_FILENO || ::close(open) == 0;
}

bool IsRegularFile(int descriptor) {
  struct stat state {};
  return ::fstat(descriptor, &state) == 0 && S_ISREG(state.st_mode);
}

Result CheckInput(int descriptor) {
  constexpr std::int64_t kReach = 0x7FFFFFFF;  // no byte of a store lies behind it
  struct stat state {};
  if (::fstat(descriptor, &state) != 0) return FromSystem(errno, "cannot read the input");
  if (S_ISDIR(state.st_mode)) return FromSystem(EISDIR, "cannot read the input");
  if (S_ISREG(state.st_mode) && state.st_size > kReach) {
    return {kFailure, "the input is larger than a store can be (2 GiB)"};
  }
  return {};
}

FileIdentity FileIdentity::Of(int descriptor) {
  struct stat state {};
  if (::fstat(descriptor, &state) != 0) return {};
  return {state.st_dev, state.st_ino};
}

FileIdentity FileIdentity::At(const std::string& path) {
  struct stat state {};
  if (::stat(path.c_str(), &state) != 0) return {};
  return {state.st_dev, state.st_ino};
}

std::uint64_t SizeOfFile(const std::string& path) {
  struct stat state {};
  return ::stat(path.c_str(), &state) == 0 ? static_cast<std::uint64_t>(state.st_size) : 0;
}

Result OpenInput(const std::string& path, const FileIdentity& store, Descriptor& input,
                 bool isStored) {
  if (IsStandardStream(path)) {
    input = Descriptor(STDIN_FILENO);
  } else {
    input = Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!input) {
      Result result = FromSystem(errno, "cannot open '" + Shown(path) + "'");
      if (errno == ENOENT || errno == ENOTDIR) result.code = kNotFound;
      return result;
    }
  }
  if (FileIdentity::Of(input.Number()) == store) return {kFailure, "the input is the store itself"};
  return isStored ? CheckInput(input.Number()) : Result{};
}

Result ReadPiece(int input, std::uint8_t* buffer, std::size_t size, std::size_t& count) {
  count = 0;
  while (count < size) {
    if (!WaitForInput(input)) return Interruption();
    const ssize_t got = ::read(input, buffer + count, size - count);
    if (got == 0) break;
    if (got > 0) {
      count += static_cast<std::size_t>(got);
    } else if (errno != EINTR) {
      return FromSystem(errno, "cannot read the input");
    }
  }
  return {};
}

OutputFile::OutputFile(int inDirectory, std::string outputPath, IfThere rule,
                       const FileIdentity& storeFile)
    : directory(inDirectory), path(std::move(outputPath)), ifThere(rule), store(storeFile) {}

OutputFile::~OutputFile() {
  if (!made.empty()) ::unlinkat(directory, made.c_str(), 0);
}

Result OutputFile::Write(const std::uint8_t* data, std::size_t size) {
  if (!file) {
    if (Result result = Open(); !result.Ok()) return result;
  }
  while (size != 0) {
    if (Interrupted()) return Interruption();
    const ssize_t taken = ::write(file.Number(), data, size);
    if (taken > 0) {
      data += taken;
      size -= static_cast<std::size_t>(taken);
    } else if (taken == 0 || errno != EINTR) {
      return FromSystem(taken == 0 ? EIO : errno, "cannot write '" + Shown(path) + "'");
    }
  }
  return {};
}

Result OutputFile::Finish() {
  if (!file) {
    if (Result result = Open(); !result.Ok()) return result;
  }
  if (!file.Close()) return FromSystem(errno, "cannot write '" + Shown(path) + "'");
  if (!made.empty() && made != path &&
      ::renameat(directory, made.c_str(), directory, path.c_str()) != 0) {
    return FromSystem(errno, "cannot replace '" + Shown(path) + "'");
  }
  made.clear();
  return {};
}

Result OutputFile::Open() {
  if (directory == AT_FDCWD && IsStandardStream(path)) {
    file = Descriptor(STDOUT_FILENO);
    return {};
  }
  file = Descriptor(::openat(directory, path.c_str(),
                             O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
  if (file) {
    made = path;
    return {};
  }
  if (errno != EEXIST) return FromSystem(errno, "cannot make '" + Shown(path) + "'");
  if (ifThere == IfThere::kRefuse) return {kFailure, "'" + Shown(path) + "' exists already"};
  return ifThere == IfThere::kReplace ? OpenBesideExisting() : OpenExisting();
}

Result OutputFile::OpenExisting() {
  // Emptied only once it is known that it is not the store.
  file = Descriptor(::openat(directory, path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
  if (!file) return FromSystem(errno, "cannot open '" + Shown(path) + "'");
  if (FileIdentity::Of(file.Number()) == store) {
    file.Close();
    return {kFailure, "the output is the store itself"};
  }
  if (IsRegularFile(file.Number()) && ::ftruncate(file.Number(), 0) != 0) {
    return FromSystem(errno, "cannot write '" + Shown(path) + "'");
  }
  return {};
}

Result OutputFile::OpenBesideExisting() {
  struct stat state {};
  if (::fstatat(directory, path.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0) {
    return FromSystem(errno, "cannot look at '" + Shown(path) + "'");
  }
  if (!S_ISREG(state.st_mode) && !S_ISLNK(state.st_mode)) {
    return {kFailure, "'" + Shown(path) + "' exists and is no file"};
  }
  if (FileIdentity{state.st_dev, state.st_ino} == store) {
    return {kFailure, "the output is the store itself"};
  }
  const std::string temporary = ".aostorage-export-" + std::to_string(::getpid()) + ".tmp";
  file = Descriptor(::openat(directory, temporary.c_str(),
                             O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
  if (!file) return FromSystem(errno, "cannot make '" + temporary + "'");
  made = temporary;
  return {};
}

}  // namespace aotool
