// What stands at a path.
#ifndef AOSTORAGE_PLATFORM_STANDING_H_
#define AOSTORAGE_PLATFORM_STANDING_H_

#include <string>

#include "platform/file.h"

namespace aostorage::detail {

// A regular file, or nothing, at a path or at the end of the symbolic links that begin there.
struct Standing {
  std::string path;  // behind the links
  bool exists = false;
  FileIdentity identity;
  unsigned mode = 0, user = 0, group = 0;
  bool hasOtherNames = false;

  // False with the reason noted for anything else, and for links in a circle.
  [[nodiscard]] static bool Look(const std::string& at, Standing& found);
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_PLATFORM_STANDING_H_
