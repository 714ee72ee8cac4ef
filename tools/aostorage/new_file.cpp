#include "new_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace aotool {

NewFile::~NewFile() {
  if (!temporary.empty()) ::unlink(temporary.c_str());
}

Result NewFile::Check(const FileIdentity& source) const {
  const std::string shown = "'" + Shown(path) + "'";
  if (path == "-") return {kFailure, "a store cannot go to standard output"};
  if (source == FileIdentity::At(path)) return {kFailure, shown + " is the store itself"};
  struct stat state {};
  if (::lstat(path.c_str(), &state) != 0) return {};
  if (!S_ISREG(state.st_mode) && !S_ISLNK(state.st_mode))
    return {kFailure, shown + " exists and is no file"};
  if (!replace) return {kFailure, shown + " exists already (--force replaces it)"};
  return {};
}

Result NewFile::Make() {
  const std::string directory = path.substr(0, path.rfind('/') + 1);
  const std::string name = directory + ".aostorage-recover-" + std::to_string(::getpid()) + ".tmp";
  const Descriptor made(
      ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
  if (!made) return FromSystem(errno, "cannot make '" + Shown(name) + "'");
  temporary = name;
  return {};
}

Result NewFile::PutInPlace() {
  if (!replace) {
    // A link never takes the place of what came there meanwhile; not every file system has them.
    if (::link(temporary.c_str(), path.c_str()) == 0) {
      ::unlink(temporary.c_str());
      temporary.clear();
      return {};
    }
    struct stat state {};
    if (errno == EEXIST || ::lstat(path.c_str(), &state) == 0) return CannotBeMade();
  }
  if (std::rename(temporary.c_str(), path.c_str()) != 0) return CannotBeMade();
  temporary.clear();
  return {};
}

Result NewFile::CannotBeMade() const {
  return FromSystem(errno != 0 ? errno : EEXIST, "cannot make '" + Shown(path) + "'");
}

}  // namespace aotool
