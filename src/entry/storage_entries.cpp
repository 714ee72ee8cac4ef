// Entries at the root of a storage: small values in root streams, one call each.
#include <memory>
#include <string>

#include <aostorage/storage.h>

#include "entry/payload.h"
#include "platform/last_error.h"
#include "storage/root_streams.h"

namespace aostorage {

using detail::Attempt;
using detail::Fail;
using detail::Guarded;
using detail::kMomentary;
using detail::RootStreams;
using detail::StorageCore;
using detail::StreamCore;

namespace {

using CorePointer = std::shared_ptr<StorageCore>;

// Which slots an operation works on.
enum class Slots { kOrdinary, kReserved };

std::unique_ptr<StreamCore> OpenIn(const CorePointer& storage, Slots slots, const char* name,
                                   std::uint32_t flags) {
  RootStreams streams(storage);
  return slots == Slots::kReserved ? streams.OpenFast(name, flags, kMomentary)
                                   : streams.Open(name, flags, kMomentary);
}

// A folder of that name is in the way: its data is no value. A name that the map holds is not
// created again.
std::unique_ptr<StreamCore> StreamToWrite(const CorePointer& storage, Slots slots,
                                          const char* name) {
  Attempt opening;
  std::unique_ptr<StreamCore> stream = OpenIn(storage, slots, name, kWriteFlags);
  if (stream == nullptr) {
    // Of a stream that is there and does not open, the creation tells less than that.
    if (opening.Code() == ErrorCode::kNotFound) opening.Forget();
    stream =
        RootStreams(storage).Create(name, 0, kWriteFlags, slots == Slots::kReserved, kMomentary);
    if (stream != nullptr) opening.Forget();
  }
  if (stream != nullptr && stream->IsFolder()) return Fail(ErrorCode::kWrongKind), nullptr;
  return stream;
}

template <typename Value>
bool ReadEntry(const CorePointer& storage, Slots slots, const char* name, Value& value) {
  const char* const operation =
      slots == Slots::kReserved ? "aoStorage::GetEntryFast" : "aoStorage::GetEntry";
  return Guarded(operation, false, [&] {
    const std::unique_ptr<StreamCore> stream = OpenIn(storage, slots, name, kReadFlags);
    if (stream == nullptr) return false;
    if (stream->IsFolder()) return Fail(ErrorCode::kWrongKind);
    return ReadValue(*stream, value);
  });
}

template <typename Value>
Value EntryOr(const CorePointer& storage, Slots slots, const char* name, Value defaultValue) {
  Value value{};
  return ReadEntry(storage, slots, name, value) ? value : defaultValue;
}

std::string StringEntryOr(const CorePointer& storage, Slots slots, const char* name,
                          const char* defaultValue) {
  std::string value;
  if (ReadEntry(storage, slots, name, value)) return value;
  return defaultValue == nullptr ? std::string() : std::string(defaultValue);
}

template <typename Value>
int WriteEntry(const CorePointer& storage, Slots slots, const char* name, const Value& value) {
  const char* const operation =
      slots == Slots::kReserved ? "aoStorage::SetEntryFast" : "aoStorage::SetEntry";
  return Guarded(operation, 0, [&] {
    const std::unique_ptr<StreamCore> stream = StreamToWrite(storage, slots, name);
    if (stream == nullptr) return 0;
    WriteValue(*stream, value);
    return 1;
  });
}

}  // namespace

std::int32_t aoStorage::GetEntry(const char* name, std::int32_t defaultValue) {
  return EntryOr(core, Slots::kOrdinary, name, defaultValue);
}

std::int64_t aoStorage::GetEntry(const char* name, std::int64_t defaultValue) {
  return EntryOr(core, Slots::kOrdinary, name, defaultValue);
}

double aoStorage::GetEntry(const char* name, double defaultValue) {
  return EntryOr(core, Slots::kOrdinary, name, defaultValue);
}

std::string aoStorage::GetEntry(const char* name, const char* defaultValue) {
  return StringEntryOr(core, Slots::kOrdinary, name, defaultValue);
}

std::int32_t aoStorage::GetEntryFast(const char* name, std::int32_t defaultValue) {
  return EntryOr(core, Slots::kReserved, name, defaultValue);
}

std::int64_t aoStorage::GetEntryFast(const char* name, std::int64_t defaultValue) {
  return EntryOr(core, Slots::kReserved, name, defaultValue);
}

double aoStorage::GetEntryFast(const char* name, double defaultValue) {
  return EntryOr(core, Slots::kReserved, name, defaultValue);
}

std::string aoStorage::GetEntryFast(const char* name, const char* defaultValue) {
  return StringEntryOr(core, Slots::kReserved, name, defaultValue);
}

int aoStorage::SetEntry(const char* name, std::int32_t value) {
  return WriteEntry(core, Slots::kOrdinary, name, value);
}
int aoStorage::SetEntry(const char* name, std::int64_t value) {
  return WriteEntry(core, Slots::kOrdinary, name, value);
}
int aoStorage::SetEntry(const char* name, double value) {
  return WriteEntry(core, Slots::kOrdinary, name, value);
}
int aoStorage::SetEntry(const char* name, const char* value) {
  return WriteEntry(core, Slots::kOrdinary, name, value);
}
int aoStorage::SetEntryFast(const char* name, std::int32_t value) {
  return WriteEntry(core, Slots::kReserved, name, value);
}
int aoStorage::SetEntryFast(const char* name, std::int64_t value) {
  return WriteEntry(core, Slots::kReserved, name, value);
}
int aoStorage::SetEntryFast(const char* name, double value) {
  return WriteEntry(core, Slots::kReserved, name, value);
}
int aoStorage::SetEntryFast(const char* name, const char* value) {
  return WriteEntry(core, Slots::kReserved, name, value);
}

int aoStorage::SetEntryEraseOld(const char* name, const void* buffer, std::uint32_t count) {
  return Guarded("aoStorage::SetEntryEraseOld", 0, [&] {
    if (count == 0) return 1;
    if (buffer == nullptr) return Fail(ErrorCode::kBadArgument), 0;
    const std::unique_ptr<StreamCore> stream = StreamToWrite(core, Slots::kOrdinary, name);
    return stream == nullptr ? 0 : static_cast<int>(stream->Write(buffer, count, true));
  });
}

int aoStorage::GetEntryErasedOld(const char* name, void* buffer, std::uint32_t size) {
  return Guarded("aoStorage::GetEntryErasedOld", 0, [&] {
    if (buffer == nullptr && size > 0) return Fail(ErrorCode::kBadArgument), 0;
    const std::unique_ptr<StreamCore> stream = OpenIn(core, Slots::kOrdinary, name, kReadFlags);
    return stream != nullptr && detail::ReadErased(*stream, buffer, size) ? 1 : 0;
  });
}

}  // namespace aostorage
