// Opening, creating, walking and removing the children of a folder.
#ifndef AOSTORAGE_FOLDER_CHILD_STREAMS_H_
#define AOSTORAGE_FOLDER_CHILD_STREAMS_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "folder/child_records.h"
#include "stream/stream_core.h"

namespace aostorage::detail {

// The work behind the operations of aoStream on children, for the callers' streams and for the
// entries. The folder must be one, and not removed. A momentary child leaves no record in the
// folder's registry.
class ChildStreams {
 public:
  using Sharing = StreamCore::Sharing;

  explicit ChildStreams(StreamCore& openFolder) : folder(openFolder), records(openFolder) {}

  std::unique_ptr<StreamCore> Open(const char* name, std::uint32_t flags,
                                   Sharing sharing = Sharing::kLasting);
  std::unique_ptr<StreamCore> Create(const char* name, std::uint32_t packedKind,
                                     std::uint32_t flags, Sharing sharing = Sharing::kLasting);
  // A name that is there and cannot be opened is not created anew.
  std::unique_ptr<StreamCore> OpenOrCreate(const char* name, std::uint32_t packedKind,
                                           std::uint32_t flags,
                                           Sharing sharing = Sharing::kLasting);

  // Creates a child without a look at the names that are there.
  std::unique_ptr<StreamCore> CreateUnseen(const char* name, std::uint32_t packedKind,
                                           std::uint32_t flags,
                                           Sharing sharing = Sharing::kLasting);

  // Whether the folder counts the child that was created last. Until it does, a walk from the
  // start may not reach the child, and the next creation may take its place.
  bool IsCounted() const { return counted; }

  enum class Walk {
    kOpened,
    kEnd,        // no further child
    kCutOff,     // the folder cannot be read on
    kDamaged,    // a slot is neither in use nor vacated; the walk stays there
    kRefused,    // a child is there and cannot be opened
    kLeadsBack,  // a child is there that is one of the folders around it
  };
  // One step of a walk. `slotIndex` is where it goes on, and becomes the place behind the slots
  // looked at. With `bounded`, only the slots that the count word promises are looked at.
  Walk OpenNext(std::uint32_t& slotIndex, bool bounded, std::uint32_t flags,
                std::unique_ptr<StreamCore>& child, Sharing plainSharing = Sharing::kLasting);
  // Appends the names that a whole walk for reading would meet, in one pass over the folder's data.
  static void ListNames(StreamCore& folder, std::vector<std::string>& names);
  // Reads the folder's count word into its childCount.
  [[nodiscard]] bool ReadCount() { return records.ReadCount(); }
  bool HasAllSlots() { return records.HasAllSlots(); }
  // After a walk that was cut off: whether the making of the folder was broken off, so that it has
  // no count word yet and nothing in it.
  bool IsUnbegun() const {
    return records.LacksCount() && folder.Header().length < FolderPayload::kCountSize;
  }
  std::uint64_t BytesPassed() { return records.BytesPassed(); }
  std::uint64_t BytesWalked() const { return records.BytesWalked(); }

 private:
  std::unique_ptr<StreamCore> OpenRecord(const ChildRecord& record, std::uint32_t flags,
                                         Sharing sharing);
  StreamCore& folder;
  ChildRecords records;
  bool counted = true;
};

// A walk over a tree passes the bytes of its folders once, and some of them a second time where an
// index had to be given up. More rounds than these over the whole file are damage.
inline constexpr std::uint64_t kMostRounds = 2;

// Ends a stream that was opened with a record in its registry.
struct CountedStreamEnder {
  void operator()(StreamCore* stream) const {
    stream->CloseInRegistry();
    delete stream;
  }
};
using CountedStream = std::unique_ptr<StreamCore, CountedStreamEnder>;

// Whether a child folder is, by its record or its chain, `folder` itself or one of those around it:
// only a damaged file has that, and a way down through it would have no end.
bool LeadsBack(const StreamCore& folder, const tag_aoStream& childHeader,
               std::uint32_t childHeaderOffset);

// Vacates the slot of a stream that was opened so, and lets go of its name in the registry (unless
// the object is momentary), in the name map and in what is remembered of its folder. The object is
// left without a name.
[[nodiscard]] bool VacateSlot(StreamCore& stream, StreamCore::Sharing sharing);

// Removes the stream, a folder with all its children. The object is left without a name.
[[nodiscard]] bool RemoveWhole(StreamCore& stream);

// Gives the stream another name, cut to what fits, in its record and then in registry, name map and
// index.
[[nodiscard]] bool RenameStream(StreamCore& stream, const char* newName);

// Removes all streams inside a folder, the deepest first and without recursion. A child that cannot
// be opened ends its folder's part. False when the tree leads back into itself: what was not
// removed by then stays.
[[nodiscard]] bool RemoveChildren(StreamCore& top);

}  // namespace aostorage::detail

#endif  // AOSTORAGE_FOLDER_CHILD_STREAMS_H_
