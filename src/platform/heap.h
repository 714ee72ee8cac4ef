// The heap of the buffers that change hands between the library and its callers.
#ifndef AOSTORAGE_PLATFORM_HEAP_H_
#define AOSTORAGE_PLATFORM_HEAP_H_

#include <cstddef>
#include <cstdint>
#include <memory>

namespace aostorage::detail {

// A zero-filled block, or null with the reason noted. A size of 0 gives a block too.
std::uint8_t* HeapAllocate(std::size_t size) noexcept;
// The block with `newSize` bytes, which may lie elsewhere, those behind `oldSize` zero. Null with
// the reason noted when there is no memory: the block is then as it was. A null block has no bytes
// yet.
std::uint8_t* HeapReallocate(std::uint8_t* block, std::size_t oldSize,
                             std::size_t newSize) noexcept;
void HeapFree(std::uint8_t* block) noexcept;

struct HeapDeleter {
  void operator()(std::uint8_t* block) const noexcept { HeapFree(block); }
};
using HeapBlock = std::unique_ptr<std::uint8_t, HeapDeleter>;

}  // namespace aostorage::detail

#endif  // AOSTORAGE_PLATFORM_HEAP_H_
