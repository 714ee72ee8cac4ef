#include "inspect/inspected_file.h"

#include <algorithm>
#include <tuple>

namespace aostorage::detail {
namespace {

// The block of the chain that holds the byte at `position`, or the last one before it.
std::size_t BlockAt(const InspectedFile& file, const InspectedStream& stream,
                    std::uint64_t position) {
  const auto begin = file.blocks.begin() + stream.firstBlock;
  const auto found = std::upper_bound(
      begin, begin + stream.blockCount, position,
      [](std::uint64_t wanted, const InspectedBlock& block) { return wanted < block.position; });
  return static_cast<std::size_t>(found - file.blocks.begin()) - 1;
}

}  // namespace

void FindingList::Add(const Finding& finding) {
  ++bySeverity[static_cast<std::size_t>(finding.severity)];
  if (byRule[static_cast<std::size_t>(finding.rule)]++ < kMostOfOneRule)
    findings.push_back(finding);
}

void FindingList::Sort() {
  const auto key = [](const Finding& finding) {
    return std::make_tuple(finding.offset, finding.rule, finding.stream, finding.value);
  };
  std::sort(findings.begin(), findings.end(),
            [&key](const Finding& left, const Finding& right) { return key(left) < key(right); });
}

std::size_t ReadChain(const InspectedFile& file, const InspectedStream& stream,
                      std::uint64_t position, void* buffer, std::size_t count) {
  if (stream.blockCount == 0 || position >= stream.dataBytes) return 0;
  auto* to = static_cast<std::uint8_t*>(buffer);
  std::size_t done = 0;
  const std::size_t end = std::size_t{stream.firstBlock} + stream.blockCount;
  for (std::size_t i = BlockAt(file, stream, position); i < end && done < count; ++i) {
    const InspectedBlock& block = file.blocks[i];
    const std::uint64_t within = position + done - block.position;
    if (within >= DataBytes(block)) continue;
    const auto piece =
        static_cast<std::size_t>(std::min<std::uint64_t>(count - done, DataBytes(block) - within));
    const std::uint64_t offset = block.offset + BlockHeader::kSize + within;
    constexpr std::size_t kLarge = 8192;
    const std::size_t got = piece >= kLarge ? file.view.ReadThrough(offset, to + done, piece)
                                            : file.view.Read(offset, to + done, piece);
    done += got;
    if (got != piece) break;
  }
  return done;
}

std::uint64_t PlaceOf(const InspectedFile& file, const InspectedStream& stream,
                      std::uint64_t position) {
  if (stream.blockCount == 0) return 0;
  std::size_t index = BlockAt(file, stream, position);
  // An empty block at the border holds none of the bytes behind it.
  const std::size_t last = std::size_t{stream.firstBlock} + stream.blockCount - 1;
  while (index < last && position - file.blocks[index].position >= DataBytes(file.blocks[index]))
    ++index;
  const InspectedBlock& block = file.blocks[index];
  return block.offset + BlockHeader::kSize + (position - block.position);
}

}  // namespace aostorage::detail
