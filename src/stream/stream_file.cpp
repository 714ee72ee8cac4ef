// The generic file interface, and the adapter that puts an open stream behind it.
#include <stdexcept>

#include <aostorage/stream.h>
#include <aostorage/stream_file.h>

#include "platform/last_error.h"

namespace aostorage {

using detail::Fail;
using detail::Guarded;
using detail::Operation;

namespace {

constexpr std::uint32_t kNoSchema = 0xFFFF;

// The result of every operation on a file that is not open.
std::uint32_t NotOpen(const char* operationName) {
  const Operation operation(operationName);
  Fail(ErrorCode::kNotOpen);
  return 0;
}

void Lacks(const char* operationName) {
  const Operation operation(operationName);
  Fail(ErrorCode::kWrongKind);
}

}  // namespace

// --- A file that is not open

const CRuntimeClass CFile::classCFile{"CFile", kNoSchema, nullptr, nullptr};

CFile::CFile() = default;
CFile::~CFile() = default;

const CRuntimeClass* CFile::GetRuntimeClass() const { return &classCFile; }
std::uint64_t CFile::GetPosition() const { return NotOpen("CFile::GetPosition"); }
std::string CFile::GetFileName() const { return NotOpen("CFile::GetFileName"), std::string(); }
std::string CFile::GetFileTitle() const { return NotOpen("CFile::GetFileTitle"), std::string(); }

std::string CFile::GetFilePath() const {
  return Guarded("CFile::GetFilePath", std::string(), [&] { return filePath; });
}

void CFile::SetFilePath(const char* path) {
  const Operation operation("CFile::SetFilePath");
  if (path == nullptr) {
    Fail(ErrorCode::kBadArgument);
    throw std::invalid_argument("CFile::SetFilePath: the path is null");
  }
  Guarded(false, [&] { return filePath = path, true; });
}

bool CFile::Open(const char* /*path*/, std::uint32_t /*openFlags*/) {
  return NotOpen("CFile::Open") != 0;
}

CFile* CFile::Duplicate() const { return NotOpen("CFile::Duplicate"), nullptr; }

std::uint64_t CFile::Seek(std::int64_t /*offset*/, std::uint32_t /*origin*/) {
  return NotOpen("CFile::Seek");
}

void CFile::SetLength(std::uint64_t /*newLength*/) { NotOpen("CFile::SetLength"); }
std::uint64_t CFile::GetLength() const { return NotOpen("CFile::GetLength"); }

std::uint32_t CFile::Read(void* /*buffer*/, std::uint32_t /*count*/) {
  return NotOpen("CFile::Read");
}

void CFile::Write(const void* /*buffer*/, std::uint32_t /*count*/) { NotOpen("CFile::Write"); }
void CFile::LockRange(std::uint64_t /*position*/, std::uint64_t /*count*/) {
  NotOpen("CFile::LockRange");
}
void CFile::UnlockRange(std::uint64_t /*position*/, std::uint64_t /*count*/) {
  NotOpen("CFile::UnlockRange");
}
void CFile::Abort() {}
void CFile::Flush() {}
void CFile::Close() {}

std::uint32_t CFile::GetBufferPtr(std::uint32_t /*command*/, std::uint32_t /*count*/,
                                  void** /*start*/, void** /*end*/) {
  return NotOpen("CFile::GetBufferPtr");
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
CFile* CAoStreamFile::Duplicate() const {
  const Operation operation("CAoStreamFile::Duplicate");
  return Fail(ErrorCode::kWrongKind), nullptr;
}

std::uint32_t CAoStreamFile::Read(void* buffer, std::uint32_t count) {
  const Operation operation("CAoStreamFile::Read");
  if (boundStream == nullptr) return Fail(ErrorCode::kNotOpen), kFailed;
  return boundStream->Read(buffer, count);
}

void CAoStreamFile::Write(const void* buffer, std::uint32_t count) {
  const Operation operation("CAoStreamFile::Write");
  if (boundStream == nullptr) {
    Fail(ErrorCode::kNotOpen);
  } else if (boundStream->Write(buffer, count, false) != count) {
    Fail(ErrorCode::kInputOutput);  // unless the stream has told why
  }
}

void CAoStreamFile::Abort() {}
void CAoStreamFile::Flush() {}
void CAoStreamFile::Close() {}
void CAoStreamFile::LockRange(std::uint32_t /*position*/, std::uint32_t /*count*/) {
  Lacks("CAoStreamFile::LockRange");
}
void CAoStreamFile::UnlockRange(std::uint32_t /*position*/, std::uint32_t /*count*/) {
  Lacks("CAoStreamFile::UnlockRange");
}
void CAoStreamFile::SetLength(std::uint32_t /*newLength*/) { Lacks("CAoStreamFile::SetLength"); }

std::string CAoStreamFile::GetStorageName() {
  return Guarded("CAoStreamFile::GetStorageName", std::string(), [&] {
    if (boundStream == nullptr) return Fail(ErrorCode::kNotOpen), std::string();
    return std::string(boundStream->GetName());
  });
}

std::uint32_t CAoStreamFile::GetLength() {
  const Operation operation("CAoStreamFile::GetLength");
  return boundStream == nullptr ? (Fail(ErrorCode::kNotOpen), 0) : boundStream->GetLength();
}

std::int32_t CAoStreamFile::Seek(std::int32_t offset, std::uint32_t origin) {
  const Operation operation("CAoStreamFile::Seek");
  if (boundStream == nullptr) return Fail(ErrorCode::kNotOpen), -1;
  return boundStream->Seek2(offset, origin);
}

}  // namespace aostorage
