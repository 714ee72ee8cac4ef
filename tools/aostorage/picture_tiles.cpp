#include "picture_tiles.h"

#include <algorithm>
#include <string>

#include "inspected.h"

namespace aotool {
namespace {

using aostorage::InspectedStream;
using aostorage::kNoIndex;
using aostorage::RecordState;

constexpr double kLeastArea = 60;  // of a tile of its own
constexpr double kTitle = 17;      // height of a folder's name
constexpr double kTitleNeeds = 46;
constexpr double kEdge = 2;
constexpr double kLeastFolder = 9;  // side of a folder that shows what it holds

// Deals boxes to the children of a folder, and of its folders in turn.
class Tiling {
 public:
  explicit Tiling(const Picture& drawn) : picture(drawn) {}

  std::vector<Tile> Run() {
    Split(picture.treemap, Root());
    // The list grows meanwhile: it is the list of what is to be done as well.
    for (std::size_t i = 0; i < tiles.size(); ++i) {
      if (!HasRoomForTiles(tiles[i])) continue;
      tiles[i].holdsTiles = true;
      const Box box = tiles[i].box;
      tiles[i].isTitled = box.height > kTitleNeeds && box.width > kTitleNeeds;
      const Box room = box.Inset(kEdge, tiles[i].isTitled ? kTitle : kEdge, kEdge, kEdge);
      Split(room, tiles[i].kind == Tile::Kind::kDeadSpace ? DeadSpace() : ChildrenOf(i, room));
    }
    return std::move(tiles);
  }

 private:
  std::uint64_t DeadBytes() const {
    std::uint64_t dead = 0;
    for (std::size_t i = 0; i < kByteKinds; ++i)
      dead += IsDead(static_cast<ByteKind>(i)) ? picture.sums[i] : 0;
    return dead;
  }

  static Tile Named(Tile::Kind kind, const char* label, std::uint64_t bytes, Fill fill) {
    Tile tile;
    tile.kind = kind;
    tile.label = label;
    tile.bytes = bytes;
    tile.fill = fill;
    return tile;
  }

  std::vector<Tile> Root() const {
    std::vector<Tile> parts = {
        Named(Tile::Kind::kDirectory, "header and directory", Sum(ByteKind::kDirectory),
              Fill::kDirectory),
        Named(Tile::Kind::kDeadSpace, "dead space", DeadBytes(), Fill::kUnknown)};
    const double scale = picture.treemap.Area() / static_cast<double>(picture.found.FileSize());
    Collect(0, picture.found.Streams().size(), kNoIndex, scale, parts);
    return parts;
  }

  std::uint64_t Sum(ByteKind kind) const { return picture.sums[static_cast<std::size_t>(kind)]; }

  std::vector<Tile> DeadSpace() const {
    return {
        Named(Tile::Kind::kDead, "removed", Sum(ByteKind::kRemoved), Fill::kRemoved),
        Named(Tile::Kind::kDead, "unreachable", Sum(ByteKind::kUnreachable), Fill::kUnreachable),
        Named(Tile::Kind::kDead, "in no record", Sum(ByteKind::kUnknown), Fill::kUnknown)};
  }

  std::vector<Tile> ChildrenOf(std::size_t folderTile, const Box& room) const {
    const std::uint32_t folder = tiles[folderTile].stream;
    const InspectedStream& stream = picture.found.Streams()[folder];
    std::vector<Tile> parts = {
        Named(Tile::Kind::kFolderRecords, "records", picture.ownBytes[folder], Fill::kStream)};
    parts.back().stream = folder;
    Collect(stream.firstChild, std::size_t{stream.firstChild} + stream.childCount, folder,
            room.Area() / static_cast<double>(tiles[folderTile].bytes), parts);
    return parts;
  }

  // The live streams of a folder that are large enough to be seen, and the rest as one.
  void Collect(std::size_t first, std::size_t end, std::uint32_t parent, double areaOfByte,
               std::vector<Tile>& parts) const {
    Tile rest;
    rest.kind = Tile::Kind::kSmallOnes;
    rest.pieces = 0;
    for (std::size_t i = first; i < end; ++i) {
      const InspectedStream& stream = picture.found.Streams()[i];
      if (stream.state != RecordState::kLive || stream.parent != parent) continue;
      const std::uint64_t bytes = picture.treeBytes[i];
      if (bytes == 0) continue;
      if (static_cast<double>(bytes) * areaOfByte < kLeastArea) {
        // One that stands for all gives the colour.
        if (rest.pieces == 0) rest.stream = static_cast<std::uint32_t>(i);
        ++rest.pieces;
        rest.bytes += bytes;
        continue;
      }
      Tile tile;
      tile.stream = static_cast<std::uint32_t>(i);
      tile.bytes = bytes;
      tile.label = picture.found.NameOf(tile.stream);
      parts.push_back(std::move(tile));
    }
    if (rest.pieces == 0) return;
    if (rest.pieces == 1) rest.kind = Tile::Kind::kStream;
    rest.label =
        rest.pieces == 1 ? picture.found.NameOf(rest.stream) : Grouped(rest.pieces) + " small ones";
    parts.push_back(std::move(rest));
  }

  bool HasRoomForTiles(const Tile& tile) const {
    if (tile.box.width < kLeastFolder || tile.box.height < kLeastFolder ||
        tiles.size() >= Picture::kMostTiles) {
      return false;
    }
    if (tile.kind == Tile::Kind::kDeadSpace) return true;
    return tile.kind == Tile::Kind::kStream &&
           picture.treeBytes[tile.stream] > picture.ownBytes[tile.stream];
  }

  void Split(const Box& room, std::vector<Tile> parts) {
    parts.erase(std::remove_if(parts.begin(), parts.end(),
                               [](const Tile& tile) { return tile.bytes == 0; }),
                parts.end());
    std::stable_sort(parts.begin(), parts.end(),
                     [](const Tile& left, const Tile& right) { return left.bytes > right.bytes; });
    std::vector<double> weights;
    for (const Tile& tile : parts) weights.push_back(static_cast<double>(tile.bytes));
    const std::vector<Box> boxes = Squarify(weights, room);
    for (std::size_t i = 0; i < parts.size(); ++i) {
      parts[i].box = boxes[i];
      tiles.push_back(std::move(parts[i]));
    }
  }

  const Picture& picture;
  std::vector<Tile> tiles;
};

}  // namespace

std::vector<Tile> TilesOf(const Picture& picture) { return Tiling(picture).Run(); }

}  // namespace aotool
