#include "support/temp_dir.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace aostorage::testing {
namespace {

// In memory, where the system has that and nobody asks for another place.
std::filesystem::path Around() {
  const std::filesystem::path memory = "/dev/shm";
  return std::getenv("TMPDIR") == nullptr && access(memory.c_str(), W_OK) == 0
             ? memory
             : std::filesystem::temp_directory_path();
}

}  // namespace

TempDir::TempDir() : path((Around() / "aostorage-test-XXXXXX").string()) {
  if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("no temporary directory: " + path);
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}

}  // namespace aostorage::testing
