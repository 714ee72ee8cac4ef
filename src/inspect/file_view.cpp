#include "inspect/file_view.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace aostorage::detail {

FileView::FileView(File source, std::uint64_t sourceSize)
    : file(std::move(source)),
      size(sourceSize),
      pageCount(static_cast<std::size_t>(
          std::clamp<std::uint64_t>((sourceSize + kPageSize - 1) / kPageSize, 1, kPages))),
      pages(std::make_unique<Page[]>(pageCount)),
      credit(kPageSize + kFreeRounds * sourceSize) {}

const FileView::Page& FileView::PageAt(std::uint64_t offset) {
  Page& page = pages[offset / kPageSize % pageCount];
  if (page.offset == offset) return page;
  page.offset = offset;
  credit -= std::min<std::uint64_t>(credit, kPageSize);
  page.bad.reset();
  page.count = static_cast<std::size_t>(std::min<std::uint64_t>(kPageSize, size - offset));
  if (const auto got = file.ReadAt(offset, page.bytes.data(), page.count)) {
    page.count = *got;
    return page;
  }
  for (std::size_t at = 0; at < page.count; at += kSector) {
    const std::size_t piece = std::min(kSector, page.count - at);
    page.bad[at / kSector] = !ReadSector(offset + at, page.bytes.data() + at, piece);
  }
  return page;
}

bool FileView::ReadSector(std::uint64_t offset, std::uint8_t* to, std::size_t count) {
  if (file.ReadAt(offset, to, count)) return true;
  std::memset(to, 0, count);
  NoteUnreadable(offset);
  return false;
}

void FileView::CountMadeUp(const Page& page, std::size_t from, std::size_t count) {
  if (page.bad.none()) return;
  for (std::size_t at = from; at < from + count; ++at) madeUp += page.bad[at / kSector] ? 1 : 0;
}

std::size_t FileView::Read(std::uint64_t offset, void* buffer, std::size_t count) {
  auto* to = static_cast<std::uint8_t*>(buffer);
  std::size_t done = 0;
  credit += count * kMostForOne;
  while (done < count && offset + done < size) {
    const std::uint64_t at = offset + done;
    const auto within = static_cast<std::size_t>(at % kPageSize);
    if (credit < kPageSize && !HasPage(at - within)) {
      const std::size_t piece = std::min(count - done, kPageSize - within);
      const auto got = file.ReadAt(at, to + done, piece);
      if (got == piece) {
        done += piece;
        continue;
      }
    }
    const Page& page = PageAt(at - within);
    if (within >= page.count) break;
    const std::size_t piece = std::min(count - done, page.count - within);
    std::memcpy(to + done, page.bytes.data() + within, piece);
    CountMadeUp(page, within, piece);
    done += piece;
  }
  return done;
}

std::size_t FileView::ReadThrough(std::uint64_t offset, void* buffer, std::size_t count) {
  if (offset >= size) return 0;
  const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(count, size - offset));
  if (const auto got = file.ReadAt(offset, buffer, wanted)) return *got;
  auto* to = static_cast<std::uint8_t*>(buffer);
  for (std::size_t done = 0; done < wanted; done += kSector) {
    const std::size_t piece = std::min(kSector, wanted - done);
    if (!ReadSector(offset + done, to + done, piece)) madeUp += piece;
  }
  return wanted;
}

void FileView::NoteUnreadable(std::uint64_t offset) {
  if (unreadable.size() == kMostUnreadable) return;
  if (std::find(unreadable.begin(), unreadable.end(), offset) == unreadable.end())
    unreadable.push_back(offset);
}

}  // namespace aostorage::detail
