/// @file
/// Flags, records and small value types that the operations take and give.
#ifndef AOSTORAGE_TYPES_H_
#define AOSTORAGE_TYPES_H_

#include <cstdint>
#include <functional>
#include <string>

namespace aostorage {

/// @name Access flags
/// One 32-bit word of these bits goes to every opening operation.
/// The sharing bits act between stream objects of one storage object only; they lock nothing
/// against other handles or processes.
/// @{
inline constexpr std::uint32_t kStreamRead = 0x02;  ///< reading; recorded, not tested
inline constexpr std::uint32_t kStreamWrite =
    0x04;  ///< the storage: file opened for writing; a stream: may be
           ///< erased, shortened, renamed, removed
inline constexpr std::uint32_t kShareRead = 0x08;  ///< others may open, but not for shared writing
inline constexpr std::uint32_t kShareReadWrite = 0x10;  ///< others may open for anything
inline constexpr std::uint32_t kExclusive =
    0x20;  ///< in the first open of a name: nobody else may open it
inline constexpr std::uint32_t kReadFlags = 0x12;   ///< kStreamRead | kShareReadWrite
inline constexpr std::uint32_t kWriteFlags = 0x16;  ///< kReadFlags | kStreamWrite
/// @}

/// The failed count, and the failed seek.
inline constexpr std::uint32_t kFailed = 0xFFFFFFFF;

/// Longest usable stream name, in bytes, without its terminator.
inline constexpr std::uint32_t kMaxNameLength = 60;

/// The `packedKind` of a creating operation: what to create, and its duration in whole minutes.
constexpr std::uint32_t PackKind(bool folder, std::uint16_t durationMinutes = 0) {
  return (static_cast<std::uint32_t>(durationMinutes) << 16) | (folder ? 1U : 0U);
}

/// A size: width and height.
struct tagSIZE {
  std::int32_t cx, cy;
};

/// A rectangle.
struct tagRECT {
  std::int32_t left, top, right, bottom;
};

#pragma pack(push, 1)
/// The stream header, 80 bytes, with the layout that it has in the file. Values stand in host
/// order.
struct tag_aoStream {
  std::uint32_t magic;     ///< 0xFCFCFCFC
  char name[61];           ///< NUL-terminated, at most 60 bytes; empty in a slot that is not in use
  std::uint16_t duration;  ///< whole minutes
  std::uint8_t kindFlag;   ///< 1 for a folder
  std::uint32_t length;    ///< bytes of the stream
  std::uint32_t lastBlock;   ///< file offset of the block written last; informative
  std::uint32_t firstBlock;  ///< file offset of the first block, 0 when there is none
};
#pragma pack(pop)
static_assert(sizeof(tag_aoStream) == 80);

/// Where a stream header lies. Only `headerOffset` and `durationSeconds` are set for a child
/// stream.
struct tag_aoStreamOffset {
  std::uint32_t headerOffset;     ///< file offset of the header's first byte
  std::uint32_t directoryOffset;  ///< file offset of the directory block that holds it
  std::uint32_t directoryCount;   ///< slots of that directory block
  std::uint32_t durationSeconds;  ///< `duration` times 60
};

/// A registry record: one name that stream objects hold open.
struct t_OpenStream {
  std::string name;
  std::uint32_t useCount;  ///< how many objects hold the name
  std::uint32_t
      openFlags;  ///< access flags of the open that made the record; later opens leave them
};

/// State and result of a sorted scan; see aoStorage::IterateSortedStreamsNoOPENS. The caller makes
/// one and hands it to each step.
struct CIterateSortedStreams {
  int firstCall = 1;                ///< nonzero before the first step, which clears it
  std::uint32_t fixedDuration = 0;  ///< in: if not 0, the seconds that every step reports
  int descending = 0;               ///< in: the direction, read at the first step
  std::uint32_t lastDuration =
      0;                   ///< in and out: the last estimate in seconds, the fallback of the next
  int nextIndex = 0;       ///< index of the next entry, -1 at the end
  std::string streamName;  ///< out: the entry's name
  tag_aoStreamOffset streamOffset{};  ///< out: its locator, `durationSeconds` stored or estimated
};

/// What a rebuild has carried so far, and what it changes; see aoStorage::Recreate.
struct RebuildReport {
  std::uint64_t streams = 0;    ///< streams carried, folders included
  std::uint64_t bytes = 0;      ///< bytes of the plain streams among them
  std::uint64_t durations = 0;  ///< durations among them that became 0
  std::uint64_t reserved = 0;   ///< streams of reserved slots, which become ordinary ones
  std::uint64_t hidden = 0;     ///< root slots that are left behind: hidden by a later one of the
                                ///< same name, or dropped with aoStorage::RemoveStream
};

/// Follows a rebuild: called once before it begins, when `reserved` and `hidden` are known, and
/// after each stream. False gives the rebuild up, and so does a change of the source meanwhile.
using RebuildProgress = std::function<bool(const RebuildReport&)>;

/// Place of a cookie iteration over root streams. Its end mark is -1 in a sorted walk, 0 in an
/// unsorted one.
using StreamCookie = std::intptr_t;

}  // namespace aostorage

#endif  // AOSTORAGE_TYPES_H_
