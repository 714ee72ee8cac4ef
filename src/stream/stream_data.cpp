// Moving bytes between the caller and the chain of blocks.
//
// The order of writes keeps the file readable at every moment: a block is complete before a word
// points to it, data goes before `used`, `used` before `length`. What this object remembers of a
// record changes only when the record in the file has changed, so that a failed step can simply be
// tried again.
#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <new>

#include "platform/last_error.h"
#include "stream/stream_core.h"

namespace aostorage::detail {
namespace {

// Bytes read together with the header of a block that is not loaded. They go through a buffer of
// the library, since only the header tells how many of them are the stream's.
constexpr std::uint32_t kLeastReadAhead = 128;                        // blocks can be tiny
constexpr std::uint32_t kSmallReadAhead = 4096 - BlockHeader::kSize;  // on the stack
constexpr std::uint32_t kLargeReadAhead = 65536;                      // on the heap

// Filler of a block's reserve, written in pieces of this size.
constexpr std::size_t kFillerPiece = 65536;
const std::array<std::uint8_t, kFillerPiece> kFiller{};

}  // namespace

// --- Reading

// The buffer of one Read, and how much of it the next block is likely to fill: chains of small
// blocks are not worth a large one each time.
struct StreamCore::ReadAhead {
  std::uint32_t limit = kLargeReadAhead;
  std::unique_ptr<std::uint8_t[]> buffer;

  std::uint8_t* Buffer() {
    if (buffer == nullptr)
      buffer.reset(new (std::nothrow) std::uint8_t[BlockHeader::kSize + kLargeReadAhead]);
    return buffer.get();
  }
};

std::uint32_t StreamCore::Read(void* buffer, std::uint32_t count) {
  if (buffer == nullptr && count > 0) return Fail(ErrorCode::kBadArgument), kFailed;
  if (cursor.block == 0 || count == 0) return 0;
  if (outOfStep) return Fail(ErrorCode::kOutOfStep), kFailed;
  auto* out = static_cast<std::uint8_t*>(buffer);
  ReadAhead ahead;
  std::uint32_t delivered = 0;
  for (;;) {
    const std::uint32_t wanted = count - delivered;
    const auto got = cursor.loaded ? ReadLoaded(out + delivered, wanted)
                                   : ReadWithHeader(out + delivered, wanted, ahead);
    if (!got) return kFailed;
    delivered += *got;
    if (delivered == count) return delivered;
    if (cursor.Available() > 0) continue;  // the read ahead was shorter than the block
    if (cursor.header.nextBlock == 0) return delivered;
    ahead.limit = std::clamp(std::min(cursor.header.used, kLargeReadAhead) * 2, kLeastReadAhead,
                             kLargeReadAhead);
    fresher.reset();
    if (!cursor.Step(storage->file)) return kFailed;
  }
}

std::uint32_t StreamCore::ReadOwn(std::uint8_t* buffer, std::uint32_t count) {
  const bool atBlockStart = !cursor.loaded && cursor.blockOffset <= BlockHeader::kSize;
  if (cursor.block == 0 || count == 0 || outOfStep || !atBlockStart) return Read(buffer, count);
  BlockHeader::Bytes bytes;
  const std::optional<std::size_t> got =
      storage->file.ReadAt(cursor.block, bytes.data(), bytes.size(), buffer, count);
  if (!got) return kFailed;
  if (*got < bytes.size()) return FailShort(cursor.block, *got), kFailed;
  if (!cursor.Accept(bytes.data())) return kFailed;
  const std::uint32_t chunk = std::min(count, cursor.Available());
  if (*got - bytes.size() < chunk) return Fail(ErrorCode::kTruncated, cursor.block), kFailed;
  cursor.Advance(chunk);
  if (chunk == count) return count;
  const std::uint32_t more = Read(buffer + chunk, count - chunk);
  return more == kFailed ? kFailed : chunk + more;
}

std::optional<std::uint32_t> StreamCore::ReadLoaded(std::uint8_t* out, std::uint32_t count) {
  const std::uint32_t chunk = std::min(count, cursor.Available());
  if (chunk > 0) {
    const std::optional<std::size_t> got = storage->file.ReadAt(cursor.FileOffset(), out, chunk);
    if (!got) return std::nullopt;
    if (*got < chunk) return Fail(ErrorCode::kTruncated, cursor.block), std::nullopt;
  }
  cursor.Advance(chunk);
  return chunk;
}

// Block header and data in one read.
std::optional<std::uint32_t> StreamCore::ReadWithHeader(std::uint8_t* out, std::uint32_t count,
                                                        ReadAhead& ahead) {
  if (cursor.blockOffset > BlockHeader::kSize) {  // the data does not follow the header
    if (!cursor.Load(storage->file)) return std::nullopt;
    return ReadLoaded(out, count);
  }
  std::array<std::uint8_t, BlockHeader::kSize + kSmallReadAhead> small;
  std::uint32_t room = std::min(count, ahead.limit);
  std::uint8_t* bytes = room <= kSmallReadAhead ? small.data() : ahead.Buffer();
  if (bytes == nullptr) {  // no memory: a smaller step will do
    bytes = small.data();
    room = kSmallReadAhead;
  }
  const std::optional<std::size_t> got =
      storage->file.ReadAt(cursor.block, bytes, BlockHeader::kSize + room);
  if (!got) return std::nullopt;
  if (*got < BlockHeader::kSize) return FailShort(cursor.block, *got), std::nullopt;
  if (!cursor.Accept(bytes)) return std::nullopt;
  const std::uint32_t chunk = std::min(room, cursor.Available());
  if (*got - BlockHeader::kSize < chunk)  // the file ends before `used` does
    return Fail(ErrorCode::kTruncated, cursor.block), std::nullopt;
  std::memcpy(out, bytes + BlockHeader::kSize, chunk);
  cursor.Advance(chunk);
  return chunk;
}

// --- Writing

// One Write on its way.
struct StreamCore::Pending {
  const std::uint8_t* data;
  std::uint32_t left;
  bool final;
  FilePieces* pieces;
  // The last block that took what it could and says so on disk, and the stream position there: the
  // length is due up to it. A block whose header could not be rewritten is not counted.
  std::uint32_t lastDone = 0;
  std::uint32_t donePosition = 0;
  std::optional<std::uint64_t> fileEnd;  // asked in this call, and nothing appended since

