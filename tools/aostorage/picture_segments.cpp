#include "picture_segments.h"

#include <algorithm>
#include <utility>

namespace aotool {
namespace {

Fill FillOf(ByteKind kind) {
  switch (kind) {
    case ByteKind::kDirectory:
      return Fill::kDirectory;
    case ByteKind::kFolders:
    case ByteKind::kData:
    case ByteKind::kBlockHeaders:
      return Fill::kStream;
    case ByteKind::kReserve:
    case ByteKind::kBehindLength:
      return Fill::kSlack;
    case ByteKind::kRemoved:
      return Fill::kRemoved;
    case ByteKind::kUnreachable:
      return Fill::kUnreachable;
    case ByteKind::kUnknown:
      break;
  }
  return Fill::kUnknown;
}

bool IsSame(const Segment& left, const Segment& right) {
  return left.fill == right.fill && left.stream == right.stream && left.block == right.block;
}

// `next` lies directly behind.
void Join(Segment& segment, const Segment& next) {
  const std::uint64_t size = segment.size + next.size;
  const std::uint32_t pieces = segment.pieces + next.pieces;
  const std::uint64_t offset = segment.offset;
  if (next.largestPart > segment.largestPart) segment = next;
  segment.offset = offset;
  segment.size = size;
  segment.pieces = pieces;
}

}  // namespace

void SegmentList::Add(const aostorage::Record& record) {
  const auto kind = sorter.KindOf(record);
  if (!kind) return;
  Segment segment;
  segment.offset = record.offset;
  segment.size = segment.largestPart = record.size;
  segment.fill = FillOf(*kind);
  if (record.block != aostorage::kNoIndex) {
    segment.block = record.block;
    segment.stream = found.Blocks()[record.block].stream;
  }
  if (open.size != 0 && open.pieces == 1 && IsSame(open, segment)) {
    open.size += segment.size;
    open.largestPart = open.size;
  } else {
    Put(segment);
  }
}

// What is large enough stands for itself; only small ones are put together.
void SegmentList::Put(const Segment& segment) {
  if (open.size != 0 && open.size < least) {
    Join(open, segment);
    return;
  }
  if (open.size != 0) segments.push_back(open);
  open = segment;
}

std::vector<Segment> SegmentList::Finish(std::size_t most) {
  if (open.size != 0) segments.push_back(open);
  open = {};
  for (least = std::max<std::uint64_t>(1, least); segments.size() > most;) {
    least *= 2;
    for (const Segment& segment : std::exchange(segments, {})) Put(segment);
    if (open.size != 0) segments.push_back(open);
    open = {};
  }
  return std::move(segments);
}

}  // namespace aotool
