/// @file
/// A directory of its own for each test.
#ifndef AOSTORAGE_TESTS_SUPPORT_TEMP_DIR_H_
#define AOSTORAGE_TESTS_SUPPORT_TEMP_DIR_H_

#include <string>

namespace aostorage::testing {

/// Made by the constructor, removed with all it holds by the destructor.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& Path() const { return path; }
  std::string File(const std::string& name) const { return path + "/" + name; }

 private:
  std::string path;
};

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_TEMP_DIR_H_
