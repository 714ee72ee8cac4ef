/// @file
/// A look at a storage file from outside: every record once, every broken rule. It only reads, it
/// opens no stream, and it ends in bounded time and memory on any file whatever.
///
/// The rules have the numbers of docs/invariants.md.
#ifndef AOSTORAGE_INSPECT_H_
#define AOSTORAGE_INSPECT_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <aostorage/export.h>
#include <aostorage/types.h>

namespace aostorage {

/// What the bytes of a record are.
enum class RecordKind : std::uint8_t {
  kFileHeader,      ///< the first 32 or 26 bytes
  kDirectoryBlock,  ///< the 12 bytes before the slots of a directory block
  kSlot,            ///< 80 bytes of a directory block: the header of a root stream
  kBlockHeader,     ///< the 20 bytes before the data of a block
  kFolderCount,     ///< the first 4 data bytes of a folder
  kChildRecord,     ///< the header of a child in its folder's data, or a piece of it
  kData,            ///< data of a plain stream, below its length
  kBehindLength,    ///< data bytes of a block that no length covers
  kReserve,         ///< bytes of a block above `used`
  kUnknown,         ///< bytes that belong to no record
};

/// How a record stands to the streams that can be reached.
enum class RecordState : std::uint8_t {
  kLive,         ///< a name leads to it, or it serves the whole file
  kUnused,       ///< a slot that holds no stream and no chain
  kVacated,      ///< the slot of a removed stream, and its chain; a new stream can take them over
  kUnreachable,  ///< a named stream that no walk from the directory by name comes to
  kOrphan,       ///< no slot leads to it
  kOverlapping,  ///< claimed a second time, by another chain or another place of the same one
};

/// How grave a finding is.
enum class Severity : std::uint8_t {
  kNote,     ///< a sound file can have this: space that is not used, an operation broken off
  kWarning,  ///< no sound file has this, but every stream can be read in spite of it
  kError,    ///< bytes are lost, or will be if the file is written to
};

/// The rules. A number below 100 is that of the invariant with the same number.
enum class Rule : std::uint8_t {
  kFileHeader = 1,         ///< I1
  kFirstDirectory = 2,     ///< I2
  kDirectoryBlock = 3,     ///< I3
  kDirectoryChain = 4,     ///< I4
  kSlotInUse = 6,          ///< I6
  kEmptySlot = 7,          ///< I7
  kVacatedSlot = 8,        ///< I8
  kFolderSlotMagic = 9,    ///< I9
  kNoBlockNoLength = 10,   ///< I10
  kBlockWords = 11,        ///< I11
  kBlockInside = 12,       ///< I12
  kChainEnd = 13,          ///< I13
  kPreviousBlock = 14,     ///< I14
  kNoOverlap = 15,         ///< I15
  kLengthInData = 16,      ///< I16
  kLastBlock = 17,         ///< I17
  kReachable = 18,         ///< I18
  kFolderHasCount = 19,    ///< I19
  kCountedSlots = 20,      ///< I20
  kNoUncounted = 21,       ///< I21
  kNoFolderInItself = 23,  ///< I23
  kLengthInRoom = 24,      ///< I24
  kRemovedStream = 101,    ///< N1: a removed stream whose chain is still there
  kHiddenName = 102,       ///< N2: a stream hidden by another one of the same name
  kUncountedSlot = 103,    ///< N3: a stream in a slot that its folder's count does not cover
  kLostStream = 104,       ///< N4: a stream whose directory block or folder is not reached
  kOrphanChain = 105,      ///< N5: blocks that nobody reaches
  kUnknownBytes = 106,     ///< N6: bytes that belong to no record
  kUnreadable = 107,       ///< N7: the operating system could not read these bytes
  kGivenUp = 108,          ///< N8: more records than InspectOptions allows; the rest was not seen
};

/// "I11", "N3". Never null.
AOSTORAGE_API const char* RuleName(Rule rule) noexcept;
/// What it means for the owner of the file that the rule does not hold, in one English sentence
/// without a trailing full stop. Never null.
AOSTORAGE_API const char* RuleText(Rule rule) noexcept;

/// No stream, no block.
inline constexpr std::uint32_t kNoIndex = 0xFFFFFFFF;

/// One broken rule, or one note.
struct Finding {
  Rule rule = Rule::kFileHeader;
  Severity severity = Severity::kNote;
  std::uint64_t offset = 0;         ///< file offset of the record, or the word, at fault
  std::uint32_t stream = kNoIndex;  ///< index in Inspection::Streams of the stream concerned
  const char* detail = "";          ///< what exactly was found; never null, static
  std::uint64_t value = 0;          ///< the number or offset that `detail` speaks of; else 0
};

/// Why a stream is in the list.
enum class StreamOrigin : std::uint8_t {
  kDirectory,      ///< a root slot in use
  kFolder,         ///< a counted slot of a folder
  kHidden,         ///< as the two above, but another one of the same name is found in its place
  kUncounted,      ///< a slot behind those that its folder counts
  kVacated,        ///< a vacated slot: the name is gone
  kUnusedSlot,     ///< a slot of a folder that holds nothing
  kDamagedSlot,    ///< a slot of a folder without magic word: nothing of it can be believed
  kLostDirectory,  ///< a slot of a directory block that the chain of directory blocks does not
                   ///< reach
  kLoneRecord,     ///< 80 bytes that look like a stream header, found outside all records
  kOrphanChain,    ///< a chain of blocks that no slot leads to
};

/// How the walk along a stream's chain ended.
enum class ChainEnd : std::uint8_t {
  kWhole,       ///< at a block whose `nextBlock` is 0, or the stream has no block
  kOutOfRange,  ///< at an offset where no block can be
  kTruncated,   ///< at a block that reaches behind the end of the file
  kBadMagic,    ///< at bytes that are no block header
  kBadWords,    ///< at a block header whose words contradict each other
  kOverlap,     ///< at bytes that belong to another record
};

/// One block of a chain.
struct InspectedBlock {
  std::uint32_t offset = 0;     ///< file offset
  std::uint32_t used = 0;       ///< as in the file
  std::uint32_t capacity = 0;   ///< as in the file
  std::uint32_t prevBlock = 0;  ///< as in the file
  std::uint32_t nextBlock = 0;  ///< as in the file
  std::uint32_t present = 0;    ///< bytes of the block that lie in the file: `capacity`, or less
  std::uint32_t stream = kNoIndex;  ///< index of the stream that owns it
  std::uint64_t position = 0;       ///< position in the stream of the block's first data byte
};

/// One stream header found in the file, or a chain without one.
struct InspectedStream {
  tag_aoStream header{};  ///< as in the file; for a chain without a header only `firstBlock`
  std::uint64_t headerOffset = 0;   ///< file offset of its first byte; 0 without a header
  std::uint32_t parent = kNoIndex;  ///< the folder that holds it; kNoIndex at the root, or unknown
  std::uint32_t slotIndex = 0;      ///< in its directory block or folder
  StreamOrigin origin = StreamOrigin::kDirectory;
  RecordState state = RecordState::kLive;
  bool isFolder = false;  ///< holds slots; a guess when the origin is kVacated or kOrphanChain
  bool headless = false;  ///< the chain's beginning is missing
  bool shared = false;    ///< another stream claims bytes of its chain as well
  ChainEnd chainEnd = ChainEnd::kWhole;
  std::uint64_t chainEndOffset = 0;  ///< file offset at which the chain breaks off
  std::uint32_t firstBlock = 0;      ///< index in Inspection::Blocks; its blocks stand in a row
  std::uint32_t blockCount = 0;
  std::uint32_t firstChild = 0;  ///< index in Inspection::Streams; all its slots stand in a row
  std::uint32_t childCount = 0;  ///< slots, empty ones included
  std::uint32_t slotsAt = 4;     ///< of a folder: position of the first slot; where the chain's
                                 ///< beginning is missing, of the first whole one
  std::uint64_t dataBytes = 0;   ///< bytes that its blocks hold, as far as they lie in the file
};

/// One directory block.
struct InspectedDirectory {
  std::uint32_t offset = 0;
  std::uint32_t slotCount = 0;      ///< as in the file
  std::uint32_t nextDirectory = 0;  ///< as in the file
  RecordState state = RecordState::kLive;
};

/// Bytes that lie side by side and are one thing.
struct Record {
  std::uint64_t offset = 0;  ///< file offset
  std::uint64_t size = 0;
  RecordKind kind = RecordKind::kUnknown;
  RecordState state = RecordState::kOrphan;
  std::uint32_t stream = kNoIndex;  ///< the stream it belongs to; for slots and child records the
                                    ///< stream whose header it is
  std::uint32_t block = kNoIndex;   ///< index in Inspection::Blocks for what lies in a block
  std::uint64_t position = 0;       ///< position in its stream, for data
};

/// What Inspection::Of is asked to do.
struct InspectOptions {
  /// Goes on where the file header is none, as if it were there: for saving what can be saved.
  bool salvage = false;
  /// Streams and blocks together: bounds the memory, about 170 bytes each. No file that this
  /// library writes has more than the default.
  std::uint64_t mostRecords = std::uint64_t{1} << 26;
  /// Asked now and then with the bytes seen and the file's size; false gives the inspection up.
  std::function<bool(std::uint64_t seen, std::uint64_t total)> goOn;
};

/// Everything that a storage file holds, as it was when Of looked at it. A question that runs out
/// of memory gives an empty answer. The functions given to it must not throw.
class AOSTORAGE_API Inspection {
 public:
  /// Looks at the whole file at `path`. The file is opened for reading only; it stays open for
  /// Read and ReadStream as long as the object lives.
  /// @return null when the file cannot be opened, is no storage (unless `salvage` is set), memory
  ///         runs out or `goOn` gave up; LastError tells which. A damaged file is a result.
  static std::unique_ptr<Inspection> Of(const char* path, const InspectOptions& options = {});
  ~Inspection();
  Inspection(const Inspection&) = delete;
  Inspection& operator=(const Inspection&) = delete;

