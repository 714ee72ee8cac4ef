// How a facade moves bytes, and what it does apart from its state.
#include <array>
#include <cinttypes>
#include <cstdio>

#include <aostorage/compound_file.h>

#include "access/held.h"
#include "platform/directory_scan.h"
#include "platform/last_error.h"

namespace aostorage {

using detail::Fail;
using detail::Operation;

namespace {

constexpr std::size_t kNumberTextSize = 9;  // eight digits and the terminator

bool IsUsable(const std::uint8_t* data, std::int32_t size) {
  return (size >= 0 && (data != nullptr || size == 0)) || Fail(ErrorCode::kBadArgument);
}

// Whether all bytes were written. The bytes of a folder are its children's records: never written
// here.
bool WriteAll(aoStream* target, const std::uint8_t* data, std::int32_t size, bool final) {
  if (target == nullptr) return Fail(ErrorCode::kNotOpen);
  if (target->IsFolder() != 0) return Fail(ErrorCode::kWrongKind);
  if (!IsUsable(data, size)) return false;
  const auto count = static_cast<std::uint32_t>(size);
  return target->Write(data, count, final) == count || Fail(ErrorCode::kInputOutput);
}

// A negative size would be a count that no buffer has room for.
std::uint32_t ReadInto(aoStream& from, std::uint8_t* data, std::int32_t size) {
  return IsUsable(data, size) ? from.Read(data, static_cast<std::uint32_t>(size)) : kFailed;
}

}  // namespace

// --- Writing

int CCompStgFile::WriteGenericStream(const std::uint8_t* data, std::int32_t size) {
  const Operation operation("CCompStgFile::WriteGenericStream");
  return WriteGenericStream(Generic(), data, size);
}

int CCompStgFile::WriteGenericStream(aoStream* target, const std::uint8_t* data,
                                     std::int32_t size) {
  const Operation operation("CCompStgFile::WriteGenericStream");
  return WriteAll(target, data, size, false) ? 1 : 0;
}

int CCompStgFile::WriteGenericChildStream(const char* name, const std::uint8_t* data,
                                          std::int32_t size, std::int32_t append,
                                          std::int32_t final) {
  const Operation operation("CCompStgFile::WriteGenericChildStream");
  return WriteGenericChildStream(Generic(), name, data, size, append, final);
}

int CCompStgFile::WriteGenericChildStream(aoStream* folder, const char* name,
                                          const std::uint8_t* data, std::int32_t size,
                                          std::int32_t append, std::int32_t final) {
  const Operation operation("CCompStgFile::WriteGenericChildStream");
  if (folder == nullptr) return Fail(ErrorCode::kNotOpen), 0;
  if (folder->IsFolder() == 0) return Fail(ErrorCode::kWrongKind), 0;
  if (!IsUsable(data, size)) return 0;  // before a child is made for it
  aoStream* const child = folder->OpenOrCreateStream(name, PackKind(false), kWriteFlags);
  if (child == nullptr) return 0;
  if (append != 0) child->Seek(0, 1);
  const bool written = WriteAll(child, data, size, final != 0);
  child->Release();
  return written ? 1 : 0;
}

std::uint32_t CCompStgFile::WriteGenericChildOpenedStream(const std::uint8_t* data,
                                                          std::int32_t size, std::int32_t final) {
  const Operation operation("CCompStgFile::WriteGenericChildOpenedStream");
  aoStream* const target = Generic() != nullptr ? Child() : nullptr;
  return WriteAll(target, data, size, final != 0) ? static_cast<std::uint32_t>(size) : 0;
}

// --- Reading

std::uint32_t CCompStgFile::ReadGenericStream(std::uint8_t* data, std::int32_t size) {
  const Operation operation("CCompStgFile::ReadGenericStream");
  aoStream* const from = Generic();
  if (from == nullptr) return Fail(ErrorCode::kNotOpen), 0;
  return ReadInto(*from, data, size);
}

std::uint32_t CCompStgFile::ReadGenericChildStream(std::uint8_t* data, std::int32_t size) {
  const Operation operation("CCompStgFile::ReadGenericChildStream");
  aoStream* const from = Generic() != nullptr ? Child() : nullptr;
  if (from == nullptr) return Fail(ErrorCode::kNotOpen), 0;
  return ReadInto(*from, data, size);
}

std::int32_t CCompStgFile::ReadTagSeekBack(std::uint8_t* data, std::int32_t size) {
  const Operation operation("CCompStgFile::ReadTagSeekBack");
  aoStream* const from = Generic();
  if (from == nullptr) return Fail(ErrorCode::kNotOpen), 0;
  if (!IsUsable(data, size)) return -1;
  const auto count = static_cast<std::uint32_t>(size);
  const std::uint32_t got = from->Read(data, count);
  // By the count asked for, also where less came.
  if (got != 0) from->Seek(count, 2, false);
  return static_cast<std::int32_t>(got);
}

int CCompStgFile::SeekForward(std::uint32_t distance) {
  const Operation operation("CCompStgFile::SeekForward");
  aoStream* const target = Generic();
  if (target == nullptr) return Fail(ErrorCode::kNotOpen), 0;
  return target->Seek(distance, 2) != kFailed ? 1 : 0;
}

// --- Apart from the object's state

char* CCompStgFile::CreateStreamName(std::uint32_t value, char* text) {
  static std::array<char, kNumberTextSize> sharedNameBuffer;
  char* const out = text != nullptr ? text : sharedNameBuffer.data();
  std::snprintf(out, kNumberTextSize, "%" PRIx32, value);
  return out;
}

void CCompStgFile::Remove(const char* path) {
  const Operation operation("CCompStgFile::Remove");
  if (path == nullptr) {
    Fail(ErrorCode::kNameUnusable);
  } else {
    detail::RemoveDirectoryOfFiles(path);
  }
}

}  // namespace aostorage
