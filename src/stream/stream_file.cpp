// The generic file interface, and the adapter that puts an open stream behind it.
#include <stdexcept>

#include <aostorage/stream.h>
#include <aostorage/stream_file.h>

#include "platform/last_error.h"

namespace aostorage {

using detail::Fail;
using detail::Guarded;

namespace {

constexpr std::uint32_t kNoSchema = 0xFFFF;

}  // namespace

// --- A file that is not open

const CRuntimeClass CFile::classCFile{"CFile", kNoSchema, nullptr, nullptr};

CFile::CFile() = default;
CFile::~CFile() = default;

const CRuntimeClass* CFile::GetRuntimeClass() const { return &classCFile; }
std::uint64_t CFile::GetPosition() const { return 0; }
std::string CFile::GetFileName() const { return {}; }
std::string CFile::GetFileTitle() const { return {}; }

std::string CFile::GetFilePath() const {
  return Guarded(std::string(), [&] { return filePath; });
}

void CFile::SetFilePath(const char* path) {
  if (path == nullptr) throw std::invalid_argument("CFile::SetFilePath: the path is null");
  Guarded(false, [&] { return filePath = path, true; });
}

bool CFile::Open(const char* /*path*/, std::uint32_t /*openFlags*/) {
  return Fail(Error::kRefused);
}

CFile* CFile::Duplicate() const { return Fail(Error::kRefused), nullptr; }

std::uint64_t CFile::Seek(std::int64_t /*offset*/, std::uint32_t /*origin*/) {
  return Fail(Error::kRefused), 0;
}

void CFile::SetLength(std::uint64_t /*newLength*/) {}
std::uint64_t CFile::GetLength() const { return 0; }

std::uint32_t CFile::Read(void* /*buffer*/, std::uint32_t /*count*/) {
  return Fail(Error::kRefused), 0;
}

void CFile::Write(const void* /*buffer*/, std::uint32_t /*count*/) { Fail(Error::kRefused); }
void CFile::LockRange(std::uint64_t /*position*/, std::uint64_t /*count*/) {}
void CFile::UnlockRange(std::uint64_t /*position*/, std::uint64_t /*count*/) {}
void CFile::Abort() {}
void CFile::Flush() {}
void CFile::Close() {}

std::uint32_t CFile::GetBufferPtr(std::uint32_t /*command*/, std::uint32_t /*count*/,
                                  void** /*start*/, void** /*end*/) {
  return 0;
}

// --- An open stream as a file

const CRuntimeClass CAoStreamFile::classCAoStreamFile{"CAoStreamFile", kNoSchema, nullptr,
                                                      &CFile::classCFile};

const CRuntimeClass* CAoStreamFile::GetThisClass() { return &classCAoStreamFile; }
const CRuntimeClass* CAoStreamFile::_GetBaseClass() { return &classCFile; }

CAoStreamFile::CAoStreamFile() = default;
CAoStreamFile::CAoStreamFile(aoStream* stream) : boundStream(stream) {}
CAoStreamFile::~CAoStreamFile() = default;

const CRuntimeClass* CAoStreamFile::GetRuntimeClass() const { return GetThisClass(); }
CFile* CAoStreamFile::Duplicate() const { return Fail(Error::kRefused), nullptr; }

std::uint32_t CAoStreamFile::Read(void* buffer, std::uint32_t count) {
  if (boundStream == nullptr) return Fail(Error::kRefused), kFailed;
  return boundStream->Read(buffer, count);
}

void CAoStreamFile::Write(const void* buffer, std::uint32_t count) {
  if (boundStream == nullptr) return static_cast<void>(Fail(Error::kRefused));
  boundStream->Write(buffer, count, false);
}

void CAoStreamFile::Abort() {}
void CAoStreamFile::Flush() {}
void CAoStreamFile::Close() {}
void CAoStreamFile::LockRange(std::uint32_t /*position*/, std::uint32_t /*count*/) {}
void CAoStreamFile::UnlockRange(std::uint32_t /*position*/, std::uint32_t /*count*/) {}
void CAoStreamFile::SetLength(std::uint32_t /*newLength*/) {}

std::string CAoStreamFile::GetStorageName() {
  if (boundStream == nullptr) return {};
  return Guarded(std::string(), [&] { return std::string(boundStream->GetName()); });
}

std::uint32_t CAoStreamFile::GetLength() {
  return boundStream == nullptr ? 0 : boundStream->GetLength();
}

std::int32_t CAoStreamFile::Seek(std::int32_t offset, std::uint32_t origin) {
  if (boundStream == nullptr) return Fail(Error::kRefused), -1;
  return boundStream->Seek2(offset, origin);
}

}  // namespace aostorage
