/// @file
/// A storage file as plain bytes: a reader and a builder that share nothing
/// with the library. Offsets are those of the file.
#ifndef AOSTORAGE_TESTS_SUPPORT_RAW_FILE_H_
#define AOSTORAGE_TESTS_SUPPORT_RAW_FILE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace aostorage::testing {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::uint32_t kBlockMagic = 0xFAFAFAFA;
inline constexpr std::uint32_t kDirectoryMagic = 0xFBFBFBFB;
inline constexpr std::uint32_t kStreamMagic = 0xFCFCFCFC;
inline constexpr std::uint32_t kDirectorySize = 5132;
inline constexpr std::uint32_t kSlotSize = 80;
inline constexpr std::uint32_t kBlockHeaderSize = 20;
inline constexpr std::uint32_t kEmptyFileSize = 5164;
/// Offset of a root slot in the first directory block of a file of the current form.
constexpr std::uint32_t SlotOffset(std::uint32_t index) { return 32 + 12 + kSlotSize * index; }

Bytes ReadFile(const std::string& path);
void WriteFile(const std::string& path, const Bytes& bytes);
/// `count` bytes that differ from place to place and from seed to seed.
Bytes Pattern(std::size_t count, unsigned seed = 1);
Bytes Slice(const Bytes& bytes, std::size_t first, std::size_t count);

std::uint16_t Get16(const Bytes& bytes, std::size_t offset);
std::uint32_t Get32(const Bytes& bytes, std::size_t offset);
void Put16(Bytes& bytes, std::size_t offset, std::uint16_t value);
void Put32(Bytes& bytes, std::size_t offset, std::uint32_t value);
void PatchFile32(const std::string& path, std::size_t offset, std::uint32_t value);

/// @name Reading
/// @{
struct RawBlock {
  std::uint32_t offset, used, capacity, prev, next;
};

struct RawStream {
  std::string
      path;  ///< the names from the root down, joined by slashes; shortened in very deep trees
  std::string name;  ///< empty in a vacated slot
  std::uint8_t kind;
  std::uint16_t duration;
  std::uint32_t length, lastBlock, firstBlock;
  std::uint32_t recordOffset;
  std::vector<RawBlock> blocks;
  Bytes chain;  ///< what the blocks hold, each up to its `used`

  Bytes Value() const { return Slice(chain, 0, length); }
  /// File offset of a byte of the chain.
  std::uint32_t PlaceOf(std::size_t position) const;
};

struct RawImage {
  bool older = false;
  std::uint16_t slotsPerDirectory = 0, reservedSlots = 0;
  std::vector<std::uint32_t> directories;
  std::vector<RawStream> streams;  ///< in use, in slot order, each folder followed by what it holds
  std::vector<RawStream> vacated;  ///< slots without a stream that keep a chain
  std::uint64_t orphanedBytes = 0;  ///< bytes that no record reaches

  const RawStream* Find(const std::string& path) const;
};

RawImage ReadImage(const Bytes& file);
/// @}

/// @name Building
/// @{

/// An 80-byte record.
Bytes StreamRecord(const std::string& name, bool folder, std::uint32_t length,
                   std::uint32_t firstBlock, std::uint32_t lastBlock = 0,
                   std::uint16_t durationMinutes = 0);
/// The data of a folder: count word and records.
Bytes FolderPayload(const std::vector<Bytes>& records);

/// A file made by hand. `bytes` may be patched at will.
class FileBuilder {
 public:
  enum class Form { kCurrent, kOlder };
  explicit FileBuilder(Form form = Form::kCurrent, std::uint16_t reservedSlots = 6);

  /// Appends a directory block of empty slots and links it. @return its offset
  std::uint32_t AddDirectory(std::uint32_t slotCount = 64);
  /// Appends a chain that deals `data` to blocks with room for `rooms[i]` data bytes each; data
  /// that is left goes to one more block that fits it. A block after the end of the data stays
  /// empty.
  /// @return the offset of the first block
  std::uint32_t AddChain(const Bytes& data, const std::vector<std::uint32_t>& rooms = {});
  void PutSlot(std::uint32_t index, const Bytes& record, std::size_t directory = 0);
  /// A chain and a slot that names it.
  std::uint32_t AddStream(std::uint32_t index, const std::string& name, const Bytes& data,
                          const std::vector<std::uint32_t>& rooms = {}, bool folder = false);
  std::uint32_t SlotAt(std::uint32_t index, std::size_t directory = 0) const;

  Bytes bytes;

 private:
  std::vector<std::uint32_t> directories;
};
/// @}

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_RAW_FILE_H_
