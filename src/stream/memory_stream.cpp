// A stream in memory. All sizes are below 2^31: offset and capacity are told as signed numbers.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <limits>

#include <aostorage/memory_stream.h>

#include "platform/heap.h"
#include "platform/last_error.h"

namespace aostorage {

using detail::Fail;
using detail::Operation;

namespace {

constexpr std::int32_t kGrowthStep = 1024;
constexpr std::int32_t kLargestSize = std::numeric_limits<std::int32_t>::max();

bool MayMove(const void* buffer, std::uint32_t count) {
  if (count > std::uint32_t{kLargestSize}) return Fail(ErrorCode::kBadArgument);
  return buffer != nullptr || count == 0 || Fail(ErrorCode::kBadArgument);
}

}  // namespace

aoStream2::aoStream2(std::uint8_t* buffer, std::int32_t size)
    : memBuffer(buffer),
      memCapacity(buffer == nullptr ? 0 : std::max(size, 0)),
      ownsBuffer(buffer == nullptr) {}

aoStream2::~aoStream2() {
  if (ownsBuffer) detail::HeapFree(memBuffer);
}

// The bytes are moved, not copied: whoever gave the block may read into it or write from it.
std::uint32_t aoStream2::Read(void* buffer, std::uint32_t count) {
  const Operation operation("aoStream2::Read");
  if (!MayMove(buffer, count)) return 0;
  const std::uint32_t delivered = std::min(count, Left());
  if (delivered == 0) return 0;
  std::memmove(buffer, Cursor(), delivered);
  memOffset += static_cast<std::int32_t>(delivered);
  return delivered;
}

std::uint32_t aoStream2::Write(const void* buffer, std::uint32_t count, bool /*final*/) {
  const Operation operation("aoStream2::Write");
  if (!MayMove(buffer, count)) return 0;
  const auto* source = static_cast<const std::uint8_t*>(buffer);
  // A source in the block itself moves with it.
  const std::less<const std::uint8_t*> before;
  const bool inBlock =
      memBuffer != nullptr && !before(source, memBuffer) && before(source, memBuffer + memCapacity);
  const std::ptrdiff_t place = inBlock ? source - memBuffer : 0;
  if (count > Left()) Grow(count);
  const std::uint32_t stored = std::min(count, Left());
  if (stored == 0) return 0;
  std::memmove(Cursor(), inBlock ? memBuffer + place : source, stored);
  memOffset += static_cast<std::int32_t>(stored);
  return stored;
}

// Makes room for `count` bytes at the offset. What it cannot have stays missing, and Write stores
// what fits.
void aoStream2::Grow(std::uint32_t count) {
  const std::int64_t needed = std::int64_t{memOffset} + count;
  if (needed > kLargestSize) Fail(ErrorCode::kTooLarge);
  const std::int64_t wanted = std::max(needed, std::int64_t{memCapacity} + kGrowthStep);
  const auto newCapacity = static_cast<std::int32_t>(std::min<std::int64_t>(wanted, kLargestSize));
  std::uint8_t* grown = detail::HeapReallocate(memBuffer, static_cast<std::size_t>(memCapacity),
                                               static_cast<std::size_t>(newCapacity));
  if (grown == nullptr) return;
  // A caller's block stays the caller's when it grows. One that is begun after Detach has taken the
  // caller's away is the object's own: nobody else would free it.
  if (memBuffer == nullptr) ownsBuffer = true;
  memBuffer = grown;
  memCapacity = newCapacity;
}

std::uint8_t* aoStream2::Detach(std::int32_t& size) {
  size = memOffset;
  if (memOffset == 0) {
    const Operation operation("aoStream2::Detach");
    return Fail(ErrorCode::kNotFound), nullptr;
  }
  std::uint8_t* block = memBuffer;
  memBuffer = nullptr;
  memCapacity = 0;
  memOffset = 0;
  return block;
}

}  // namespace aostorage