  void Took(const ChainCursor& at, std::uint32_t count) {
    if (pieces != nullptr && count > 0) {
      pieces->push_back({at.block, static_cast<std::uint32_t>(at.FileOffset()), count});
    }
    data += count;
    left -= count;
  }
};

std::uint32_t StreamCore::Write(const void* buffer, std::uint32_t count, bool final,
                                FilePieces* pieces) {
  if ((buffer == nullptr && count > 0) || count == kFailed)
    return Fail(ErrorCode::kBadArgument), kFailed;
  if (IsRemoved()) return Fail(ErrorCode::kNotFound), kFailed;
  if (outOfStep) return Fail(ErrorCode::kOutOfStep), kFailed;
  Adopt();
  Pending pending{
      static_cast<const std::uint8_t*>(buffer), count, final, pieces, 0, 0, std::nullopt};
  if (cursor.block == 0) return WriteFirstBlock(pending) ? count : kFailed;
  if (count == 0) return 0;
  const bool written = WriteBlocks(pending);
  const bool counted = pending.lastDone == 0 || CommitLength(pending);
  if (outOfStep) cursor.block = 0;  // no next block could be made: the cursor stands nowhere
  return written && counted ? count : kFailed;
}

bool StreamCore::WriteBlocks(Pending& pending) {
  for (bool done = false; !done;) {
    if (!FillBlock(pending, done)) return false;
    if (!done) {
      fresher.reset();
      if (!cursor.Step(storage->file)) return false;
    }
  }
  return true;
}

// Puts what it takes into the current block, and the rest into a new one if the chain ends here.
bool StreamCore::FillBlock(Pending& pending, bool& done) {
  if (!cursor.Load(storage->file)) return false;
  std::uint32_t chunk = 0;
  if (!ChooseChunk(pending, chunk)) return false;
  if (chunk > 0 && !storage->Write(cursor.FileOffset(), pending.data, chunk)) return false;
  pending.Took(cursor, chunk);
  cursor.Advance(chunk);
  if (pending.left > 0 && cursor.header.nextBlock == 0) {
    done = true;
    return WriteIntoNextBlock(pending);
  }
  done = pending.left == 0;
  return CommitBlock(pending);
}

// How much the current block takes: all, if it lies last in the file and may grow, else what its
// capacity allows.
bool StreamCore::ChooseChunk(Pending& pending, std::uint32_t& chunk) {
  const std::uint64_t blockEnd = std::uint64_t{cursor.block} + cursor.header.capacity;
  chunk = std::min(pending.left, cursor.Room());
  if (chunk < pending.left && cursor.block == storage->tailOffset && cursor.header.nextBlock == 0) {
    pending.fileEnd = storage->file.Size();
    if (!pending.fileEnd) return false;
    if (*pending.fileEnd ==
        blockEnd) {  // else something was appended behind it through another handle
      chunk = pending.left;
      return true;
    }
  }
  // A capacity that reaches behind the end of the file is damage: what it covers may come to be
  // another's.
  if (chunk == 0 || blockEnd <= storage->file.KnownSize()) return true;
  const std::optional<std::uint64_t> fileEnd = storage->file.Size();
  return fileEnd && (blockEnd <= *fileEnd || Fail(ErrorCode::kContradiction, cursor.block));
}

// Rewrites the current block's header if the cursor has passed `used`, or the stream ends here.
bool StreamCore::CommitBlock(Pending& pending) {
  BlockHeader changed = cursor.header;
  if (pending.final || cursor.blockOffset > changed.used) changed.used = cursor.blockOffset;
  changed.capacity = std::max(changed.capacity, changed.used);
  if (changed.used != cursor.header.used && !RewriteBlockHeader(changed)) return false;
  pending.lastDone = cursor.block;
  pending.donePosition = cursor.position;
  return true;
}

bool StreamCore::RewriteBlockHeader(const BlockHeader& changed) {
  // What lies behind a block that takes more or fewer bytes has another position.
  if (shared != nullptr && cursor.header.nextBlock != 0 && changed.used != cursor.header.used)
    shared->marks.Clear();
  const BlockHeader::Bytes before = cursor.header.Encode(), after = changed.Encode();
  if (!storage->WriteWords(HeaderPlace(cursor.block), 0, before.data(), after.data(), after.size(),
                           {BlockHeader::kCapacityAt, BlockHeader::kUsedAt, BlockHeader::kNextAt}))
    return false;
  cursor.header = changed;
  if (shared == nullptr) return true;
  for (StreamCore* other : shared->objects) {
    if (other != this && other->cursor.block == cursor.block && other->cursor.loaded)
      other->fresher = changed;
  }
  return true;
}

// The length and lastBlock words. A length that another object has written is lowered by a final
// write alone.
bool StreamCore::CommitLength(const Pending& pending) {
  if (!pending.final && pending.donePosition <= header.length) return true;
  const tag_aoStream& known = shared != nullptr ? shared->OnDisk() : header;
  const std::uint32_t newLength =
      pending.final ? pending.donePosition : std::max(pending.donePosition, known.length);
  if (newLength != known.length || pending.lastDone != known.lastBlock) {
    std::array<std::uint8_t, 8> before{}, after{};
    Store32(before.data(), known.length);
    Store32(before.data() + 4, known.lastBlock);
    Store32(after.data(), newLength);
    Store32(after.data() + 4, pending.lastDone);
    if (!storage->WriteWords(place, StreamHeader::kLengthAt, before.data(), after.data(),
                             after.size(), {4, 0}))
      return false;
  }
  NoteLength(newLength, pending.lastDone);
  return true;
}

bool StreamCore::Lengthen(std::uint32_t position) {
  const tag_aoStream& known = shared != nullptr ? shared->OnDisk() : header;
  if (position <= known.length) return true;
  Pending pending{nullptr, 0, false, nullptr, known.lastBlock, position, std::nullopt};
  return CommitLength(pending);
}

void StreamCore::NoteLength(std::uint32_t newLength, std::uint32_t lastBlock) {
  header.length = newLength;
  header.lastBlock = lastBlock;
  if (shared == nullptr) return;
  tag_aoStream known = shared->OnDisk();
  known.length = newLength;
  known.lastBlock = lastBlock;
  shared->SetOnDisk(known);
}

std::uint32_t StreamCore::ReserveOf(std::uint32_t dataBytes) const {
  return IsFolder() ? dataBytes : std::max(storage->defaultBlockSize, dataBytes);
}

// Writes a whole new block, header, data and filler, at the end of the file. Nothing points to it
// yet.
std::optional<std::uint32_t> StreamCore::AppendBlock(std::uint64_t fileEnd, BlockHeader& block,
                                                     const std::uint8_t* data,
                                                     std::uint32_t count) {
  const std::uint32_t dataRoom = ReserveOf(count);
  if (fileEnd + BlockHeader::kSize + dataRoom > kReachableEnd)
    return Fail(ErrorCode::kTooLarge, fileEnd), std::nullopt;
  block.used = BlockHeader::kSize + count;
  block.capacity = BlockHeader::kSize + dataRoom;
  const BlockHeader::Bytes bytes = block.Encode();
  std::array<Stretch, File::kMaxStretches> stretches{{{bytes.data(), bytes.size()}, {data, count}}};
  std::size_t stretchCount = 2;
  std::uint64_t at = fileEnd;
  std::uint64_t gathered = bytes.size() + count;
  std::uint32_t fillerLeft = dataRoom - count;
  for (;;) {
    while (fillerLeft > 0 && stretchCount < stretches.size()) {
      const auto piece =
          static_cast<std::uint32_t>(std::min<std::size_t>(fillerLeft, kFillerPiece));
      stretches[stretchCount++] = {kFiller.data(), piece};
      gathered += piece;
      fillerLeft -= piece;
    }
    if (!storage->Write(at, stretches.data(), stretchCount)) return std::nullopt;
    if (fillerLeft == 0) return static_cast<std::uint32_t>(fileEnd);
    at += gathered;
    gathered = 0;
    stretchCount = 0;
  }
}

bool StreamCore::WriteIntoNextBlock(Pending& pending) {
  if (!pending.fileEnd) pending.fileEnd = storage->file.Size();
  BlockHeader next;
  next.prevBlock = cursor.block;
  const std::optional<std::uint32_t> nextOffset =
      pending.fileEnd ? AppendBlock(*pending.fileEnd, next, pending.data, pending.left)
                      : std::nullopt;
  if (!nextOffset) {
    // What the current block took counts all the same.
    if (CommitBlock(pending)) outOfStep = true;
    return false;
  }
  storage->tailOffset = *nextOffset;
  BlockHeader linked = cursor.header;
  linked.used = cursor.blockOffset;
  linked.capacity = std::max(linked.capacity, linked.used);
  linked.nextBlock = *nextOffset;
  if (!RewriteBlockHeader(linked)) return false;
  fresher.reset();
  if (!cursor.Step(storage->file)) return false;
  cursor.header = next;
  cursor.loaded = true;
  cursor.blockOffset = BlockHeader::kSize;
  const std::uint32_t count = pending.left;
  pending.Took(cursor, count);
  cursor.Advance(count);
  pending.lastDone = cursor.block;
  pending.donePosition = cursor.position;
  return true;
}

// The first block with its data, then the words that lead to it: `length`, `lastBlock` and
// `firstBlock` lie side by side.
bool StreamCore::WriteFirstBlock(Pending& pending) {
  const std::optional<std::uint64_t> fileEnd = storage->file.Size();
  if (!fileEnd) return false;
  BlockHeader block;
  const std::uint32_t count = pending.left;
  const std::optional<std::uint32_t> offset = AppendBlock(*fileEnd, block, pending.data, count);
  if (!offset || !EnterFirstBlock(*offset, count)) return false;
  storage->tailOffset = *offset;
  header.firstBlock = *offset;
  if (shared != nullptr) {
    tag_aoStream known = shared->OnDisk();
    known.firstBlock = *offset;
    shared->SetOnDisk(known);
  }
  cursor = ChainCursor::AtStart(*offset);
  cursor.header = block;
  cursor.loaded = true;
  cursor.blockOffset = BlockHeader::kSize;
  pending.Took(cursor, count);
  cursor.Advance(count);
  if (count > 0) NoteLength(count, *offset);
  return true;
}

bool StreamCore::EnterFirstBlock(std::uint32_t offset, std::uint32_t count) {
  const tag_aoStream known = HeaderToWrite();
  tag_aoStream changed = known;
  changed.firstBlock = offset;
  changed.lastBlock = offset;
  changed.length = count;
  const std::size_t from = count > 0 ? StreamHeader::kLengthAt : StreamHeader::kFirstBlockAt;
  const std::size_t size = StreamHeader::kSize - from;
  const StreamHeader::Bytes before = StreamHeader::Encode(known);
  const StreamHeader::Bytes after = StreamHeader::Encode(changed);
  // In parts, the chain must be there before its length.
  const bool entered = count > 0 ? storage->WriteWords(place, from, before.data() + from,
                                                       after.data() + from, size, {8, 4, 0})
                                 : storage->WriteWords(place, from, before.data() + from,
                                                       after.data() + from, size, {0});
  // A write cut short may have left a length without a chain: the old words go back, if they can.
  if (!entered && count > 0)
    static_cast<void>(storage->WriteHeader(place, from, before.data() + from, size));
  return entered;
}

}  // namespace aostorage::detail
