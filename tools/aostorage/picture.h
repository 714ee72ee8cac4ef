// What map --svg and map --html draw, as places and sizes: the file as a band of rows, the jumps of
// the chains, and the tree as a treemap. The number of elements is bounded whatever the file is;
// what is smaller than about a pixel is drawn together with what stands beside it.
#ifndef AOSTORAGE_TOOLS_PICTURE_H_
#define AOSTORAGE_TOOLS_PICTURE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <aostorage/inspect.h>

#include "byte_kinds.h"
#include "treemap.h"

namespace aotool {

// What an element is filled with.
enum class Fill : std::uint8_t { kDirectory, kStream, kSlack, kRemoved, kUnreachable, kUnknown };

// A run of bytes of the band.
struct Segment {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
  std::uint32_t stream = aostorage::kNoIndex;
  std::uint32_t block = aostorage::kNoIndex;
  Fill fill = Fill::kUnknown;
  std::uint32_t pieces = 1;       // more: drawn together, under the name of the largest
  std::uint64_t largestPart = 0;  // its bytes
};

// From the end of a block to the beginning of the next one of its chain, elsewhere in the file.
struct Jump {
  std::uint64_t from = 0;
  std::uint64_t to = 0;
  std::uint32_t stream = aostorage::kNoIndex;
};

struct Tile {
  enum class Kind : std::uint8_t {
    kStream,
    kFolderRecords,
    kSmallOnes,
    kDirectory,
    kDeadSpace,
    kDead
  };
  Kind kind = Kind::kStream;
  Fill fill = Fill::kStream;
  bool holdsTiles = false;  // what is in it is drawn in it
  bool isTitled = true;     // there is room for its label
  Box box;
  std::string label;
  std::uint64_t bytes = 0;
  std::uint32_t stream = aostorage::kNoIndex;  // of the small ones the first
  std::uint32_t pieces = 1;                    // of the small ones their number
};

// Where the bytes of the file stand in the picture.
struct Band {
  double left = 0, top = 0, width = 0;
  double rowHeight = 0, pitch = 0;
  std::uint32_t rows = 0;
  std::uint64_t bytesPerRow = 1;

  std::uint64_t RowOf(std::uint64_t offset) const { return offset / bytesPerRow; }
  double X(std::uint64_t offset) const;
  double Y(std::uint64_t row) const { return top + static_cast<double>(row) * pitch; }
  double Height() const { return rows * pitch; }
};

class Picture {
 public:
  static constexpr double kWidth = 1200;
  static constexpr double kMargin = 36;
  static constexpr std::size_t kMostSegments = 10000;
  static constexpr std::size_t kMostTiles = 6000;
  static constexpr std::size_t kMostJumps = 1500;

  Picture(const aostorage::Inspection& inspection, const std::string& storePath);

  // False when memory ran out or the user interrupted it.
  bool Draw();

  const aostorage::Inspection& found;
  const std::string name;  // of the store, without the directories
  KindSums sums{};
  Band band;
  Box treemap;
  double height = 0;
  std::vector<Segment> segments;
  std::vector<Jump> jumps;  // the farthest ones
  std::uint64_t allJumps = 0;
  std::vector<Tile> tiles;  // a folder before what it holds
  // Bytes in the blocks of a stream, and in those of all that it holds.
  std::vector<std::uint64_t> ownBytes, treeBytes;
  // Streams of a group have a colour in common: a root stream with what it holds, or, where one
  // folder holds nearly all, a child of that folder with what it holds. The largest first.
  struct Group {
    std::uint32_t stream = 0;
    std::uint64_t bytes = 0;
  };
  std::vector<Group> groups;

  bool IsMerged() const;
  // Of the colour of a stream: its group's place in `groups`.
  std::size_t GroupRank(std::uint32_t stream) const { return groupRank[stream]; }

 private:
  bool CollectSegments();
  void Weigh();
  void FindGroups();
  void CollectJumps();
  void CollectTiles();
  void LayOut();

  std::vector<std::uint32_t> groupRank;  // by stream
};

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_PICTURE_H_
