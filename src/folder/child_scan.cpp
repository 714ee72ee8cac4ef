#include "folder/child_scan.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/last_error.h"

namespace aostorage::detail {

bool FileWindow::Read(std::uint64_t offset, std::uint8_t* out, std::uint32_t count) {
  credit += std::uint64_t{count} * kMostForOne;
  if (offset < start || offset + count > start + bytes.size()) {
    // Blocks that lie far apart are not worth a large window each.
    const bool nearby = offset >= start && offset < start + 2 * bytes.size();
    if (!nearby) nextSize = kFirstSize;
    const std::uint64_t size =
        std::max<std::uint64_t>(std::min<std::uint64_t>(nextSize, credit), count);
    bytes.resize(static_cast<std::size_t>(size));
    credit -= std::min(credit, size);
    const std::optional<std::size_t> got = file.ReadAt(offset, bytes.data(), bytes.size());
    start = offset;
    bytes.resize(got.value_or(0));
    nextSize = std::min(nextSize * 4, kLargestSize);
    if (!got) return false;
    if (bytes.size() < count) return FailShort(offset, bytes.size());
  }
  std::memcpy(out, bytes.data() + (offset - start), count);
  return true;
}

bool ChildScan::Load() {
  if (cursor.loaded) return true;
  if (cursor.block == 0) return Fail(ErrorCode::kTruncated);
  BlockHeader::Bytes header;
  return window.Read(cursor.block, header.data(), static_cast<std::uint32_t>(header.size())) &&
         cursor.Accept(header.data());
}

ChildScan::Result ChildScan::ReadBytes(std::uint8_t* out, std::uint32_t count) {
  pieces.clear();
  const ChainCursor before = cursor;
  const auto stay = [&](Result result) {
    cursor = before;
    return result;
  };
  for (std::uint32_t done = 0;;) {
    if (!Load()) return stay(Result::kFailed);
    const std::uint32_t chunk = std::min(count - done, cursor.Available());
    if (chunk > 0) {
      pieces.push_back({cursor.block, static_cast<std::uint32_t>(cursor.FileOffset()), chunk});
      if (!window.Read(cursor.FileOffset(), out + done, chunk)) return stay(Result::kFailed);
      cursor.Advance(chunk);
      Count(chunk);
      done += chunk;
    }
    if (done == count) return Result::kRecord;
    if (cursor.header.nextBlock == 0) return stay(Result::kEnd);
    Count(BlockHeader::kSize);
    if (!cursor.Step(window.Source())) return stay(Result::kFailed);
  }
}

ChildScan::Result ChildScan::ReadCount(std::uint32_t& count) {
  std::array<std::uint8_t, FolderPayload::kCountSize> bytes{};
  const Result result = ReadBytes(bytes.data(), FolderPayload::kCountSize);
  count = Load32(bytes.data());
  return result;
}

ChildScan::Result ChildScan::ReadRecord(tag_aoStream& record) {
  StreamHeader::Bytes bytes;
  const Result result = ReadBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
  if (result == Result::kRecord) record = StreamHeader::Decode(bytes.data());
  return result;
}

}  // namespace aostorage::detail
