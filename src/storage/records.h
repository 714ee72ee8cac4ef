// The bytes of every record in the file: the one place that knows them. Encoding and decoding
// alone, no input or output. All integers are little-endian, records are packed, offsets are from
// the file's start.
#ifndef AOSTORAGE_STORAGE_RECORDS_H_
#define AOSTORAGE_STORAGE_RECORDS_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include <aostorage/types.h>

namespace aostorage::detail {

// --- Integers

void Store16(std::uint8_t* to, std::uint16_t value);
void Store32(std::uint8_t* to, std::uint32_t value);
void Store64(std::uint8_t* to, std::uint64_t value);
std::uint16_t Load16(const std::uint8_t* from);
std::uint32_t Load32(const std::uint8_t* from);
std::uint64_t Load64(const std::uint8_t* from);

// --- File header
//
// Current form, 32 bytes
//   offset  size  field
//        0    24  magic text "@_QX_Structured_Storage@"
//       24     1  version character '1'
//       25     1  0
//       26     2  slotsPerDirectory   slotCount of directory blocks appended later
//       28     2  reservedSlotCount   leading slots of the first directory block kept for Fast
//       streams 30     2  0
//
// Older form, 26 bytes, read and never written
//        0    25  magic text "@_QX_Structured_Storage@_"
//       25     1  0
struct StorageFileHeader {
  static constexpr std::size_t kSize = 32;
  static constexpr std::size_t kOlderSize = 26;
  static constexpr char kCurrentVersion = '1';
  static constexpr char kOlderVersion = '_';

  char version = kCurrentVersion;
  std::uint16_t slotsPerDirectory = 64;
  std::uint16_t reservedSlotCount = 6;
  std::uint32_t firstDirectoryOffset = kSize;  // not stored: it follows from the form

  // The current form, whatever `version` says.
  std::array<std::uint8_t, kSize> Encode() const;
  // Nothing when the text or the version character is another.
  static std::optional<StorageFileHeader> Decode(const std::uint8_t* bytes);
};

// --- Stream header
//
// 80 bytes: a slot of a directory block (root stream) or of a folder's data (child stream)
//   offset  size  field
//        0     4  magic       0xFCFCFCFC
//        4    61  name        NUL-terminated; first byte 0: the slot is not in use
//       65     2  duration    whole minutes
//       67     1  kind flag   1 folder, else plain
//       68     4  length      bytes of the stream
//       72     4  lastBlock   block written last, informative
//       76     4  firstBlock  first block of the chain, 0 for none
struct StreamHeader {
  static constexpr std::size_t kSize = 80;
  static constexpr std::uint32_t kMagic = 0xFCFCFCFC;
  static constexpr std::size_t kNameAt = 4;
  static constexpr std::size_t kNameSize = 61;
  static constexpr std::size_t kDurationAt = 65;
  static constexpr std::size_t kKindAt = 67;
  static constexpr std::size_t kLengthAt = 68;
  static constexpr std::size_t kLastBlockAt = 72;
  static constexpr std::size_t kFirstBlockAt = 76;
  using Bytes = std::array<std::uint8_t, kSize>;

  static Bytes Encode(const tag_aoStream& header);
  // Takes the bytes as they are: magic word and name are the reader's to test.
  static tag_aoStream Decode(const std::uint8_t* bytes);
};

static_assert(sizeof(tag_aoStream) == StreamHeader::kSize);
static_assert(offsetof(tag_aoStream, magic) == 0);
static_assert(offsetof(tag_aoStream, name) == StreamHeader::kNameAt);
static_assert(sizeof(tag_aoStream::name) == StreamHeader::kNameSize);
static_assert(offsetof(tag_aoStream, duration) == StreamHeader::kDurationAt);
static_assert(offsetof(tag_aoStream, kindFlag) == StreamHeader::kKindAt);
static_assert(offsetof(tag_aoStream, length) == StreamHeader::kLengthAt);
static_assert(offsetof(tag_aoStream, lastBlock) == StreamHeader::kLastBlockAt);
static_assert(offsetof(tag_aoStream, firstBlock) == StreamHeader::kFirstBlockAt);

inline bool HasMagic(const tag_aoStream& header) { return header.magic == StreamHeader::kMagic; }
inline bool IsInUse(const tag_aoStream& header) { return header.name[0] != '\0'; }
// A name without its terminator is damage: nothing may read it as a string.
bool HasTerminatedName(const tag_aoStream& header);
inline bool IsFolderKind(const tag_aoStream& header) { return header.kindFlag == 1; }
// The name, cut to what fits; the bytes behind it become 0.
void SetName(tag_aoStream& header, std::string_view name);
bool HasName(const tag_aoStream& header, std::string_view name);
// The header of a new stream, over the chain of a removed one if `lastBlock` and `firstBlock` are
// given.
tag_aoStream NewStreamHeader(std::string_view name, std::uint32_t packedKind,
                             std::uint32_t lastBlock, std::uint32_t firstBlock);
// What a removal leaves: magic word and chain.
void Vacate(tag_aoStream& header);

// Magic word and name of a header at `headerOffset` are in order. Notes the damage when not.
bool IsSound(const tag_aoStream& header, std::uint64_t headerOffset);

// A name that a stream may have: 1 to 60 bytes. Notes the reason when it may not.
bool IsUsableName(const char* name);

// --- Directory block
//
// 5,132 bytes, whatever slotCount says
//   offset  size  field
//        0     4  magic          0xFBFBFBFB
//        4     4  slotCount      slots that are looked at
//        8     4  nextDirectory  next directory block, 0 at the end
//       12  5120  64 slots of 80 bytes
class DirectoryBlock {
 public:
  static constexpr std::size_t kSize = 5132;
  static constexpr std::size_t kHeadSize = 12;
  static constexpr std::size_t kSlotCountAt = 4;
  static constexpr std::size_t kNextAt = 8;
  static constexpr std::uint32_t kMaxSlots = 64;
  static constexpr std::uint32_t kMagic = 0xFBFBFBFB;

