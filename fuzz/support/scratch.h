/// @file
/// The files that targets work on.
#ifndef AOSTORAGE_FUZZ_SUPPORT_SCRATCH_H_
#define AOSTORAGE_FUZZ_SUPPORT_SCRATCH_H_

#include <string>

#include "support/raw_file.h"
#include "support/temp_dir.h"

namespace aostorage::fuzz {

/// A path in a directory of this process; the files stay for the next input.
inline std::string ScratchPath(const char* name) {
  static const testing::TempDir dir;
  return dir.File(name);
}

/// Puts `bytes` there and gives the path.
inline std::string ScratchFile(const char* name, const testing::Bytes& bytes) {
  const std::string path = ScratchPath(name);
  testing::WriteFile(path, bytes);
  return path;
}

}  // namespace aostorage::fuzz

#endif  // AOSTORAGE_FUZZ_SUPPORT_SCRATCH_H_
