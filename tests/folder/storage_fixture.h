/// @file
/// What tests of folders, entries, walks and values share: one storage file and its bytes.
#ifndef AOSTORAGE_TESTS_FOLDER_STORAGE_FIXTURE_H_
#define AOSTORAGE_TESTS_FOLDER_STORAGE_FIXTURE_H_

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/handles.h"
#include "support/raw_file.h"
#include "support/syscalls.h"
#include "support/temp_dir.h"

namespace aostorage::testing {

inline constexpr std::uint32_t kFolderKind = PackKind(true);
inline constexpr std::uint32_t kPlainKind = PackKind(false);

class StorageFileTest : public ::testing::Test {
 protected:
  Storage Create(std::uint32_t reserve = 0) const {
    return Storage(aoStorage::Create(path.c_str(), 0, reserve));
  }
  Storage Open(std::uint32_t reserve = 0) const {
    return Storage(aoStorage::Open(path.c_str(), kStreamWrite, reserve));
  }
  Storage OpenFast() const { return Storage(aoStorage::OpenFast(path.c_str(), kStreamWrite, 0)); }
  Storage OpenBytes(const Bytes& bytes, std::uint32_t reserve = 0) const {
    WriteFile(path, bytes);
    return Open(reserve);
  }
  Bytes File() const { return ReadFile(path); }
  RawImage Image() const { return ReadImage(File()); }
  /// The stream of that path as it stands in the file; without a name if there is none.
  RawStream Raw(const std::string& streamPath) const {
    const RawImage image = Image();
    const RawStream* stream = image.Find(streamPath);
    return stream == nullptr ? RawStream{} : *stream;
  }

  const TempDir dir;
  const std::string path = dir.File("storage");
};

/// With one storage that is open.
class OneStorageTest : public StorageFileTest {
 protected:
  void Reopen(std::uint32_t reserve = 0) {
    storage.reset();
    storage = Open(reserve);
  }
  void Load(const FileBuilder& builder, std::uint32_t reserve = 0) {
    storage.reset();
    storage = OpenBytes(builder.bytes, reserve);
  }
  /// A root stream.
  Stream Root(const std::string& name, std::uint32_t flags = kWriteFlags) const {
    return Stream(storage->OpenStream(name.c_str(), flags));
  }
  Stream MakeRoot(const std::string& name, std::uint32_t packedKind = kPlainKind) const {
    return Stream(storage->CreateStream(name.c_str(), packedKind, kWriteFlags));
  }

  Storage storage;
};

inline bool Append(aoStream& stream, const Bytes& bytes) {
  const auto count = static_cast<std::uint32_t>(bytes.size());
  return stream.Seek(0, 1) == 0 && stream.Write(bytes.data(), count) == count;
}

/// All that the object says is the stream's; what could not be read is missing.
inline Bytes ReadValue(aoStream& stream) {
  Bytes bytes(stream.GetLength());
  stream.Seek(0, 0);
  const std::uint32_t got = stream.Read(bytes.data(), stream.GetLength());
  bytes.resize(got == kFailed ? 0 : got);
  return bytes;
}

inline std::vector<std::string> NamesIn(aoStream& folder) {
  std::vector<std::string> names;
  folder.EnumStreams(names);
  return names;
}

/// Ends the stream at once. @return whether there was one
inline bool Got(aoStream* stream) { return Stream(stream) != nullptr; }

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_FOLDER_STORAGE_FIXTURE_H_
