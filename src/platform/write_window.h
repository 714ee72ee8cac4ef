// The end of a file that is being made, kept in memory.
#ifndef AOSTORAGE_PLATFORM_WRITE_WINDOW_H_
#define AOSTORAGE_PLATFORM_WRITE_WINDOW_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace aostorage::detail {

class File;
struct Stretch;

// Takes the writes at the end of a file and hands them on in large pieces, so that a file that is
// made from many small records costs few calls. Each piece is read back and compared while it is
// still at hand. What lies before the window is read and written in the file itself. A failed
// hand-over is a failed write; the file is of no use then.
class WriteWindow {
 public:
  // Begins at the end of the file, `fileEnd`. About `expected` bytes are to come: a small file gets
  // a small window.
  WriteWindow(std::uint64_t fileEnd, std::uint64_t expected)
      : piece(static_cast<std::size_t>(
            std::clamp<std::uint64_t>(expected / kPieces, kLeastPiece, kMostPiece))),
        ring(std::make_unique<std::uint8_t[]>(piece * kPieces)),
        readBack(std::make_unique<std::uint8_t[]>(piece)),
        start(fileEnd) {}

  [[nodiscard]] bool Write(File& file, std::uint64_t offset, const Stretch* stretches,
                           std::size_t stretchCount);
  std::optional<std::size_t> Read(File& file, std::uint64_t offset, void* buffer,
                                  std::size_t count);
  [[nodiscard]] bool Flush(File& file);

 private:
  // A piece fits a processor's cache with what is read back of it. A file that is made block by
  // block goes back to what it wrote shortly before: the ring holds that.
  static constexpr std::size_t kLeastPiece = std::size_t{16} << 10;
  static constexpr std::size_t kMostPiece = std::size_t{256} << 10;
  static constexpr std::size_t kPieces = 8;

  std::size_t Capacity() const { return piece * kPieces; }
  std::size_t LargestKept() const { return Capacity() / 2; }
  std::uint64_t End() const { return start + size; }
  // Calls `part` with the stretches of the ring, two at most, that stand for `count` bytes.
  template <typename Part>
  void EachPart(std::uint64_t offset, std::size_t count, Part part);
  // Hands the oldest piece over and moves the window on.
  [[nodiscard]] bool HandOver(File& file);
  // Writes, and fails unless the file gives the same bytes back.
  [[nodiscard]] bool WriteChecked(File& file, std::uint64_t offset, const Stretch* stretches,
                                  std::size_t stretchCount);

  std::size_t piece;
  std::unique_ptr<std::uint8_t[]> ring, readBack;
  std::size_t head = 0;  // place in the ring of the first byte kept; a multiple of the piece
  std::uint64_t start;   // its file offset
  std::size_t size = 0;  // bytes kept
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_PLATFORM_WRITE_WINDOW_H_
