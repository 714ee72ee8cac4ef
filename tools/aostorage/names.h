// Names of files that become names of streams, and the other way round.
#ifndef AOSTORAGE_TOOLS_NAMES_H_
#define AOSTORAGE_TOOLS_NAMES_H_

#include <cstddef>
#include <string>
#include <unordered_set>

namespace aotool {

// The names given so far in one folder or directory.
class UsedNames {
 public:
  void Add(const std::string& name) { names.insert(name); }

  // `name`, cut to `longest` bytes and changed by a number at its end as far as that is needed to
  // differ from all names given before. The result counts as given.
  std::string MakeUnique(const std::string& name, std::size_t longest) {
    return MakeUnique(name, "", longest);
  }
  // As above, with an ending that is kept whole.
  std::string MakeUnique(const std::string& name, const std::string& ending, std::size_t longest);

 private:
  std::unordered_set<std::string> names;
};

// A file name, not longer than the system takes, that names a file right in the directory it is
// used in: slashes and control characters, and the names "." and "..", are written as %XX.
std::string SafeFileName(const std::string& streamName);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_NAMES_H_
