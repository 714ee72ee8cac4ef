// Moving the cursor along the chain. Every walk goes forward, from the first block, a mark or the
// cursor.
#include <algorithm>

#include "platform/last_error.h"
#include "stream/stream_core.h"

namespace aostorage::detail {

void StreamCore::Rewind() { PlaceCursor(ChainCursor::AtStart(header.firstBlock)); }

void StreamCore::PlaceCursor(const ChainCursor& target) {
  cursor = target;
  outOfStep = false;
  fresher.reset();
}

BlockMarks* StreamCore::Marks() {
  if (shared == nullptr) return nullptr;
  const std::uint64_t epoch = storage->IndexEpoch();
  if (shared->markedChain != header.firstBlock || shared->marksEpoch != epoch) {
    shared->marks.Clear();
    shared->markedChain = header.firstBlock;
    shared->marksEpoch = epoch;
  }
  return &shared->marks;
}

bool StreamCore::WalkTo(std::uint32_t position, ChainCursor& walk) {
  BlockMarks* marks = Marks();
  walk = ChainCursor::AtStart(header.firstBlock);
  // Another process may have written since the marks were set.
  if (marks != nullptr && marks->Approach(position, walk) && storage->OthersChangedFile()) {
    marks = Marks();
    walk = ChainCursor::AtStart(header.firstBlock);
  }
  return walk.Skip(storage->file, position - walk.position, marks);
}

bool StreamCore::SeekRight(std::uint32_t distance, bool fromStart) {
  if (!fromStart && outOfStep) return Fail(ErrorCode::kOutOfStep);
  ChainCursor walk = cursor;
  if (!(fromStart ? WalkTo(distance, walk) : walk.Skip(storage->file, distance))) {
    // What Read and Write would do now is not what the caller thinks: they fail until the cursor is
    // in order.
    cursor.position = walk.position;
    outOfStep = outOfStep || header.firstBlock != 0;
    return false;
  }
  const bool sameBlock = walk.block == cursor.block && cursor.loaded;
  cursor = walk;
  outOfStep = false;
  if (fromStart || !sameBlock) fresher.reset();
  return true;
}

bool StreamCore::SeekLeft(std::uint32_t distance, bool fromEnd) {
  if (fromEnd) {
    ChainCursor walk;
    if (header.firstBlock == 0 && header.length == 0) {
      cursor.position = 0;
      outOfStep = false;
    } else if (Attempt walking; WalkTo(header.length, walk)) {
      PlaceCursor(walk);
    } else {
      if (walking.Code() == ErrorCode::kBehindEnd) {  // the chain is shorter than its length
        walking.Forget();
        Fail(ErrorCode::kContradiction, locator.headerOffset);
      }
      cursor.position = walk.position;
      outOfStep = header.firstBlock != 0;
    }
  }
  if (distance == 0) return true;
  if (!fromEnd && outOfStep) return Fail(ErrorCode::kOutOfStep);
  if (!outOfStep && cursor.blockOffset > BlockHeader::kSize) {
    const std::uint32_t step = std::min(distance, cursor.blockOffset - BlockHeader::kSize);
    cursor.blockOffset -= step;
    cursor.position -= step;
    distance -= step;
    if (distance == 0) return true;
  }
  // There is no walking back over a block's border; a distance beyond the start wraps and runs off
  // the end.
  return SeekRight(cursor.position - distance, true);
}

}  // namespace aostorage::detail
