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

/// Sizes of the records of a storage file, as docs/format.md tells.
inline constexpr std::size_t kSlotSize = 80;
inline constexpr std::size_t kBlockHeaderSize = 20;

}  // namespace aobench

#endif  // AOSTORAGE_BENCH_BARE_FILE_H_
