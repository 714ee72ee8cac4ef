#include "platform/write_window.h"

#include <algorithm>
#include <cstring>

#include "platform/file.h"

namespace aostorage::detail {

bool WriteWindow::Write(File& file, std::uint64_t offset, const Stretch* stretches,
                        std::size_t stretchCount) {
  std::size_t total = 0;
  for (std::size_t i = 0; i < stretchCount; ++i) total += stretches[i].size;
  if (total == 0) return true;
  if (offset + total <= start) return file.WriteThrough(offset, stretches, stretchCount);
  const std::uint64_t newEnd = std::max(End(), offset + total);
  if (offset >= start && offset <= End() && newEnd - start > kCapacity && total <= kStays) {
    if (!HandOver(file, size - std::min(size, kStays))) return false;
  }
  if (offset >= start && offset <= End() && newEnd - start <= kCapacity) {
    Take(offset, stretches, stretchCount);
    return true;
  }
  // Too large to be kept, or across the window's border.
  if (!Flush(file)) return false;
  start = std::max(start, offset + total);
  return file.WriteThrough(offset, stretches, stretchCount);
}

std::optional<std::size_t> WriteWindow::Read(File& file, std::uint64_t offset, void* buffer,
                                             std::size_t count) {
  if (offset >= start) {
    if (offset >= End()) return 0;
    const auto skipped = static_cast<std::size_t>(offset - start);
    count = std::min(count, size - skipped);
    std::memcpy(buffer, bytes.get() + skipped, count);
    return count;
  }
  if (offset + count > start && !Flush(file)) return std::nullopt;
  return file.ReadThrough(offset, buffer, count);
}

bool WriteWindow::HandOver(File& file, std::size_t count) {
  if (count == 0) return true;
  const Stretch front{bytes.get(), count};
  if (!file.WriteThrough(start, &front, 1)) return false;
  size -= count;
  start += count;
  std::memmove(bytes.get(), bytes.get() + count, size);
  return true;
}

void WriteWindow::Take(std::uint64_t offset, const Stretch* stretches, std::size_t stretchCount) {
  auto at = static_cast<std::size_t>(offset - start);
  for (std::size_t i = 0; i < stretchCount; ++i) {
    if (stretches[i].size != 0) std::memcpy(bytes.get() + at, stretches[i].data, stretches[i].size);
    at += stretches[i].size;
  }
  size = std::max(size, at);
}

}  // namespace aostorage::detail
