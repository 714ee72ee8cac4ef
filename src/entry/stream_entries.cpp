// Entries in a folder: small values in child streams, one call each.
#include <memory>
#include <string>

#include <aostorage/stream.h>

#include "entry/payload.h"
#include "folder/child_streams.h"
#include "platform/heap.h"
#include "platform/last_error.h"

namespace aostorage {

using detail::ChildStreams;
using detail::Fail;
using detail::Guarded;
using detail::kMomentary;
using detail::Operation;
using detail::StreamCore;

namespace {

bool IsOpenFolder(const StreamCore* folder) {
  if (folder == nullptr || !folder->IsFolder()) return Fail(ErrorCode::kWrongKind);
  return !folder->IsRemoved() || Fail(ErrorCode::kNotFound);
}

std::unique_ptr<StreamCore> ChildToRead(StreamCore* folder, const char* name) {
  if (!IsOpenFolder(folder)) return nullptr;
  return ChildStreams(*folder).Open(name, kReadFlags, kMomentary);
}

// A folder of that name is in the way: its data is no value.
std::unique_ptr<StreamCore> ChildToWrite(StreamCore* folder, const char* name) {
  if (!IsOpenFolder(folder)) return nullptr;
  std::unique_ptr<StreamCore> child =
      ChildStreams(*folder).OpenOrCreate(name, 0, kWriteFlags, kMomentary);
  if (child != nullptr && child->IsFolder()) return Fail(ErrorCode::kWrongKind), nullptr;
  return child;
}

template <typename Value>
bool ReadEntry(StreamCore* folder, const char* name, Value& value) {
  return Guarded("aoStream::GetEntry", false, [&] {
    const std::unique_ptr<StreamCore> child = ChildToRead(folder, name);
    if (child == nullptr) return false;
    if (child->IsFolder()) return Fail(ErrorCode::kWrongKind);
    return ReadValue(*child, value);
  });
}

template <typename Value>
Value EntryOr(StreamCore* folder, const char* name, Value defaultValue) {
  Value value{};
  return ReadEntry(folder, name, value) ? value : defaultValue;
}

template <typename Value>
Value* RecordEntryOr(StreamCore* folder, const char* name, Value* out, const Value* defaultValue) {
  const Operation operation("aoStream::GetEntry");
  if (out == nullptr) return Fail(ErrorCode::kBadArgument), nullptr;
  Value value{};
  if (ReadEntry(folder, name, value)) {
    *out = value;
  } else if (defaultValue != nullptr) {
    *out = *defaultValue;
  }
  return out;
}

template <typename Value>
int WriteEntry(StreamCore* folder, const char* name, const Value& value) {
  return Guarded("aoStream::SetEntry", 0, [&] {
    const std::unique_ptr<StreamCore> child = ChildToWrite(folder, name);
    if (child == nullptr) return 0;
    WriteValue(*child, value);
    return 1;
  });
}

}  // namespace

std::int32_t aoStream::GetEntry(const char* name, std::int32_t defaultValue) {
  return EntryOr(core.get(), name, defaultValue);
}

std::uint32_t aoStream::GetEntry(const char* name, std::uint32_t defaultValue) {
  return EntryOr(core.get(), name, defaultValue);
}

std::int64_t aoStream::GetEntry(const char* name, std::int64_t defaultValue) {
  return EntryOr(core.get(), name, defaultValue);
}

double aoStream::GetEntry(const char* name, double defaultValue) {
  return EntryOr(core.get(), name, defaultValue);
}

std::string aoStream::GetEntry(const char* name, const char* defaultValue) {
  std::string value;
  if (ReadEntry(core.get(), name, value)) return value;
  return defaultValue == nullptr ? std::string() : std::string(defaultValue);
}

tagSIZE* aoStream::GetEntry(const char* name, tagSIZE* out, const tagSIZE* defaultValue) {
  return RecordEntryOr(core.get(), name, out, defaultValue);
}

tagRECT* aoStream::GetEntry(const char* name, tagRECT* out, const tagRECT* defaultValue) {
  return RecordEntryOr(core.get(), name, out, defaultValue);
}

int aoStream::SetEntry(const char* name, std::int32_t value) {
  return WriteEntry(core.get(), name, value);
}
int aoStream::SetEntry(const char* name, std::uint32_t value) {
  return WriteEntry(core.get(), name, value);
}
int aoStream::SetEntry(const char* name, std::int64_t value) {
  return WriteEntry(core.get(), name, value);
}
int aoStream::SetEntry(const char* name, double value) {
  return WriteEntry(core.get(), name, value);
}
int aoStream::SetEntry(const char* name, const char* value) {
  return WriteEntry(core.get(), name, value);
}

int aoStream::SetEntry(const char* name, const tagSIZE* value) {
  const Operation operation("aoStream::SetEntry");
  if (value == nullptr) return Fail(ErrorCode::kBadArgument), 0;
  return WriteEntry(core.get(), name, *value);
}

int aoStream::SetEntry(const char* name, const tagRECT* value) {
  const Operation operation("aoStream::SetEntry");
  if (value == nullptr) return Fail(ErrorCode::kBadArgument), 0;
  return WriteEntry(core.get(), name, *value);
}

int aoStream::SetEntry(const char* name, const void* buffer, std::uint32_t count) {
  return Guarded("aoStream::SetEntry", 0, [&] {
    if (count == 0) return 1;
    if (buffer == nullptr) return Fail(ErrorCode::kBadArgument), 0;
    const std::unique_ptr<StreamCore> child = ChildToWrite(core.get(), name);
    if (child == nullptr) return 0;
    detail::AppendLogValue(*child, buffer, count);
    return 1;
  });
}

int aoStream::SetEntryEraseOld(const char* name, const void* buffer, std::uint32_t count) {
  return Guarded("aoStream::SetEntryEraseOld", 0, [&] {
    if (count == 0) return 1;
    if (buffer == nullptr) return Fail(ErrorCode::kBadArgument), 0;
    const std::unique_ptr<StreamCore> child = ChildToWrite(core.get(), name);
    return child == nullptr ? 0 : static_cast<int>(child->Write(buffer, count, true));
  });
}

int aoStream::GetEntryErasedOld(const char* name, std::uint8_t** buffer, std::uint32_t* size) {
  if (buffer != nullptr) *buffer = nullptr;
  if (size != nullptr) *size = 0;
  return Guarded("aoStream::GetEntryErasedOld", 0, [&] {
    if (buffer == nullptr || size == nullptr) return Fail(ErrorCode::kBadArgument), 0;
    const std::unique_ptr<StreamCore> child = ChildToRead(core.get(), name);
    if (child == nullptr) return 0;
    const std::uint32_t length = child->Header().length;
    if (length == 0) return 1;
    // A length that the file has no room for is damage, and no reason to ask for that much memory.
    if (!child->Storage().file.Holds(length))
      return Fail(ErrorCode::kContradiction, child->Locator().headerOffset), 0;
    detail::HeapBlock bytes(detail::HeapAllocate(length));
    if (bytes == nullptr || !detail::ReadErased(*child, bytes.get(), length)) return 0;
    *buffer = bytes.release();
    *size = length;
    return 1;
  });
}

int aoStream::GetEntryErasedOld(const char* name, void* buffer, std::uint32_t size) {
  return Guarded("aoStream::GetEntryErasedOld", 0, [&] {
    if (buffer == nullptr && size > 0) return Fail(ErrorCode::kBadArgument), 0;
    const std::unique_ptr<StreamCore> child = ChildToRead(core.get(), name);
    return child != nullptr && detail::ReadErased(*child, buffer, size) ? 1 : 0;
  });
}

}  // namespace aostorage
