#include "storage/chain_cursor.h"

#include "platform/last_error.h"

namespace aostorage::detail {

bool ChainCursor::Accept(const std::uint8_t* headerBytes) {
  const std::optional<BlockHeader> decoded = BlockHeader::Decode(headerBytes);
  if (!decoded) return Fail(Error::kDamaged);
  header = *decoded;
  blockOffset = std::max(blockOffset, BlockHeader::kSize);
  loaded = true;
  return true;
}

bool ChainCursor::Load(File& file) {
  if (loaded) return true;
  if (block == 0) return Fail(Error::kNotFound);  // offset 0 is the file header, never a block
  BlockHeader::Bytes bytes;
  return file.ReadExactlyAt(block, bytes.data(), bytes.size()) && Accept(bytes.data());
}

bool ChainCursor::Skip(File& file, std::uint32_t distance) {
  for (;;) {
    if (!Load(file)) return false;
    const std::uint32_t count = std::min(distance, Available());
    Advance(count);
    distance -= count;
    if (distance == 0) return true;
    if (header.nextBlock == 0) return Fail(Error::kNotFound);
    if (!Step(file)) return false;
  }
}

bool ChainCursor::Step(File& file) {
  block = header.nextBlock;
  ++steps;
  blockOffset = 0;
  loaded = false;
  return (guard.Pass(block) && file.Holds(position)) || Fail(Error::kDamaged);
}

}  // namespace aostorage::detail
