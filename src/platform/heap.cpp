#include "platform/heap.h"

#include <cstdlib>
#include <cstring>

#include "platform/last_error.h"

namespace aostorage::detail {

std::uint8_t* HeapAllocate(std::size_t size) noexcept {
  auto* block = static_cast<std::uint8_t*>(std::calloc(size == 0 ? 1 : size, 1));
  if (block == nullptr) Fail(ErrorCode::kNoMemory);
  return block;
}

std::uint8_t* HeapReallocate(std::uint8_t* block, std::size_t oldSize,
                             std::size_t newSize) noexcept {
  if (block == nullptr) return HeapAllocate(newSize);
  auto* moved = static_cast<std::uint8_t*>(std::realloc(block, newSize == 0 ? 1 : newSize));
  if (moved == nullptr) return Fail(ErrorCode::kNoMemory), nullptr;
  if (newSize > oldSize) std::memset(moved + oldSize, 0, newSize - oldSize);
  return moved;
}

void HeapFree(std::uint8_t* block) noexcept { std::free(block); }

}  // namespace aostorage::detail
