#include "storage/records.h"

#include <algorithm>
#include <cstring>

#include "platform/last_error.h"

namespace aostorage::detail {
namespace {

constexpr char kMagicText[] = "@_QX_Structured_Storage@_";
constexpr std::size_t kSharedMagicSize = 24;  // what the two forms of the header have in common
constexpr std::size_t kVersionAt = 24;
constexpr std::size_t kSlotsPerDirectoryAt = 26;
constexpr std::size_t kReservedSlotCountAt = 28;
constexpr std::uint16_t kOlderSlotsPerDirectory = 64;
constexpr std::uint16_t kOlderReservedSlotCount = 2;

static_assert(sizeof(kMagicText) == StorageFileHeader::kOlderSize);
static_assert(kReservedSlotCountAt + 4 == StorageFileHeader::kSize);

template <typename Word>
void StoreWord(std::uint8_t* to, Word value) {
  for (std::size_t i = 0; i < sizeof(Word); ++i)
    to[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

template <typename Word>
Word LoadWord(const std::uint8_t* from) {
  Word value = 0;
  for (std::size_t i = 0; i < sizeof(Word); ++i) {
    value = static_cast<Word>(value | (static_cast<Word>(from[i]) << (8 * i)));
  }
  return value;
}

}  // namespace

void Store16(std::uint8_t* to, std::uint16_t value) { StoreWord(to, value); }
void Store32(std::uint8_t* to, std::uint32_t value) { StoreWord(to, value); }
void Store64(std::uint8_t* to, std::uint64_t value) { StoreWord(to, value); }
std::uint16_t Load16(const std::uint8_t* from) { return LoadWord<std::uint16_t>(from); }
std::uint32_t Load32(const std::uint8_t* from) { return LoadWord<std::uint32_t>(from); }
std::uint64_t Load64(const std::uint8_t* from) { return LoadWord<std::uint64_t>(from); }

std::array<std::uint8_t, StorageFileHeader::kSize> StorageFileHeader::Encode() const {
  std::array<std::uint8_t, kSize> bytes{};
  std::memcpy(bytes.data(), kMagicText, kSharedMagicSize);
  bytes[kVersionAt] = static_cast<std::uint8_t>(kCurrentVersion);
  Store16(bytes.data() + kSlotsPerDirectoryAt, slotsPerDirectory);
  Store16(bytes.data() + kReservedSlotCountAt, reservedSlotCount);
  return bytes;
}

std::optional<StorageFileHeader> StorageFileHeader::Decode(const std::uint8_t* bytes) {
  if (std::memcmp(bytes, kMagicText, kSharedMagicSize) != 0) return std::nullopt;
  StorageFileHeader header;
  header.version = static_cast<char>(bytes[kVersionAt]);
  if (header.version == kCurrentVersion) {
    header.slotsPerDirectory = Load16(bytes + kSlotsPerDirectoryAt);
    header.reservedSlotCount = Load16(bytes + kReservedSlotCountAt);
    return header;
  }
  if (header.version != kOlderVersion) return std::nullopt;
  header.slotsPerDirectory = kOlderSlotsPerDirectory;
  header.reservedSlotCount = kOlderReservedSlotCount;
  header.firstDirectoryOffset = kOlderSize;
  return header;
}

StreamHeader::Bytes StreamHeader::Encode(const tag_aoStream& header) {
  Bytes bytes{};
  Store32(bytes.data(), header.magic);
  std::memcpy(bytes.data() + kNameAt, header.name, kNameSize);
  Store16(bytes.data() + kDurationAt, header.duration);
  bytes[kKindAt] = header.kindFlag;
  Store32(bytes.data() + kLengthAt, header.length);
  Store32(bytes.data() + kLastBlockAt, header.lastBlock);
  Store32(bytes.data() + kFirstBlockAt, header.firstBlock);
  return bytes;
}

tag_aoStream StreamHeader::Decode(const std::uint8_t* bytes) {
  tag_aoStream header{};
  header.magic = Load32(bytes);
  std::memcpy(header.name, bytes + kNameAt, kNameSize);
  header.duration = Load16(bytes + kDurationAt);
  header.kindFlag = bytes[kKindAt];
  header.length = Load32(bytes + kLengthAt);
  header.lastBlock = Load32(bytes + kLastBlockAt);
  header.firstBlock = Load32(bytes + kFirstBlockAt);
  return header;
}

bool HasTerminatedName(const tag_aoStream& header) {
  return std::memchr(header.name, '\0', sizeof(header.name)) != nullptr;
}

void SetName(tag_aoStream& header, std::string_view name) {
  const std::size_t length = std::min(name.size(), StreamHeader::kNameSize - 1);
  std::memset(header.name, 0, sizeof(header.name));
  std::memcpy(header.name, name.data(), length);
}

bool HasName(const tag_aoStream& header, std::string_view name) {
  return name.size() < sizeof(header.name) && header.name[name.size()] == '\0' &&
         std::memcmp(header.name, name.data(), name.size()) == 0;
}

tag_aoStream NewStreamHeader(std::string_view name, std::uint32_t packedKind,
                             std::uint32_t lastBlock, std::uint32_t firstBlock) {
  tag_aoStream header{};
  header.magic = StreamHeader::kMagic;
  SetName(header, name);
  header.duration = PackedDuration(packedKind);
  header.kindFlag = PackedFolder(packedKind) ? 1 : 0;
  header.lastBlock = lastBlock;
  header.firstBlock = firstBlock;
  return header;
}

void Vacate(tag_aoStream& header) {
  std::memset(header.name, 0, sizeof(header.name));
  header.duration = 0;
  header.kindFlag = 0;
  header.length = 0;
}

bool IsSound(const tag_aoStream& header, std::uint64_t headerOffset) {
  if (!HasMagic(header)) return Fail(ErrorCode::kBadMagic, headerOffset);
  return HasTerminatedName(header) || Fail(ErrorCode::kContradiction, headerOffset);
}

bool IsUsableName(const char* name) {
  if (name == nullptr || *name == '\0') return Fail(ErrorCode::kNameUnusable);
  return std::memchr(name, '\0', kMaxNameLength + 1) != nullptr || Fail(ErrorCode::kNameUnusable);
}

DirectoryBlock DirectoryBlock::ForGrowth(std::uint32_t slotCount) {
  DirectoryBlock block;
  Store32(block.bytes.data(), kMagic);
  Store32(block.bytes.data() + kSlotCountAt, slotCount);
  return block;
}

DirectoryBlock DirectoryBlock::ForNewFile(std::uint32_t slotCount) {
  DirectoryBlock block = ForGrowth(slotCount);
  for (std::uint32_t i = 0; i < kMaxSlots; ++i) {
    Store32(block.bytes.data() + kHeadSize + StreamHeader::kSize * i, StreamHeader::kMagic);
  }
  return block;
}

std::uint32_t DirectoryBlock::SlotCount() const {
  return std::min(Load32(bytes.data() + kSlotCountAt), kMaxSlots);
}

bool DirectoryBlock::SlotInUse(std::uint32_t slotIndex) const {
  return SlotBytes(slotIndex)[StreamHeader::kNameAt] != 0;
}

tag_aoStream DirectoryBlock::Slot(std::uint32_t slotIndex) const {
  return StreamHeader::Decode(SlotBytes(slotIndex));
}

BlockHeader::Bytes BlockHeader::Encode() const {
  Bytes bytes{};
  Store32(bytes.data(), kMagic);
  Store32(bytes.data() + 4, used);
  Store32(bytes.data() + 8, capacity);
  Store32(bytes.data() + 12, prevBlock);
  Store32(bytes.data() + 16, nextBlock);
  return bytes;
}

std::optional<BlockHeader> BlockHeader::Decode(const std::uint8_t* bytes) {
  BlockHeader header;
  header.used = Load32(bytes + 4);
  header.capacity = Load32(bytes + 8);
  header.prevBlock = Load32(bytes + 12);
  header.nextBlock = Load32(bytes + 16);
  if (Load32(bytes) != kMagic || header.used < kSize || header.used > header.capacity)
    return std::nullopt;
  return header;
}

}  // namespace aostorage::detail
