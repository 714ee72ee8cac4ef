// Typed values on a stream: their bytes, little-endian, through the virtual Read and Write.
#include <array>
#include <cstring>
#include <string_view>

#include <aostorage/stream.h>

#include "platform/last_error.h"
#include "storage/records.h"

namespace aostorage {

using detail::Fail;
using detail::Operation;

namespace {

constexpr const char* kPutOperation = "aoStream::operator<<";
constexpr const char* kGetOperation = "aoStream::operator>>";
constexpr std::uint32_t kStringCountSize = 2;
static_assert(sizeof(double) == 8, "doubles on a stream are IEEE 754 binary64");

template <std::size_t Size>
void Put(aoStream& stream, const std::array<std::uint8_t, Size>& bytes) {
  const Operation operation(kPutOperation);
  if (stream.Write(bytes.data(), static_cast<std::uint32_t>(Size), false) != Size)
    Fail(ErrorCode::kInputOutput);  // unless Write has told why
}

// Bytes that a short read did not bring stay as the value had them.
template <std::size_t Size>
void Get(aoStream& stream, std::array<std::uint8_t, Size>& bytes) {
  const Operation operation(kGetOperation);
  if (stream.Read(bytes.data(), static_cast<std::uint32_t>(Size)) != Size)
    Fail(ErrorCode::kBehindEnd);
}

void PutString(aoStream& stream, std::string_view value) {
  const Operation operation(kPutOperation);
  const auto count =
      static_cast<std::uint16_t>(value.size());  // the low 16 bits, as the form has it
  stream << count;
  if (count != 0 && stream.Write(value.data(), count, false) != count)
    Fail(ErrorCode::kInputOutput);
}

template <typename Word>
std::array<std::uint8_t, sizeof(Word)> BytesOf(Word value) {
  std::array<std::uint8_t, sizeof(Word)> bytes{};
  if constexpr (sizeof(Word) == 2) detail::Store16(bytes.data(), value);
  if constexpr (sizeof(Word) == 4) detail::Store32(bytes.data(), value);
  if constexpr (sizeof(Word) == 8) detail::Store64(bytes.data(), value);
  return bytes;
}

std::uint64_t BitsOf(double value) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &value, sizeof(bits));
  return bits;
}

}  // namespace

aoStream& aoStream::operator<<(std::uint16_t value) { return Put(*this, BytesOf(value)), *this; }
aoStream& aoStream::operator<<(std::int32_t value) {
  return *this << static_cast<std::uint32_t>(value);
}
aoStream& aoStream::operator<<(std::uint32_t value) { return Put(*this, BytesOf(value)), *this; }
aoStream& aoStream::operator<<(std::int64_t value) {
  return Put(*this, BytesOf(static_cast<std::uint64_t>(value))), *this;
}
aoStream& aoStream::operator<<(double value) { return Put(*this, BytesOf(BitsOf(value))), *this; }
aoStream& aoStream::operator<<(const std::string& value) { return PutString(*this, value), *this; }
aoStream& aoStream::operator<<(const char* value) {
  return PutString(*this, value == nullptr ? std::string_view() : std::string_view(value)), *this;
}

aoStream& aoStream::operator>>(std::uint16_t& value) {
  auto bytes = BytesOf(value);
  Get(*this, bytes);
  value = detail::Load16(bytes.data());
  return *this;
}

aoStream& aoStream::operator>>(std::int32_t& value) {
  auto bits = static_cast<std::uint32_t>(value);
  *this >> bits;
  value = static_cast<std::int32_t>(bits);
  return *this;
}

aoStream& aoStream::operator>>(std::uint32_t& value) {
  auto bytes = BytesOf(value);
  Get(*this, bytes);
  value = detail::Load32(bytes.data());
  return *this;
}

aoStream& aoStream::operator>>(std::int64_t& value) {
  auto bytes = BytesOf(static_cast<std::uint64_t>(value));
  Get(*this, bytes);
  value = static_cast<std::int64_t>(detail::Load64(bytes.data()));
  return *this;
}

aoStream& aoStream::operator>>(double& value) {
  auto bytes = BytesOf(BitsOf(value));
  Get(*this, bytes);
  const std::uint64_t bits = detail::Load64(bytes.data());
  std::memcpy(&value, &bits, sizeof(value));
  return *this;
}

aoStream& aoStream::operator>>(std::string& value) {
  const Operation operation(kGetOperation);
  value.clear();
  std::array<std::uint8_t, kStringCountSize> countBytes{};
  if (Read(countBytes.data(), kStringCountSize) != kStringCountSize)
    return Fail(ErrorCode::kBehindEnd), *this;
  const std::uint16_t count = detail::Load16(countBytes.data());
  if (count == 0) return *this;
  detail::Guarded(false, [&] {
    value.assign(count, '\0');
    return Read(value.data(), count) == count || Fail(ErrorCode::kBehindEnd);
  });
  return *this;
}

}  // namespace aostorage