  std::uint64_t FileSize() const noexcept;
  /// False when the magic text or the version character is another.
  bool HasFileHeader() const noexcept;
  bool IsOlderForm() const noexcept;
  std::uint16_t SlotsPerDirectory() const noexcept;  ///< as in the file; 64 in the older form
  std::uint16_t ReservedSlotCount() const noexcept;  ///< as in the file; 2 in the older form
  std::uint32_t FileHeaderSize() const noexcept;     ///< 32, or 26 in the older form

  /// All streams, and all slots of folders, in the order in which they were found: a folder before
  /// its children.
  const std::vector<InspectedStream>& Streams() const noexcept;
  /// All blocks, those of one stream in the order of its chain.
  const std::vector<InspectedBlock>& Blocks() const noexcept;
  const std::vector<InspectedDirectory>& Directories() const noexcept;

  /// What was found, in the order of file offsets. Of each rule the first 1,000 are kept.
  const std::vector<Finding>& Findings() const noexcept;
  /// How often a rule was found broken, those that are not kept included.
  std::uint64_t CountOf(Rule rule) const noexcept;
  /// How many findings are this grave, those that are not kept included.
  std::uint64_t CountOf(Severity severity) const noexcept;

  /// The names from the root down, with slashes between them. What has no name is called by its
  /// place, in angle brackets: "box/<removed 7>", "<orphan 5164>". The bytes of names stand as in
  /// the file.
  std::string PathOf(std::uint32_t stream) const;
  /// The name of one stream, or how PathOf calls it.
  std::string NameOf(std::uint32_t stream) const;

