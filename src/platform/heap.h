// The heap of the buffers that change hands between the library and its callers.
#ifndef AOSTORAGE_PLATFORM_HEAP_H_
#define AOSTORAGE_PLATFORM_HEAP_H_

#include <cstddef>
#include <cstdint>
#include <memory>

namespace aostorage::detail {

// A zero-filled block, or null with the reason noted. A size of 0 gives a block too.
std::uint8_t* HeapAllocate(std::size_t size) noexcept;
void HeapFree(std::uint8_t* block) noexcept;

struct HeapDeleter {
  void operator()(std::uint8_t* block) const noexcept { HeapFree(block); }
};
using HeapBlock = std::unique_ptr<std::uint8_t, HeapDeleter>;

}  // namespace aostorage::detail

#endif  // AOSTORAGE_PLATFORM_HEAP_H_
