// The end of a file that is being made, kept in memory.
#ifndef AOSTORAGE_PLATFORM_WRITE_WINDOW_H_
#define AOSTORAGE_PLATFORM_WRITE_WINDOW_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace aostorage::detail {

class File;
struct Stretch;

// Takes the writes at the end of a file and hands them on in large pieces, so that a file that is
// made from many small records costs few calls. What lies before the window is read and written in
// the file itself. A failed hand-over is a failed write; the file is of no use then.
class WriteWindow {
 public:
  // Begins at the end of the file, `fileEnd`.
  explicit WriteWindow(std::uint64_t fileEnd)
      : bytes(std::make_unique<std::uint8_t[]>(kCapacity)), start(fileEnd) {}

  [[nodiscard]] bool Write(File& file, std::uint64_t offset, const Stretch* stretches,
                           std::size_t stretchCount);
  std::optional<std::size_t> Read(File& file, std::uint64_t offset, void* buffer,
                                  std::size_t count);
  [[nodiscard]] bool Flush(File& file) { return HandOver(file, size); }

 private:
  // A file that is made block by block goes back to what it wrote shortly before: that much stays.
  static constexpr std::size_t kCapacity = std::size_t{4} << 20;
  static constexpr std::size_t kStays = std::size_t{1} << 20;

  std::uint64_t End() const { return start + size; }
  // Hands the first `count` bytes over and moves the window on.
  [[nodiscard]] bool HandOver(File& file, std::size_t count);
  void Take(std::uint64_t offset, const Stretch* stretches, std::size_t stretchCount);

  std::unique_ptr<std::uint8_t[]> bytes;
  std::uint64_t start;   // file offset of the first byte kept
  std::size_t size = 0;  // bytes kept
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_PLATFORM_WRITE_WINDOW_H_
