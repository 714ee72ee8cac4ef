#include "platform/write_window.h"

#include <algorithm>
#include <cstring>

#include "platform/file.h"
#include "platform/last_error.h"

namespace aostorage::detail {

template <typename Part>
void WriteWindow::EachPart(std::uint64_t offset, std::size_t count, Part part) {
  const std::size_t at = (head + static_cast<std::size_t>(offset - start)) % Capacity();
  const std::size_t first = std::min(count, Capacity() - at);
  part(ring.get() + at, first);
  if (count > first) part(ring.get(), count - first);
}

bool WriteWindow::Write(File& file, std::uint64_t offset, const Stretch* stretches,
                        std::size_t stretchCount) {
  std::size_t total = 0;
  for (std::size_t i = 0; i < stretchCount; ++i) total += stretches[i].size;
  if (total == 0) return true;
  if (offset + total <= start) return file.WriteThrough(offset, stretches, stretchCount);
  if (offset < start || offset > End() || total > LargestKept()) {
    if (!Flush(file)) return false;
    start = std::max(start, offset + total);
    return WriteChecked(file, offset, stretches, stretchCount);
  }
  const std::uint64_t newEnd = std::max(End(), offset + total);
  while (newEnd - start > Capacity()) {
    if (!HandOver(file)) return false;
  }
  if (offset < start) return Write(file, offset, stretches, stretchCount);  // no more kept
  for (std::size_t i = 0; i < stretchCount; ++i) {
    const auto* from = static_cast<const std::uint8_t*>(stretches[i].data);
    EachPart(offset, stretches[i].size, [&](std::uint8_t* place, std::size_t count) {
      if (count != 0) std::memcpy(place, from, count);
      from += count;
    });
    offset += stretches[i].size;
  }
  size = static_cast<std::size_t>(newEnd - start);
  return true;
}

std::optional<std::size_t> WriteWindow::Read(File& file, std::uint64_t offset, void* buffer,
                                             std::size_t count) {
  if (offset >= End()) return 0;
  if (offset < start) {
    if (offset + count > start && !Flush(file)) return std::nullopt;
    return file.ReadThrough(offset, buffer, count);
  }
  count = static_cast<std::size_t>(std::min<std::uint64_t>(count, End() - offset));
  auto* to = static_cast<std::uint8_t*>(buffer);
  EachPart(offset, count, [&](const std::uint8_t* place, std::size_t part) {
    std::memcpy(to, place, part);
    to += part;
  });
  return count;
}

bool WriteWindow::Flush(File& file) {
  while (size > 0) {
    if (!HandOver(file)) return false;
  }
  return true;
}

bool WriteWindow::HandOver(File& file) {
  const Stretch oldest{ring.get() + head, std::min(size, piece)};
  if (!WriteChecked(file, start, &oldest, 1)) return false;
  start += oldest.size;
  size -= oldest.size;
  head = (head + piece) % Capacity();
  return true;
}

bool WriteWindow::WriteChecked(File& file, std::uint64_t offset, const Stretch* stretches,
                               std::size_t stretchCount) {
  if (!file.WriteThrough(offset, stretches, stretchCount)) return false;
  for (std::size_t i = 0; i < stretchCount; ++i) {
    const auto* written = static_cast<const std::uint8_t*>(stretches[i].data);
    for (std::size_t left = stretches[i].size; left > 0;) {
      const std::size_t count = std::min(left, piece);
      const std::optional<std::size_t> got = file.ReadThrough(offset, readBack.get(), count);
      if (!got) return false;
      if (*got != count || std::memcmp(readBack.get(), written, count) != 0)
        return Fail(ErrorCode::kInputOutput, offset);
      written += count;
      offset += count;
      left -= count;
    }
  }
  return true;
}

}  // namespace aostorage::detail
