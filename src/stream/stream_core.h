// The working part of an open stream: header copy, cursor, and all that moves bytes.
#ifndef AOSTORAGE_STREAM_STREAM_CORE_H_
#define AOSTORAGE_STREAM_STREAM_CORE_H_

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include <aostorage/stream.h>

#include "storage/chain_cursor.h"
#include "storage/header_place.h"
#include "storage/open_registry.h"
#include "storage/storage_core.h"

namespace aostorage::detail {

class StreamCore {
 public:
  enum class Sharing {
    kLasting,    // an object that a caller gets
    kMomentary,  // lives within one call: joins the others on the stream, if there are any, and
                 // leaves no trace
  };

  // A root stream.
  StreamCore(std::shared_ptr<StorageCore> openStorage, const tag_aoStream& record,
             const tag_aoStreamOffset& offset, std::uint32_t flags, Sharing sharing);
  // Slot `slotIndex` of `folder`.
  StreamCore(StreamCore& folder, const tag_aoStream& record, HeaderPlace recordPlace,
             std::uint32_t slot, std::uint32_t flags, Sharing sharing);
  StreamCore(const StreamCore&) = delete;
  StreamCore& operator=(const StreamCore&) = delete;
  ~StreamCore();

  // --- Data (stream_data.cpp)
  std::uint32_t Read(void* buffer, std::uint32_t count);
  // The same into a buffer of the library, in which any byte may change.
  std::uint32_t ReadOwn(std::uint8_t* buffer, std::uint32_t count);
  // `pieces` receives where in the file the bytes went, in order.
  std::uint32_t Write(const void* buffer, std::uint32_t count, bool final,
                      FilePieces* pieces = nullptr);

  // The stream has bytes up to `position`, written straight to their places: its length follows if
  // it was lower.
  [[nodiscard]] bool Lengthen(std::uint32_t position);

  // --- Positioning (stream_seek.cpp)
  bool SeekRight(std::uint32_t distance, bool fromStart);
  bool SeekLeft(std::uint32_t distance, bool fromEnd);
  // To the first data byte, without a look at the file: what is wrong there shows at the next
  // access.
  void Rewind();
  // Takes a place that is known to lie in this stream's chain.
  void PlaceCursor(const ChainCursor& target);
  // Moves on over bytes that are known to lie in the cursor's block.
  void SkipLoaded(std::uint32_t count) {
    cursor.blockOffset = std::max(cursor.blockOffset, BlockHeader::kSize);
    cursor.Advance(count);
  }

  // --- Header (stream_core.cpp)
  bool SetLength(std::uint32_t newLength);
  bool Erase();
  bool GoNext();
  // Rewrites the whole record with this object's name and the chain that the stream has now.
  [[nodiscard]] bool WriteName(std::string_view newName);
  // Rewrites the record as a vacated slot and marks the stream as gone.
  [[nodiscard]] bool WriteVacated();
  // The registry that has this stream's name: of the storage or of the folder.
  OpenRegistry& OwningRegistry() { return IsChild() ? *owningRegistry : storage->openStreams; }
  std::int32_t CloseInRegistry() { return OwningRegistry().Close(header.name); }

  bool IsFolder() const { return IsFolderKind(header); }
  bool IsChild() const { return parent != nullptr; }
  // Whether both objects stand on one stream, through one storage object or through two.
  bool IsOn(const StreamCore& other) const { return IsRecordAt(other, other.locator.headerOffset); }
  // Whether this stream is inside the other one, at any depth, as far as its folders are known.
  bool IsInside(const StreamCore& other) const;
  // Whether the folders around it are known, up to the root.
  bool KnowsItsFolders() const;
  // What was remembered of a folder's records may not be so any more.
  void ForgetIndex() {
    if (shared != nullptr) shared->index.reset();
  }
  // The index of the folder that this stream is in follows a change of its record. An index that
  // cannot follow, for want of memory, is forgotten.
  void ForgetFolderIndex() {
    if (parent != nullptr) parent->index.reset();
  }
  template <typename Change>
  void ChangeFolderIndex(Change change) noexcept {
    if (parent == nullptr || parent->index == nullptr) return;
    try {
      change(*parent->index);
    } catch (...) {
      parent->index.reset();
    }
  }
  std::uint32_t OpenFlags() const { return openFlags; }
  // Whether the record may be rewritten through this object.
  bool MayChange() const;
  bool IsRemoved() const { return shared != nullptr && shared->IsRemoved(); }
  StorageCore& Storage() const { return *storage; }
  SharedStream* Shared() const { return shared.get(); }
  const tag_aoStream& Header() const { return header; }
  const tag_aoStreamOffset& Locator() const { return locator; }
  std::uint32_t SlotIndex() const { return slotIndex; }
  const ChainCursor& Cursor() const { return cursor; }
  std::uint32_t ChildCount() const { return childCount; }
  void SetChildCount(std::uint32_t count) { childCount = count; }
  // The registry of the children opened through this object.
  OpenRegistry& Children();

