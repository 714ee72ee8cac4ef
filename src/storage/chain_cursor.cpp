#include "storage/chain_cursor.h"

#include <cstring>
#include <optional>

#include "platform/last_error.h"
#include "storage/block_marks.h"

namespace aostorage::detail {

bool HeaderWindow::Read(std::uint64_t offset, BlockHeader::Bytes& header) {
  credit += header.size() * kMostForOne;
  if (offset < start || offset + header.size() > start + size) {
    const bool nearby = offset >= start && offset < start + size + kFirstSize;
    if (!nearby) nextSize = kFirstSize;
    const std::size_t wanted =
        nearby ? std::max(std::min(nextSize, credit), header.size()) : header.size();
    if (nearby) nextSize = std::min(nextSize * 4, kLargestSize);
    credit -= std::min(credit, wanted);
    const std::optional<std::size_t> got = file.ReadAt(offset, bytes.data(), wanted);
    start = offset;
    size = got.value_or(0);
    if (!got) return false;
    if (size < header.size()) return FailShort(offset, size);
  }
  std::memcpy(header.data(), bytes.data() + (offset - start), header.size());
  return true;
}

bool ChainCursor::Accept(const std::uint8_t* headerBytes) {
  const std::optional<BlockHeader> decoded = BlockHeader::Decode(headerBytes);
  if (!decoded) {
    return Fail(Load32(headerBytes) == BlockHeader::kMagic ? ErrorCode::kContradiction
                                                           : ErrorCode::kBadMagic,
                block);
  }
  header = *decoded;
  blockOffset = std::max(blockOffset, BlockHeader::kSize);
  loaded = true;
  return true;
}

bool ChainCursor::Load(File& file) {
  if (loaded) return true;
  if (block == 0) return Fail(ErrorCode::kBehindEnd);  // offset 0 is the file header, never a block
  BlockHeader::Bytes bytes;
  return file.ReadExactlyAt(block, bytes.data(), bytes.size()) && Accept(bytes.data());
}

bool ChainCursor::Load(HeaderWindow& window) {
  if (loaded) return true;
  if (block == 0) return Fail(ErrorCode::kBehindEnd);
  BlockHeader::Bytes bytes;
  return window.Read(block, bytes) && Accept(bytes.data());
}

bool ChainCursor::Skip(File& file, std::uint32_t distance, BlockMarks* marks) {
  HeaderWindow window(file);
  for (;;) {
    if (!Load(window)) return false;
    const std::uint32_t count = std::min(distance, Available());
    Advance(count);
    distance -= count;
    if (distance == 0) return true;
    if (header.nextBlock == 0) return Fail(ErrorCode::kBehindEnd);
    if (!Step(file)) return false;
    if (marks != nullptr) marks->Note(*this);
  }
}

bool ChainCursor::Step(File& file) {
  block = header.nextBlock;
  ++steps;
  blockOffset = 0;
  loaded = false;
  if (!guard.Pass(block)) return Fail(ErrorCode::kCycle, block);
  const std::uint64_t passed = std::uint64_t{position} + std::uint64_t{steps} * BlockHeader::kSize;
  return file.Holds(passed) || Fail(ErrorCode::kContradiction, block);
}

}  // namespace aostorage::detail
