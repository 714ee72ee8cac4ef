#include "statistics.h"

#include <algorithm>

namespace aotool {
namespace {

using aostorage::InspectedBlock;
using aostorage::InspectedStream;
using aostorage::Inspection;
using aostorage::RecordState;
using aostorage::StreamOrigin;

// What a rebuild writes, see docs/format.md.
constexpr std::uint64_t kFileHeader = 32;
constexpr std::uint64_t kDirectory = 5132;
constexpr std::uint64_t kSlots = 64;
constexpr std::uint64_t kReservedSlots = 6;
constexpr std::uint64_t kBlockHeader = 20;
constexpr std::uint64_t kFolderCount = 4;
constexpr std::uint64_t kRecord = 80;

void Insert(std::vector<Ranked>& list, std::size_t most, Ranked candidate) {
  const auto place = std::upper_bound(
      list.begin(), list.end(), candidate,
      [](const Ranked& left, const Ranked& right) { return left.value > right.value; });
  if (list.size() == most && place == list.end()) return;
  list.insert(place, candidate);
  if (list.size() > most) list.pop_back();
}

// Slots in use that a rebuild goes through. In a folder that is each of them, also the second one
// of a name.
bool IsCarried(const InspectedStream& stream, const std::vector<bool>& carried) {
  if (stream.parent == aostorage::kNoIndex)
    return stream.state == RecordState::kLive && stream.origin == StreamOrigin::kDirectory;
  return carried[stream.parent] &&
         (stream.origin == StreamOrigin::kFolder || stream.origin == StreamOrigin::kHidden);
}

// Its first block stands at the end of the file when its children come. A child that brings no
// block leaves it there, so that the next record is appended to it; else that opens a new one.
std::uint64_t CompactedFolder(const Inspection& found, const InspectedStream& folder,
                              const std::vector<bool>& carried) {
  std::uint64_t size = kBlockHeader + kFolderCount;
  bool atEnd = true;
  for (std::uint32_t i = folder.firstChild; i < folder.firstChild + folder.childCount; ++i) {
    if (!carried[i]) continue;
    size += kRecord + (atEnd ? 0 : kBlockHeader);
    const InspectedStream& child = found.Streams()[i];
    atEnd = !child.isFolder && child.header.length == 0;
  }
  return size;
}

}  // namespace

std::uint32_t FragmentsOf(const Inspection& found, const InspectedStream& stream) {
  std::uint32_t fragments = stream.blockCount == 0 ? 0 : 1;
  for (std::uint32_t i = 1; i < stream.blockCount; ++i) {
    const InspectedBlock& before = found.Blocks()[stream.firstBlock + i - 1];
    const InspectedBlock& block = found.Blocks()[stream.firstBlock + i];
    if (std::uint64_t{before.offset} + before.capacity != block.offset) ++fragments;
  }
  return fragments;
}

StreamFigures CountStreams(const Inspection& found, std::size_t most) {
  StreamFigures figures;
  for (std::uint32_t i = 0; i < found.Streams().size(); ++i) {
    const InspectedStream& stream = found.Streams()[i];
    if (stream.state != RecordState::kLive) continue;
    ++(stream.isFolder ? figures.folders : figures.plainStreams);
    Insert(figures.largest, most, {stream.header.length, i});
    if (stream.blockCount == 0) {
      ++figures.withoutBlocks;
      continue;
    }
    const std::uint32_t fragments = FragmentsOf(found, stream);
    figures.blocks += stream.blockCount;
    figures.fragments += fragments;
    figures.mostFragments = std::max(figures.mostFragments, fragments);
    std::size_t step = 0;
    while ((fragments >> (step + 1)) != 0) ++step;
    if (figures.byFragments.size() <= step) figures.byFragments.resize(step + 1);
    ++figures.byFragments[step];
    if (fragments > 1) Insert(figures.mostFragmented, most, {fragments, i});
    if (stream.blockCount > 1) Insert(figures.longestChains, most, {stream.blockCount, i});
  }
  return figures;
}

std::uint64_t CompactedSize(const Inspection& found) {
  std::vector<bool> carried(found.Streams().size());
  std::uint64_t size = kFileHeader + kDirectory;
  std::uint64_t rootStreams = 0;
  for (std::size_t i = 0; i < carried.size(); ++i) {  // a folder stands before its children
    const InspectedStream& stream = found.Streams()[i];
    carried[i] = IsCarried(stream, carried);
    if (carried[i] && stream.parent == aostorage::kNoIndex) ++rootStreams;
  }
  for (std::size_t i = 0; i < carried.size(); ++i) {
    const InspectedStream& stream = found.Streams()[i];
    if (!carried[i]) continue;
    if (stream.isFolder) {
      size += CompactedFolder(found, stream, carried);
    } else if (stream.header.length != 0) {
      size += kBlockHeader + stream.header.length;
    }
  }
  constexpr std::uint64_t kInFirst = kSlots - kReservedSlots;
  if (rootStreams > kInFirst) size += (rootStreams - kInFirst + kSlots - 1) / kSlots * kDirectory;
  return size;
}

}  // namespace aotool
