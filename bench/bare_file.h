/// @file
/// Bare positioned calls on a file: the measure that the library is held against.
#ifndef AOSTORAGE_BENCH_BARE_FILE_H_
#define AOSTORAGE_BENCH_BARE_FILE_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace aobench {

/// An open file. Each member is one system call and gives true when it moved all bytes asked for.
class BareFile {
 public:
  enum class Mode { kCreate, kReadOnly };

  BareFile(const std::string& path, Mode mode);
  ~BareFile();
  BareFile(const BareFile&) = delete;
  BareFile& operator=(const BareFile&) = delete;

  bool IsOpen() const { return descriptor >= 0; }
  bool ReadAt(std::int64_t offset, void* buffer, std::size_t count) const;
  /// Reads two neighbouring stretches into two buffers.
  bool ReadTwoAt(std::int64_t offset, void* first, std::size_t firstCount, void* second,
                 std::size_t secondCount) const;
  bool WriteAt(std::int64_t offset, const void* buffer, std::size_t count);
  /// Size of the file by fstat, -1 on failure.
  std::int64_t Size() const;

 private:
  int descriptor;
};

/// Where things lie in a new storage file, as docs/format.md tells: the bare calls go to the same
/// places as the library's.
inline constexpr std::size_t kHeaderSize = 32;
inline constexpr std::size_t kDirectorySize = 5132;
inline constexpr std::size_t kSlotSize = 80;
inline constexpr std::size_t kBlockHeaderSize = 20;
inline constexpr std::size_t kReservedSlots = 6;
inline constexpr std::size_t kSlotsPerDirectory = 64;

/// Offset of the directory block `index` where no data lies between the blocks.
constexpr std::int64_t DirectoryOffset(std::size_t index) {
  return static_cast<std::int64_t>(kHeaderSize + index * kDirectorySize);
}

/// Offset of the slot that the ordinary creation number `index` takes in such a file.
constexpr std::int64_t SlotOffset(std::size_t index) {
  const std::size_t slot = index + kReservedSlots;
  return DirectoryOffset(slot / kSlotsPerDirectory) +
         static_cast<std::int64_t>(12 + slot % kSlotsPerDirectory * kSlotSize);
}

}  // namespace aobench

#endif  // AOSTORAGE_BENCH_BARE_FILE_H_
