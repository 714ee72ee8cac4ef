#include "entry/payload.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <vector>

#include "platform/last_error.h"

namespace aostorage::detail {
namespace {

constexpr std::uint32_t kPrefixSize = 4;  // of a log entry
constexpr std::uint32_t kStringCountSize = 2;
constexpr std::uint32_t kShortString = 256;  // written in one piece with its count

template <std::size_t Size>
bool ReadBytes(StreamCore& stream, std::array<std::uint8_t, Size>& bytes) {
  const std::uint32_t got = stream.Read(bytes.data(), Size);
  if (got == Size) return true;
  return Fail(ErrorCode::kBehindEnd);
}

template <std::size_t Size>
void WriteBytes(StreamCore& stream, const std::array<std::uint8_t, Size>& bytes) {
  stream.Write(bytes.data(), Size, false);
}

template <std::size_t Count>
bool ReadWords(StreamCore& stream, const std::array<std::int32_t*, Count>& words) {
  std::array<std::uint8_t, 4 * Count> bytes{};
  if (!ReadBytes(stream, bytes)) return false;
  for (std::size_t i = 0; i < Count; ++i)
    *words[i] = static_cast<std::int32_t>(Load32(bytes.data() + 4 * i));
  return true;
}

template <std::size_t Count>
void WriteWords(StreamCore& stream, const std::array<std::int32_t, Count>& words) {
  std::array<std::uint8_t, 4 * Count> bytes{};
  for (std::size_t i = 0; i < Count; ++i)
    Store32(bytes.data() + 4 * i, static_cast<std::uint32_t>(words[i]));
  WriteBytes(stream, bytes);
}

}  // namespace

bool ReadValue(StreamCore& stream, std::uint32_t& value) {
  std::array<std::uint8_t, 4> bytes{};
  if (!ReadBytes(stream, bytes)) return false;
  value = Load32(bytes.data());
  return true;
}

bool ReadValue(StreamCore& stream, std::int32_t& value) { return ReadWords<1>(stream, {&value}); }

bool ReadValue(StreamCore& stream, std::int64_t& value) {
  std::array<std::uint8_t, 8> bytes{};
  if (!ReadBytes(stream, bytes)) return false;
  value = static_cast<std::int64_t>(Load64(bytes.data()));
  return true;
}

bool ReadValue(StreamCore& stream, double& value) {
  std::array<std::uint8_t, 8> bytes{};
  if (!ReadBytes(stream, bytes)) return false;
  const std::uint64_t bits = Load64(bytes.data());
  std::memcpy(&value, &bits, sizeof(value));
  return true;
}

bool ReadValue(StreamCore& stream, tagSIZE& value) {
  return ReadWords<2>(stream, {&value.cx, &value.cy});
}

bool ReadValue(StreamCore& stream, tagRECT& value) {
  return ReadWords<4>(stream, {&value.left, &value.top, &value.right, &value.bottom});
}

// Count and bytes in one read as long as the string is short.
bool ReadValue(StreamCore& stream, std::string& value) {
  value.clear();
  std::array<std::uint8_t, kStringCountSize + kShortString> start{};
  Attempt readingAhead;
  std::uint32_t got = stream.Read(start.data(), start.size());
  if (got == kFailed) {  // perhaps by damage behind the string
    readingAhead.Forget();
    // Not over the blocks without data once more.
    if (stream.Cursor().position != 0) stream.Rewind();
    got = stream.Read(start.data(), kStringCountSize);
  }
  if (got == 0) return true;
  if (got == kFailed || got < kStringCountSize) return Fail(ErrorCode::kBehindEnd), true;
  const std::uint32_t count = Load16(start.data());
  const std::uint32_t here = std::min(count, got - kStringCountSize);
  value.assign(count, '\0');
  std::memcpy(value.data(), start.data() + kStringCountSize, here);
  if (here < count && stream.Read(value.data() + here, count - here) != count - here)
    Fail(ErrorCode::kBehindEnd);
  return true;
}

void WriteValue(StreamCore& stream, std::uint32_t value) {
  std::array<std::uint8_t, 4> bytes{};
  Store32(bytes.data(), value);
  WriteBytes(stream, bytes);
}

void WriteValue(StreamCore& stream, std::int32_t value) { WriteWords<1>(stream, {value}); }

void WriteValue(StreamCore& stream, std::int64_t value) {
  std::array<std::uint8_t, 8> bytes{};
  Store64(bytes.data(), static_cast<std::uint64_t>(value));
  WriteBytes(stream, bytes);
}

void WriteValue(StreamCore& stream, double value) {
  std::array<std::uint8_t, 8> bytes{};
  std::uint64_t bits = 0;
  std::memcpy(&bits, &value, sizeof(bits));
  Store64(bytes.data(), bits);
  WriteBytes(stream, bytes);
}

void WriteValue(StreamCore& stream, const tagSIZE& value) {
  WriteWords<2>(stream, {value.cx, value.cy});
}

void WriteValue(StreamCore& stream, const tagRECT& value) {
  WriteWords<4>(stream, {value.left, value.top, value.right, value.bottom});
}

void WriteValue(StreamCore& stream, const char* value) {
  const std::string_view text = value == nullptr ? std::string_view() : std::string_view(value);
  const auto count =
      static_cast<std::uint16_t>(text.size());  // the low 16 bits, as the form has it
  std::vector<std::uint8_t> bytes(kStringCountSize + std::size_t{count});
  Store16(bytes.data(), count);
  if (count != 0) std::memcpy(bytes.data() + kStringCountSize, text.data(), count);
  stream.Write(bytes.data(), static_cast<std::uint32_t>(bytes.size()), false);
}

void AppendLogValue(StreamCore& stream, const void* buffer, std::uint32_t count) {
  const std::uint32_t length = stream.Header().length;
  std::array<std::uint8_t, kPrefixSize> prefix{};
  Store32(prefix.data(),
          length < kPrefixSize ? kPrefixSize : length);  // too short for one: as an empty stream
  if (stream.Write(prefix.data(), kPrefixSize, false) != kPrefixSize) return;
  // When the end cannot be reached, writing would go over older values.
  const std::uint32_t end = stream.Header().length;
  if (end > kPrefixSize && !stream.SeekRight(end - kPrefixSize, false)) return;
  stream.Write(buffer, count, false);
}

bool ReadErased(StreamCore& stream, void* buffer, std::uint32_t size) {
  if (stream.Header().length < size) return Fail(ErrorCode::kBehindEnd);
  return stream.Read(buffer, size) == size ||
         Fail(ErrorCode::kContradiction, stream.Locator().headerOffset);
}

}  // namespace aostorage::detail
