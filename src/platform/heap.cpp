#include "platform/heap.h"

#include <cstdlib>

#include "platform/last_error.h"

namespace aostorage::detail {

std::uint8_t* HeapAllocate(std::size_t size) noexcept {
  auto* block = static_cast<std::uint8_t*>(std::calloc(size == 0 ? 1 : size, 1));
  if (block == nullptr) Fail(Error::kNoMemory);
  return block;
}

void HeapFree(std::uint8_t* block) noexcept { std::free(block); }

}  // namespace aostorage::detail
