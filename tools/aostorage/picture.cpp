#include "picture.h"

#include <algorithm>

#include "interrupt.h"
#include "picture_segments.h"
#include "picture_tiles.h"

namespace aotool {
namespace {

using aostorage::InspectedBlock;
using aostorage::InspectedStream;
using aostorage::kNoIndex;
using aostorage::RecordState;

constexpr std::uint32_t kRows = 16;
constexpr double kBandTop = 236;
constexpr double kBandLeft = 118;
constexpr double kRowHeight = 18;
constexpr double kRowPitch = 30;
constexpr double kBetween = 96;  // the headings of the treemap
constexpr double kTreemapHeight = 520;
constexpr double kFooter = 48;

}  // namespace

double Band::X(std::uint64_t offset) const {
  return left +
         width * static_cast<double>(offset % bytesPerRow) / static_cast<double>(bytesPerRow);
}

Picture::Picture(const aostorage::Inspection& inspection, const std::string& storePath)
    : found(inspection), name(storePath.substr(storePath.rfind('/') + 1)) {}

bool Picture::Draw() {
  LayOut();
  if (!SumByKind(found, sums) || !CollectSegments()) return false;
  Weigh();
  FindGroups();
  CollectJumps();
  CollectTiles();
  return true;
}

void Picture::LayOut() {
  band.left = kBandLeft;
  band.top = kBandTop;
  band.width = kWidth - kMargin - kBandLeft;
  band.rowHeight = kRowHeight;
  band.pitch = kRowPitch;
  band.bytesPerRow = std::max<std::uint64_t>(1, (found.FileSize() + kRows - 1) / kRows);
  band.rows =
      static_cast<std::uint32_t>((found.FileSize() + band.bytesPerRow - 1) / band.bytesPerRow);
  treemap = {kMargin, kBandTop + band.Height() + kBetween, kWidth - 2 * kMargin, kTreemapHeight};
  height = treemap.y + treemap.height + kFooter;
}

bool Picture::IsMerged() const {
  const auto merged = [](const auto& element) { return element.pieces > 1; };
  return std::any_of(segments.begin(), segments.end(), merged) ||
         std::any_of(tiles.begin(), tiles.end(), merged) || jumps.size() < allJumps;
}

bool Picture::CollectSegments() {
  constexpr double kLeastPixels = 2;
  const auto least =
      static_cast<std::uint64_t>(kLeastPixels * static_cast<double>(band.bytesPerRow) / band.width);
  SegmentList list(found, least);
  if (!found.ForEachRecord([&list](const aostorage::Record& record) {
        list.Add(record);
        return !Interrupted();
      })) {
    return false;
  }
  segments = list.Finish(kMostSegments);
  return true;
}

// A folder stands before what it holds.
void Picture::Weigh() {
  ownBytes.resize(found.Streams().size());
  for (const InspectedBlock& block : found.Blocks()) ownBytes[block.stream] += block.present;
  treeBytes = ownBytes;
  for (std::size_t i = treeBytes.size(); i-- > 0;) {
    const InspectedStream& stream = found.Streams()[i];
    if (stream.state == RecordState::kLive && stream.parent != kNoIndex)
      treeBytes[stream.parent] += treeBytes[i];
  }
}

void Picture::FindGroups() {
  const std::vector<InspectedStream>& streams = found.Streams();
  constexpr double kNearlyAll = 0.75;
  std::uint32_t top = kNoIndex;
  std::uint64_t topBytes = 0;
  for (std::uint32_t i = 0; i < streams.size(); ++i) {
    if (streams[i].state == RecordState::kLive && streams[i].parent == kNoIndex)
      topBytes += treeBytes[i];
  }
  for (std::uint32_t i = 0; i < streams.size(); ++i) {  // goes down with the tree
    if (streams[i].state == RecordState::kLive && streams[i].isFolder && streams[i].parent == top &&
        static_cast<double>(treeBytes[i]) > kNearlyAll * static_cast<double>(topBytes)) {
      top = i;
      topBytes = treeBytes[i];
    }
  }
  std::vector<std::uint32_t> groupOf(streams.size());
  std::vector<std::uint64_t> bytes(streams.size());
  for (std::uint32_t i = 0; i < streams.size(); ++i) {
    const std::uint32_t parent = streams[i].parent;
    groupOf[i] = parent == kNoIndex || parent == top ? i : groupOf[parent];
    if (streams[i].state == RecordState::kLive) bytes[groupOf[i]] += ownBytes[i];
  }
  for (std::uint32_t i = 0; i < streams.size(); ++i) {
    if (bytes[i] != 0) groups.push_back({i, bytes[i]});
  }
  std::stable_sort(groups.begin(), groups.end(),
                   [](const Group& left, const Group& right) { return left.bytes > right.bytes; });
  std::vector<std::uint32_t> rankOfGroup(streams.size());
  for (std::size_t rank = 0; rank < groups.size(); ++rank)
    rankOfGroup[groups[rank].stream] = static_cast<std::uint32_t>(rank);
  groupRank.resize(streams.size());
  for (std::uint32_t i = 0; i < streams.size(); ++i) groupRank[i] = rankOfGroup[groupOf[i]];
}

void Picture::CollectJumps() {
  const auto distance = [](const Jump& jump) {
    return jump.from < jump.to ? jump.to - jump.from : jump.from - jump.to;
  };
  const auto isFarther = [&](const Jump& left, const Jump& right) {
    return distance(left) > distance(right);
  };
  const auto keepFarthest = [&] {
    if (jumps.size() <= kMostJumps) return;
    std::nth_element(jumps.begin(), jumps.begin() + kMostJumps, jumps.end(), isFarther);
    jumps.resize(kMostJumps);
  };
  for (std::uint32_t i = 0; i < found.Streams().size(); ++i) {
    const InspectedStream& stream = found.Streams()[i];
    if (stream.state != RecordState::kLive) continue;
    for (std::uint32_t at = 1; at < stream.blockCount; ++at) {
      const InspectedBlock& before = found.Blocks()[stream.firstBlock + at - 1];
      const InspectedBlock& block = found.Blocks()[stream.firstBlock + at];
      const std::uint64_t end = std::uint64_t{before.offset} + before.present;
      if (end == block.offset) continue;
      ++allJumps;
      jumps.push_back({end - 1, block.offset, i});
      if (jumps.size() >= 4 * kMostJumps) keepFarthest();
    }
  }
  keepFarthest();
  std::sort(jumps.begin(), jumps.end(), [](const Jump& left, const Jump& right) {
    return left.from != right.from ? left.from < right.from : left.to < right.to;
  });
}

void Picture::CollectTiles() { tiles = TilesOf(*this); }

}  // namespace aotool
