// Directories of the machine that are walked down and up again.
#ifndef AOSTORAGE_TOOLS_DIRECTORIES_H_
#define AOSTORAGE_TOOLS_DIRECTORIES_H_

#include <string>
#include <vector>

#include "files.h"
#include "report.h"

namespace aotool {

// A directory and the way down to it, one open directory at each step of the way. Only the lowest
// ones stay open; the others are opened again, and recognised, on the way up. So there is no limit
// to the depth, and a path that is changed meanwhile leads nowhere else.
class DirectoryStack {
 public:
  // Goes to the first directory; a link at the path is followed. With `make` it is made when
  // missing.
  Result Start(const std::string& path, bool make);
  // Goes down. A link of that name is not followed.
  Result Enter(const std::string& name);
  // As Enter, and makes the directory unless one is there.
  Result MakeAndEnter(const std::string& name);
  // Back up to the parent.
  Result Leave();

  int Bottom() const { return levels.back().directory.Number(); }

 private:
  struct Level {
    Descriptor directory;
    FileIdentity identity;
  };

  Result Push(Descriptor directory);

  std::vector<Level> levels;
};

// The names in the directory in byte order, without "." and "..".
Result ListDirectory(int directory, std::vector<std::string>& names);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_DIRECTORIES_H_
