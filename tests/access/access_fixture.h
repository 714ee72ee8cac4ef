/// @file
/// What the tests of loader and facade share: a storage file with streams and an object on it.
#ifndef AOSTORAGE_TESTS_ACCESS_ACCESS_FIXTURE_H_
#define AOSTORAGE_TESTS_ACCESS_ACCESS_FIXTURE_H_

#include <filesystem>
#include <string>
#include <vector>

#include "folder/storage_fixture.h"

namespace aostorage::testing {

class AccessTest : public StorageFileTest {
 protected:
  static constexpr std::int32_t kReading = 1, kWriting = 2;

  /// The plain stream "p" of 10 bytes and the folder "f" of the children "a" (30 bytes), "b"
  /// (empty) and "sub" (a folder).
  void SetUp() override {
    const Storage storage = Create();
    ASSERT_TRUE(Append(*Stream(storage->CreateStream("p", kWriteFlags)), Pattern(10)));
    const Stream folder(storage->CreateStream("f", kFolderKind, kWriteFlags));
    ASSERT_TRUE(Append(*Stream(folder->CreateStream("a", kPlainKind, kWriteFlags)), Pattern(30)));
    ASSERT_TRUE(Got(folder->CreateStream("b", kPlainKind, kWriteFlags)));
    ASSERT_TRUE(Got(folder->CreateStream("sub", kFolderKind, kWriteFlags)));
    start = File();
  }
  void OpenFresh(std::int32_t mode = kWriting) {
    WriteFile(path, start);
    ASSERT_EQ(facade.Open(path.c_str(), mode), 1);
  }
  /// The name of the generic stream.
  static std::string Generic(CCompStgFile& of) {
    const char* name = of.GetStreamName();
    return name != nullptr ? name : "none";
  }
  static bool HasChild(CCompStgFile& of) { return of.GoToBeginningOfGenericChildStream() == 1; }
  /// Objects open on a root stream, by the count that one more gets at its release.
  static int Users(aoStorage& storage, const char* name) {
    return storage.OpenStream(name, kReadFlags)->Release() - 1;
  }
  static std::ptrdiff_t OpenDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
  }

  Bytes start;
  CCompStgFile facade;
};

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_ACCESS_ACCESS_FIXTURE_H_
