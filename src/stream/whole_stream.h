// A whole stream in one buffer.
#ifndef AOSTORAGE_STREAM_WHOLE_STREAM_H_
#define AOSTORAGE_STREAM_WHOLE_STREAM_H_

#include <cstdint>
#include <utility>

#include "platform/heap.h"
#include "stream/stream_core.h"

namespace aostorage::detail {

// Holds the bytes of one stream after the other; the memory is that of the largest.
class WholeStream {
 public:
  // Reads `length` bytes from the cursor on. False when they cannot be had whole.
  [[nodiscard]] bool Read(StreamCore& source);
  // Reads no more than the first `headSize` of them. False also when the others are not there.
  [[nodiscard]] bool ReadHead(StreamCore& source, std::uint32_t headSize);
  const std::uint8_t* Data() const { return block.get(); }
  std::uint32_t Size() const { return size; }
  // Gives the block up; what it holds beyond Size is undefined.
  HeapBlock Take() { return std::move(block); }

 private:
  [[nodiscard]] bool ReadFirst(StreamCore& source, std::uint32_t count);

  HeapBlock block;
  std::uint32_t size = 0;
  std::uint32_t capacity = 0;
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_STREAM_WHOLE_STREAM_H_
