#include "support/temp_dir.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace aostorage::testing {

TempDir::TempDir()
    : path((std::filesystem::temp_directory_path() / "aostorage-test-XXXXXX").string()) {
  if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("no temporary directory: " + path);
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}

}  // namespace aostorage::testing
