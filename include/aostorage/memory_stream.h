/// @file
/// aoStream2: a stream in memory.
#ifndef AOSTORAGE_MEMORY_STREAM_H_
#define AOSTORAGE_MEMORY_STREAM_H_

#include <cstdint>

#include <aostorage/export.h>
#include <aostorage/stream.h>

namespace aostorage {

// The base's destructor is not virtual, see aoStream.
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

/// A stream whose bytes lie in a block of memory that grows with the writes: what works through
/// Read and Write, such as the operators `<<` and `>>`, runs without a storage file.
///
/// Reading and writing share one offset, which only goes forward: to read what was written, hand
/// the block from Detach to a second object. An object ends by its destructor, not by Release.
/// Only the operations below and the operators work on it; every other one of aoStream gives its
/// failure result, 0 or an empty name.
class AOSTORAGE_API aoStream2 : public aoStream {
 public:
  /// Stands over `buffer`, or over nothing yet.
  /// @param buffer  null, or a block of `size` bytes from AllocateBuffer, CopyStreamToBuffer or
  ///                Detach. It stays the caller's. A Write that needs more room may move it: the
  ///                old pointer is worth nothing then, and Detach gives the new one.
  /// @param size    bytes to be read before the block's end; a negative size is 0
  explicit aoStream2(std::uint8_t* buffer = nullptr, std::int32_t size = 0);
  /// Frees a block that the object made itself and that Detach has not given away. Virtual, so that
  /// an object on the heap can be deleted, through a pointer to aoStream2 or what derives from it.
  virtual ~aoStream2();
  aoStream2(const aoStream2&) = delete;
  aoStream2& operator=(const aoStream2&) = delete;

  /// Reads up to `count` bytes at the offset and moves it. Behind what was written lie the zeros
  /// that fill the block.
  /// @return bytes delivered; 0 at the end of the block, for a null buffer, and for a count of 2^31
  ///         or more
  std::uint32_t Read(void* buffer, std::uint32_t count) override;

  /// Overwrites or appends `count` bytes at the offset and moves it. The block grows by what is
  /// missing, by 1024 bytes at least, and up to 2^31 - 1 bytes.
  /// @param final  not looked at
  /// @return bytes stored: fewer than `count` when there is no memory for more, 0 for a null buffer
  ///         and for a count of 2^31 or more
  std::uint32_t Write(const void* buffer, std::uint32_t count, bool final = false) override;

  /// Gives the block to the caller, who frees it with FreeBuffer. The object is empty then, and a
  /// later Write starts a new block.
  /// @param size  receives the offset: the bytes written, if nothing was read
  /// @return the block, or null at offset 0: the object then keeps what it has
  std::uint8_t* Detach(std::int32_t& size);

 private:
  void Grow(std::uint32_t count);
  std::uint32_t Left() const { return static_cast<std::uint32_t>(memCapacity - memOffset); }
  std::uint8_t* Cursor() const { return memBuffer + memOffset; }

  std::uint8_t* memBuffer;
  std::int32_t memCapacity;  // bytes of the block
  std::int32_t memOffset = 0;
  bool ownsBuffer;  // the destructor frees the block
};

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

}  // namespace aostorage

#endif  // AOSTORAGE_MEMORY_STREAM_H_
