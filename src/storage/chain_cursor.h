// A place in a stream's chain of blocks.
#ifndef AOSTORAGE_STORAGE_CHAIN_CURSOR_H_
#define AOSTORAGE_STORAGE_CHAIN_CURSOR_H_

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/file.h"
#include "storage/cycle_guard.h"
#include "storage/records.h"

namespace aostorage::detail {

class BlockMarks;

// Reads block headers one behind the other. Small blocks often lie side by side: where the last one
// did, one read brings several.
class HeaderWindow {
 public:
  explicit HeaderWindow(File& openFile) : file(openFile) {}
  [[nodiscard]] bool Read(std::uint64_t offset, BlockHeader::Bytes& header);

 private:
  // Each further read nearby is larger; but what is brought stays in proportion to what is asked
  // for, so that a chain that jumps to and fro brings little in vain.
  static constexpr std::size_t kFirstSize = 256;
  static constexpr std::size_t kLargestSize = 4096;
  static constexpr std::size_t kMostForOne = 10;  // bytes brought for one that is asked for

  File& file;
  std::array<std::uint8_t, kLargestSize> bytes;
  std::uint64_t start = 0;
  std::size_t size = 0;
  std::size_t nextSize = kFirstSize;
  std::size_t credit = kFirstSize;  // bytes that may be brought
};

// Walks a chain of blocks forward from its first block, block by block, and bounds the walk. A
// plain value: a walk that may fail goes on a copy, which replaces the original when it has
// succeeded.
//
//   no block      block 0: the stream has none
//   not loaded    block set: its header is read before anything is taken from it
//   loaded        header is that of block, blockOffset at least 20
struct ChainCursor {
  std::uint32_t block = 0;  // file offset of the current block
  std::uint32_t blockOffset =
      0;  // next byte, from the block's first byte; below 20: its first data byte
  std::uint32_t position = 0;  // data bytes of the stream before the cursor
  std::uint32_t steps = 0;     // blocks left behind on the way here
  bool loaded = false;
  BlockHeader header;
  CycleGuard guard;

  ChainCursor() = default;
  static ChainCursor AtStart(std::uint32_t firstBlock) {
    ChainCursor cursor;
    cursor.block = firstBlock;
    cursor.guard = CycleGuard(firstBlock);
    return cursor;
  }

  // Takes over the current block's header. False when the bytes are no block header.
  [[nodiscard]] bool Accept(const std::uint8_t* headerBytes);
  // Reads the current block's header if it is not loaded.
  [[nodiscard]] bool Load(File& file);
  [[nodiscard]] bool Load(HeaderWindow& window);
  // Moves `distance` bytes forward without reading data, over as many blocks as it takes, and notes
  // those that it enters. On failure the cursor stands where the walk ended.
  [[nodiscard]] bool Skip(File& file, std::uint32_t distance, BlockMarks* marks = nullptr);
  // Goes to the next block, which there must be. False when the chain is a circle, or its blocks so
  // far take more bytes than the file has: they overlap.
  [[nodiscard]] bool Step(File& file);

  // Data bytes of the loaded block behind the cursor.
  std::uint32_t Available() const {
    return header.used > blockOffset ? header.used - blockOffset : 0;
  }
  // Bytes that the loaded block can still take without growing.
  std::uint32_t Room() const {
    return header.capacity > blockOffset ? header.capacity - blockOffset : 0;
  }
  std::uint64_t FileOffset() const {
    return std::uint64_t{block} + std::max(blockOffset, BlockHeader::kSize);
  }
  void Advance(std::uint32_t count) {
    blockOffset += count;
    position += count;
  }
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_STORAGE_CHAIN_CURSOR_H_