 private:
  // Whether a header at `headerOffset` in the file of `inFile` is this stream's.
  bool IsRecordAt(const StreamCore& inFile, std::uint32_t headerOffset) const {
    return locator.headerOffset == headerOffset &&
           (storage == inFile.storage ||
            storage->file.Identity() == inFile.storage->file.Identity());
  }
  void Join(Sharing sharing);
  void LeaveShared();
  // Takes over what other objects on this stream have linked since this object last looked.
  void Adopt();
  bool WriteWholeHeader(std::uint32_t newLength);
  tag_aoStream HeaderToWrite() const;
  bool ReadNextSlot(tag_aoStream& next, tag_aoStreamOffset& nextLocator);

  // Walks
  // The marks of this stream's chain, none of them old; null where there is no place for them.
  BlockMarks* Marks();
  // From the start of the chain.
  [[nodiscard]] bool WalkTo(std::uint32_t position, ChainCursor& walk);

  // Reading
  struct ReadAhead;
  std::optional<std::uint32_t> ReadWithHeader(std::uint8_t* out, std::uint32_t count,
                                              ReadAhead& ahead);
  std::optional<std::uint32_t> ReadLoaded(std::uint8_t* out, std::uint32_t count);

  // Writing
  struct Pending;
  std::uint32_t ReserveOf(std::uint32_t dataBytes) const;
  std::optional<std::uint32_t> AppendBlock(std::uint64_t fileEnd, BlockHeader& block,
                                           const std::uint8_t* data, std::uint32_t count);
  bool WriteFirstBlock(Pending& pending);
  bool WriteBlocks(Pending& pending);
  bool FillBlock(Pending& pending, bool& done);
  bool ChooseChunk(Pending& pending, std::uint32_t& chunk);
  bool WriteIntoNextBlock(Pending& pending);
  bool CommitBlock(Pending& pending);
  bool CommitLength(const Pending& pending);
  void NoteLength(std::uint32_t newLength, std::uint32_t lastBlock);
  bool EnterFirstBlock(std::uint32_t offset, std::uint32_t count);
  bool RewriteBlockHeader(const BlockHeader& changed);

  // Order matters: what is declared first goes last, and the shared part needs the storage.
  std::shared_ptr<StorageCore> storage;
  tag_aoStream header;
  HeaderPlace place;
  tag_aoStreamOffset locator{};  // directory words are 0 for a child
  std::uint32_t slotIndex = 0;   // of a child
  std::uint32_t openFlags;
  ChainCursor cursor;
  // The cursor does not stand where `position` says, or stands nowhere though the stream has a
  // chain: after a failed seek or a next block that could not be made. Only a seek from the start
  // or the end ends it.
  bool outOfStep = false;
  CycleGuard directoryGuard;
  std::uint32_t childCount = 0;
  std::shared_ptr<OpenRegistry>
      childRegistry;  // also held by the children: they may outlive this object
  std::shared_ptr<OpenRegistry> owningRegistry;  // of the folder; null for a root stream
  std::shared_ptr<SharedStream> parent;
  std::shared_ptr<SharedStream> shared;  // null for a momentary object that is alone on its stream
  std::optional<BlockHeader> fresher;    // the current block's header, rewritten by another object
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_STREAM_STREAM_CORE_H_
