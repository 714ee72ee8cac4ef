// Figures about the streams of a store.
#ifndef AOSTORAGE_TOOLS_STATISTICS_H_
#define AOSTORAGE_TOOLS_STATISTICS_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include <aostorage/inspect.h>

namespace aotool {

// Runs of blocks that lie directly behind each other: a reader jumps between two of them.
std::uint32_t FragmentsOf(const aostorage::Inspection& found,
                          const aostorage::InspectedStream& stream);

// One stream in a list of the largest ones.
struct Ranked {
  std::uint64_t value = 0;
  std::uint32_t stream = 0;
};

struct StreamFigures {
  std::uint64_t plainStreams = 0;
  std::uint64_t folders = 0;
  std::uint64_t withoutBlocks = 0;
  std::uint64_t blocks = 0;
  std::uint64_t fragments = 0;
  std::uint32_t mostFragments = 0;
  // byFragments[i]: the streams with 2^i fragments or more, and fewer than 2^(i+1).
  std::vector<std::uint64_t> byFragments;
  // The largest first; those of equal value in the order of the file.
  std::vector<Ranked> mostFragmented, longestChains, largest;

  std::uint64_t WithBlocks() const { return plainStreams + folders - withoutBlocks; }
};

// Of the streams that a name leads to. The lists hold up to `most` streams each; a stream of a
// single block is in none of the first two.
StreamFigures CountStreams(const aostorage::Inspection& found, std::size_t most);

// The size of the file that a rebuild of this one gives: everything in as few blocks as there can
// be, in the order of the tree.
std::uint64_t CompactedSize(const aostorage::Inspection& found);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_STATISTICS_H_