  static constexpr std::uint32_t SlotOffset(std::uint32_t blockOffset, std::uint32_t slotIndex) {
    return blockOffset + static_cast<std::uint32_t>(kHeadSize + StreamHeader::kSize * slotIndex);
  }

  // The first block of a new file: every slot has its magic word.
  static DirectoryBlock ForNewFile(std::uint32_t slotCount);
  // A block appended later: the slots are zeros.
  static DirectoryBlock ForGrowth(std::uint32_t slotCount);

  std::uint8_t* Data() { return bytes.data(); }
  const std::uint8_t* Data() const { return bytes.data(); }
  bool HasMagic() const { return Load32(bytes.data()) == kMagic; }
  // At most kMaxSlots, whatever the file says.
  std::uint32_t SlotCount() const;
  std::uint32_t NextDirectory() const { return Load32(bytes.data() + kNextAt); }
  bool SlotInUse(std::uint32_t slotIndex) const;
  tag_aoStream Slot(std::uint32_t slotIndex) const;

 private:
  const std::uint8_t* SlotBytes(std::uint32_t slotIndex) const {
    return bytes.data() + kHeadSize + StreamHeader::kSize * slotIndex;
  }
  std::array<std::uint8_t, kSize> bytes{};
};

static_assert(DirectoryBlock::kHeadSize + DirectoryBlock::kMaxSlots * StreamHeader::kSize ==
              DirectoryBlock::kSize);

// --- Data block
//
// 20 bytes before the data
//   offset  size  field
//        0     4  magic      0xFAFAFAFA
//        4     4  used       bytes in use, from the block's first byte, these 20 included
//        8     4  capacity   bytes that the block may hold, counted likewise
//       12     4  prevBlock  0 in a first block; never followed
//       16     4  nextBlock  0 in the last block
struct BlockHeader {
  static constexpr std::uint32_t kSize = 20;
  static constexpr std::uint32_t kMagic = 0xFAFAFAFA;
  static constexpr std::uint32_t kUsedAt = 4;
  static constexpr std::uint32_t kCapacityAt = 8;
  static constexpr std::uint32_t kNextAt = 16;
  using Bytes = std::array<std::uint8_t, kSize>;

  std::uint32_t used = kSize;
  std::uint32_t capacity = kSize;
  std::uint32_t prevBlock = 0;
  std::uint32_t nextBlock = 0;

  Bytes Encode() const;
  // Nothing when the magic word is wrong or the words contradict each other.
  static std::optional<BlockHeader> Decode(const std::uint8_t* bytes);
};

// --- Folder data
//
// By stream position: a 4-byte count of slots, vacated ones included, then that many stream
// headers.
struct FolderPayload {
  static constexpr std::uint32_t kCountSize = 4;
  static constexpr std::uint32_t SlotPosition(std::uint32_t slotIndex) {
    return kCountSize + static_cast<std::uint32_t>(StreamHeader::kSize) * slotIndex;
  }
};

// Duration in minutes and kind, as creating operations take them.
inline bool PackedFolder(std::uint32_t packedKind) { return (packedKind & 0xFF) != 0; }
inline std::uint16_t PackedDuration(std::uint32_t packedKind) {
  return static_cast<std::uint16_t>(packedKind >> 16);
}
inline std::uint32_t DurationSeconds(const tag_aoStream& header) {
  return static_cast<std::uint32_t>(header.duration) * 60;
}

}  // namespace aostorage::detail

#endif  // AOSTORAGE_STORAGE_RECORDS_H_
