#include "store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include <aostorage/error.h>
#include <aostorage/types.h>

namespace aotool {
namespace {

// True when Open gave a store but met damage in the directory.
bool MetDamage() { return aostorage::LastError().code != aostorage::ErrorCode::kNone; }

StoragePtr Open(const std::string& path, std::uint32_t flags, std::uint32_t reserve,
                Report& report) {
  aostorage::ClearLastError();
  StoragePtr storage(aostorage::aoStorage::Open(path.c_str(), flags, reserve));
  if (!storage) {
    Result failure = FromLibrary();
    if (failure.code == kNotFound) failure.reason = "there is no such store";
    report.Fail("", failure);
  }
  return storage;
}

StoragePtr OpenUndamaged(const std::string& path, std::uint32_t flags, std::uint32_t reserve,
                         Report& report) {
  StoragePtr storage = Open(path, flags, reserve, report);
  if (!storage || !MetDamage()) return storage;
  report.Fail("", {FromLibrary().code, "the directory breaks off: nothing was changed"});
  return nullptr;
}

// There is nothing in such a file that could be lost.
bool IsEmptyFile(const std::string& path) {
  struct stat state {};
  return ::stat(path.c_str(), &state) == 0 && S_ISREG(state.st_mode) && state.st_size == 0;
}

bool IsStore(const std::string& path) {
  return StoragePtr(aostorage::aoStorage::OpenFast(path.c_str(), aostorage::kReadFlags, 0)) !=
         nullptr;
}

Result Fill(const std::string& path) {
  const StoragePtr storage(
      aostorage::aoStorage::OpenOrCreate(path.c_str(), aostorage::kWriteFlags, 0));
  return storage ? Result{} : FromLibrary();
}

Result Empty(const std::string& path) {
  const StoragePtr storage(aostorage::aoStorage::Create(path.c_str(), aostorage::kWriteFlags, 0));
  return storage ? Result{} : FromLibrary();
}

}  // namespace

Result Remove(StreamPtr& stream) {
  aostorage::ClearLastError();
  if (!stream->Remove()) return FromLibrary();
  static_cast<void>(stream.release());  // the removal ended the object
  return {};
}

StoragePtr OpenForReading(const std::string& path, Report& report) {
  StoragePtr storage = Open(path, aostorage::kReadFlags, 0, report);
  if (storage && MetDamage()) {
    report.Fail("", {FromLibrary().code, "the directory breaks off: streams may be missing"});
  }
  return storage;
}

StoragePtr OpenWhole(const std::string& path, Report& report) {
  return OpenUndamaged(path, aostorage::kReadFlags, 0, report);
}

StoragePtr OpenForWriting(const std::string& path, std::uint32_t reserve, Report& report) {
  return OpenUndamaged(path, aostorage::kWriteFlags, reserve, report);
}

Result CreateStore(const std::string& path, bool replace) {
  aostorage::ClearLastError();
  // The file is made here and not by the library, so that nothing that stands there can be emptied.
  const int made = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (made >= 0) {
    ::close(made);
    Result result = Fill(path);
    if (!result.Ok()) ::unlink(path.c_str());
    return result;
  }
  if (errno != EEXIST) return FromSystem(errno, "cannot be created");
  if (IsEmptyFile(path)) return Fill(path);
  if (!replace) return {kFailure, "exists already (--force makes it empty)"};
  return IsStore(path) ? Empty(path) : FromLibrary();
}

std::optional<FileHeader> ReadHeader(const std::string& path) {
  char bytes[32];
  std::ifstream file(path, std::ios::binary);
  if (!file.read(bytes, sizeof bytes)) return std::nullopt;
  if (bytes[24] == '_') return FileHeader{true, 2};
  return FileHeader{
      false, static_cast<unsigned char>(bytes[28]) + 256U * static_cast<unsigned char>(bytes[29])};
}

}  // namespace aotool
