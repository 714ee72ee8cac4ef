// Puts a finished file in the place of another one.
#ifndef AOSTORAGE_PLATFORM_REPLACEMENT_H_
#define AOSTORAGE_PLATFORM_REPLACEMENT_H_

#include <string>

#include "platform/file.h"
#include "platform/standing.h"

namespace aostorage::detail {

// A new file for a path. It is made beside the path, filled, and then takes the place of what
// stands there in one step, so that the path leads to the old file or to the new one at every
// moment. What the owner of the path gave it stays: mode, owner, and symbolic links on the way.
//
//   Aim -> MakeTemporary -> (the caller fills the file) -> PutInPlace
//
// The temporary file goes with this object unless it was put in place. Only where one step is not
// possible is the content copied over; a copy that fails leaves the temporary file where it is,
// since it is then the only whole one, and no file that could be taken for a storage at the path.
class Replacement {
 public:
  enum class Outcome {
    kNothingReplaced,
    kReplaced,
    kBrokenOff,  // the old file is no more and the new one is whole at the temporary path alone
  };

  Replacement() = default;
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;
  ~Replacement();

  // Looks at what stands at the path. False for anything but a regular file or nothing.
  [[nodiscard]] bool Aim(const std::string& path);
  // Makes the temporary file, in the place of a regular file that was left there. Nothing else
  // that stands there is touched, and neither are the source and the goal themselves: no open file.
  File MakeTemporary(const FileIdentity& source);
  // Flushes the temporary file to the disk and puts it in place, unless another file than that of
  // Aim came to stand there.
  // Without `mayCopyOver` only in one step.
  Outcome PutInPlace(File& temporary, bool mayCopyOver);

  const std::string& TemporaryPath() const { return temporaryPath; }
  // What Aim found at the path.
  const Standing& Goal() const { return goal; }

 private:
  [[nodiscard]] bool IsStillThere() const;
  Outcome CopyOver(File& temporary, const Standing& old);

  // All that takes memory is there before anything is put in place.
  std::string temporaryPath, temporaryDirectory, goalDirectory;
  FileIdentity temporaryIdentity;
  Standing goal;
  bool made = false;
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_PLATFORM_REPLACEMENT_H_
