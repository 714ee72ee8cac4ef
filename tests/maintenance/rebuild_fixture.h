/// @file
/// What tests of the rebuild share.
#ifndef AOSTORAGE_TESTS_MAINTENANCE_REBUILD_FIXTURE_H_
#define AOSTORAGE_TESTS_MAINTENANCE_REBUILD_FIXTURE_H_

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "folder/storage_fixture.h"
#include "support/tree_text.h"

namespace aostorage::testing {

inline bool Exists(const std::string& path) {
  return std::filesystem::exists(std::filesystem::symlink_status(path));
}

inline struct stat StatusOf(const std::string& path) {
  struct stat status {};
  ::lstat(path.c_str(), &status);
  return status;
}

class Rebuild : public StorageFileTest {
 public:
  using StorageFileTest::dir;
  using StorageFileTest::Open;
  using StorageFileTest::OpenFast;
  using StorageFileTest::path;
  using StorageFileTest::Raw;

  std::string Directory(const std::string& name) const {
    std::filesystem::create_directory(dir.File(name));
    return dir.File(name);
  }
  /// The storage is opened anew, as it has what was read of the file.
  void Patch(std::size_t offset, std::uint32_t value) {
    opened.reset();
    PatchFile32(path, offset, value);
    opened = Open();
  }

  Storage opened;
  Stream held;
  std::string target;

 protected:
  /// The first form; on success the owner has the new storage.
  static bool Recreate(Storage& source, const std::string& to) {
    aoStorage* const old = source.release();
    source.reset(aoStorage::Recreate(old, to.c_str()));
    return source != nullptr && source.get() != old;
  }
  std::vector<std::string> NamesInDirectory() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir.Path()))
      names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }
  /// Only the storage file stays.
  void Clean() {
    held.reset();
    opened.reset();
    for (const std::string& name : NamesInDirectory()) {
      if (dir.File(name) != path) std::filesystem::remove_all(dir.File(name));
    }
  }
};

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_MAINTENANCE_REBUILD_FIXTURE_H_
