// What the stream objects of one storage that stand on the same stream share.
#ifndef AOSTORAGE_STORAGE_SHARED_STREAM_H_
#define AOSTORAGE_STORAGE_SHARED_STREAM_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include <aostorage/types.h>

#include "storage/block_marks.h"
#include "storage/folder_index.h"
#include "storage/hash_index.h"

namespace aostorage::detail {

class StreamCore;

class SharedStreams;

// One open stream. Every object on it has its own header copy and cursor; this holds what none of
// them may undo: the words of the record as this storage last read or wrote them.
class SharedStream {
 public:
  SharedStream(SharedStreams& openStreams, std::uint32_t offset, const tag_aoStream& header,
               std::shared_ptr<SharedStream> folder);
  SharedStream(const SharedStream&) = delete;
  SharedStream& operator=(const SharedStream&) = delete;
  ~SharedStream();

  // Vacated: the parent does not wait for it any more.
  void MarkRemoved();

  std::uint32_t HeaderOffset() const { return headerOffset; }
  // The folder that the stream was opened in, null for a root stream.
  SharedStream* Parent() const { return parent.get(); }
  // Whether a stream that was not removed is open in this folder.
  bool HasOpenChildren() const { return openChildren > 0; }
  bool IsRemoved() const { return removed; }

  const tag_aoStream& OnDisk() const { return onDisk; }
  void SetOnDisk(const tag_aoStream& header) noexcept;

  // Opened by the place of its header, outside the directory: nobody knows the folders around it.
  bool placeAlone = false;
  std::vector<StreamCore*> objects;    // those open on it
  std::unique_ptr<FolderIndex> index;  // of a folder, once a scan has begun
  std::uint64_t indexEpoch = 0;        // see StorageCore::IndexEpoch
  BlockMarks marks;                    // of the chain that begins with `markedChain`
  std::uint32_t markedChain = 0;
  std::uint64_t marksEpoch = 0;  // see StorageCore::IndexEpoch

 private:
  friend class SharedStreams;

  tag_aoStream onDisk;
  SharedStreams& table;
  std::uint32_t headerOffset;
  std::shared_ptr<SharedStream> parent;
  std::uint32_t openChildren = 0;
  bool removed = false;  // the slot is vacated or another stream's: nothing may write
};

// The open streams of a storage by the place of their headers.
class SharedStreams {
 public:
  std::shared_ptr<SharedStream> Find(std::uint32_t headerOffset) const;
  std::shared_ptr<SharedStream> FindOrMake(std::uint32_t headerOffset, const tag_aoStream& header,
                                           const std::shared_ptr<SharedStream>& folder);
  void Leave(const SharedStream& stream);
  // Whether a stream with this chain is open.
  bool HasOpenChain(std::uint32_t firstBlock) const;
  // A new stream takes this place: what is still open on it is another stream, and gone.
  void Displace(std::uint32_t headerOffset);
  // Marks a stream that was removed, and every stream still open inside it: their records may be
  // overwritten.
  void MarkRemoved(SharedStream& stream);

 private:
  friend class SharedStream;
  // The index of a folder that nobody has open at the moment.
  struct KeptIndex {
    std::uint32_t headerOffset = 0, firstBlock = 0;
    std::uint64_t epoch = 0;
    std::unique_ptr<FolderIndex> index;
  };
  void KeepIndex(SharedStream& stream) noexcept;
  void ReturnIndex(SharedStream& stream) noexcept;
  void DropIndex(std::uint32_t headerOffset) noexcept;

  static std::uint64_t ChainHash(const SharedStream& stream);
  void EnterChain(const SharedStream& stream);
  void DropChain(const SharedStream& stream);

  std::unordered_map<std::uint32_t, std::weak_ptr<SharedStream>> byHeaderOffset;
  // The first block of each stream, 0 included, so that a change of one takes no memory.
  HashIndex chains;
  // A ring: the oldest goes first. Folders that are opened, looked into and closed again, as the
  // steps of a path are, are not scanned each time.
  static constexpr std::size_t kMostKept = 16;
  static constexpr std::uint32_t kMostSlots = 10000;  // a larger folder is not kept
  std::array<KeptIndex, kMostKept> kept;
  std::size_t nextKept = 0;
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_STORAGE_SHARED_STREAM_H_