  /// Gives all records in the order of file offsets, until `take` returns false. Together they
  /// cover each byte of the file once. Only block headers in the state kOverlapping whose `block`
  /// is kNoIndex lie on other records.
  /// @return false when `take` ended it or memory ran out
  bool ForEachRecord(const std::function<bool(const Record&)>& take) const;

  /// Reads bytes of the file.
  /// @return the number of bytes read, less than `count` only at the end of the file. What the
  ///         operating system cannot read counts as zeros, and LastError tells of it.
  std::size_t Read(std::uint64_t offset, void* buffer, std::size_t count) const;

  /// Gives the bytes of a stream from position `from` on, in pieces of up to 64 KiB, to its length
  /// or, where no length is known, to the end of its blocks. False from `take` ends it.
  /// @return the bytes given; fewer than the length says when the chain ends early.
  std::uint64_t ReadStream(std::uint32_t stream,
                           const std::function<bool(const void* bytes, std::size_t count)>& take,
                           std::uint64_t from = 0) const;

  /// How many bytes the inspection, Read and ReadStream have given as zeros so far because the
  /// operating system could not read them. Compare it before and after a call.
  std::uint64_t BytesMadeUp() const noexcept;

 private:
  struct Data;
  explicit Inspection(std::unique_ptr<Data> found);
  std::unique_ptr<Data> data;
};

}  // namespace aostorage

#endif  // AOSTORAGE_INSPECT_H_
