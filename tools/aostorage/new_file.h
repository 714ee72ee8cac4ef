// A file that gets its name when it is whole.
#ifndef AOSTORAGE_TOOLS_NEW_FILE_H_
#define AOSTORAGE_TOOLS_NEW_FILE_H_

#include <string>

#include "files.h"
#include "report.h"

namespace aotool {

// Until PutInPlace the file has a temporary name beside its place. It is removed with this object
// unless it was put in place.
class NewFile {
 public:
  NewFile(std::string wantedPath, bool mayReplace)
      : path(std::move(wantedPath)), replace(mayReplace) {}
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  ~NewFile();

  // What keeps the path from taking the file: something that stands there, the source above all.
  Result Check(const FileIdentity& source) const;
  // Makes the file, empty.
  Result Make();
  const std::string& Temporary() const { return temporary; }
  // Only with `mayReplace` in the place of another file.
  Result PutInPlace();

 private:
  Result CannotBeMade() const;

  const std::string path;
  const bool replace;
  std::string temporary;  // empty when there is none
};

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_NEW_FILE_H_
