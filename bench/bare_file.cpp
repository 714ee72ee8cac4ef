#include "bare_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace aobench {
namespace {

bool Moved(ssize_t moved, std::size_t wanted) {
  return moved >= 0 && static_cast<std::size_t>(moved) == wanted;
}

int OpenFlags(BareFile::Mode mode) {
  return (mode == BareFile::Mode::kCreate ? O_RDWR | O_CREAT | O_TRUNC : O_RDONLY) | O_CLOEXEC;
}

}  // namespace

BareFile::BareFile(const std::string& path, Mode mode)
    : descriptor(::open(path.c_str(), OpenFlags(mode), 0666)) {}

BareFile::~BareFile() {
  if (IsOpen()) ::close(descriptor);
}

bool BareFile::ReadAt(std::int64_t offset, void* buffer, std::size_t count) const {
  return Moved(::pread(descriptor, buffer, count, offset), count);
}

bool BareFile::ReadTwoAt(std::int64_t offset, void* first, std::size_t firstCount, void* second,
                         std::size_t secondCount) const {
  const iovec parts[2] = {{first, firstCount}, {second, secondCount}};
  return Moved(::preadv(descriptor, parts, 2, offset), firstCount + secondCount);
}

bool BareFile::WriteAt(std::int64_t offset, const void* buffer, std::size_t count) {
  return Moved(::pwrite(descriptor, buffer, count, offset), count);
}

std::int64_t BareFile::Size() const {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 ? static_cast<std::int64_t>(status.st_size) : -1;
}

}  // namespace aobench
