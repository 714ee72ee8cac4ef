#include "picture_svg.h"

#include <algorithm>
#include <cmath>

#include "inspected.h"
#include "map_page_files.h"
#include "picture_colors.h"
#include "xml_text.h"

namespace aotool {
namespace {

using aostorage::kNoIndex;

std::string Attribute(const char* name, const std::string& value) {
  return std::string(" ") + name + "=\"" + value + "\"";
}

std::string Place(const Box& box) {
  return Attribute("x", Pixels(box.x)) + Attribute("y", Pixels(box.y)) +
         Attribute("width", Pixels(box.width)) + Attribute("height", Pixels(box.height));
}

std::string Percent(std::uint64_t part, std::uint64_t whole) {
  if (whole == 0) return "0 %";
  const double percent = 100.0 * static_cast<double>(part) / static_cast<double>(whole);
  return part != 0 && percent < 0.1 ? "< 0.1 %" : Pixels(percent) + " %";
}

std::string Counted(std::uint64_t count, const char* one, const char* many) {
  return Grouped(count) + " " + (count == 1 ? one : many);
}

constexpr double kSmall = 11.5;  // sizes of the fonts, as in page/picture.css
constexpr double kLabel = 10.5;

class Writer {
 public:
  Writer(const Picture& drawn, const std::vector<std::uint32_t>* pageNumbers)
      : picture(drawn), numbers(pageNumbers) {}

  std::string Run() {
    const std::string size = Pixels(Picture::kWidth) + " " + Pixels(picture.height);
    out = "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " + size + "\"" +
          (numbers == nullptr ? Attribute("width", Pixels(Picture::kWidth)) +
                                    Attribute("height", Pixels(picture.height))
                              : Attribute("id", "picture")) +
          " role=\"img\">\n";
    if (numbers == nullptr) out += "<title>" + XmlText(picture.name) + "</title>\n";
    out += std::string("<style>\n") + kMapPictureCss + "</style>\n" + kMapPictureDefs;
    out += "<rect class=\"ground\" width=\"100%\" height=\"100%\" rx=\"14\"/>\n";
    Heading();
    Kinds();
    BandRows();
    Jumps();
    Treemap();
    Footer();
    return out + "</svg>\n";
  }

 private:
  // `text` is fit to be shown.
  void Text(const char* style, double x, double y, const std::string& text) {
    out += "<text" + Attribute("class", style) + Attribute("x", Pixels(x)) +
           Attribute("y", Pixels(y)) + ">" + XmlTextOfShown(text) + "</text>\n";
  }

  void Heading() {
    Text("name", Picture::kMargin, 58,
         CutToWidth(picture.name, Picture::kWidth - 2 * Picture::kMargin, 26));
    std::uint64_t streams = 0;
    std::uint64_t folders = 0;
    for (const aostorage::InspectedStream& stream : picture.found.Streams()) {
      if (stream.state != aostorage::RecordState::kLive) continue;
      ++(stream.isFolder ? folders : streams);
    }
    const std::uint64_t size = picture.found.FileSize();
    Text("plain", Picture::kMargin, 84,
         ShortSize(size) + (size < 1000 ? "" : " (" + Grouped(size) + " bytes)") + ": " +
             Counted(streams, "stream", "streams") + " in " +
             Counted(folders, "folder", "folders") + ", " +
             Counted(picture.found.Blocks().size(), "block", "blocks") + ", " +
             Counted(picture.allJumps, "jump", "jumps"));
  }

  // One bar, and what its parts are.
  void Kinds() {
    const double width = Picture::kWidth - 2 * Picture::kMargin;
    double x = Picture::kMargin;
    double chipX = x;
    double chipY = 134;
    for (std::size_t i = 0; i < kByteKinds; ++i) {
      const std::uint64_t bytes = picture.sums[i];
      if (bytes == 0) continue;
      const auto kind = static_cast<ByteKind>(i);
      const double part =
          width * static_cast<double>(bytes) / static_cast<double>(picture.found.FileSize());
      out += "<rect" + Place({x, 104, part, 14}) + Attribute("fill", ColorOfKind(kind)) + "/>\n";
      x += part;
      const std::string text = std::string(WordsOf(kind).title) + "  " + ShortSize(bytes) + ", " +
                               Percent(bytes, picture.found.FileSize());
      if (chipX + ChipWidth(text) > Picture::kWidth - Picture::kMargin) {
        chipX = Picture::kMargin;
        chipY += 22;
      }
      chipX = Chip(chipX, chipY, ColorOfKind(kind), text);
    }
  }

  static double ChipWidth(const std::string& text) { return 18 + WidthOfText(text, kSmall); }

  // An entry of a legend. @return where the next one begins
  double Chip(double x, double y, const std::string& fill, const std::string& text) {
    out += "<rect class=\"chip\"" + Place({x, y, 12, 12}) + Attribute("fill", fill) + "/>\n";
    Text("small", x + 18, y + 10.5, text);
    return x + ChipWidth(text) + 22;
  }

  void BandRows() {
    const Band& band = picture.band;
    Text("heading", Picture::kMargin, band.top - 26, "The file");
    Text("small", Picture::kMargin + 86, band.top - 26,
         "each row is " + Grouped(band.bytesPerRow) + " bytes; a lighter end of a block is room " +
             "that its stream does not use; curves lead to the next block of a stream");
    for (std::uint32_t row = 0; row < band.rows; ++row) {
      out += "<text class=\"offset\"" + Attribute("x", Pixels(band.left - 12)) +
             Attribute("y", Pixels(band.Y(row) + band.rowHeight - 5)) + ">" +
             Grouped(row * band.bytesPerRow) + "</text>\n";
    }
    out += "<g class=\"band\">\n";
    for (const Segment& segment : picture.segments) Pieces(segment);
    out += "</g>\n";
  }

  // A segment in each row that it reaches into.
  void Pieces(const Segment& segment) {
    const Band& band = picture.band;
    const std::string about = AboutSegment(segment);
    bool labelled = segment.fill == Fill::kSlack || segment.stream == kNoIndex;
    for (std::uint64_t at = segment.offset; at < segment.offset + segment.size;) {
      const std::uint64_t row = band.RowOf(at);
      const std::uint64_t end =
          std::min(segment.offset + segment.size, (row + 1) * band.bytesPerRow);
      Box box{band.X(at), band.Y(row), 0, band.rowHeight};
      box.width =
          band.width * static_cast<double>(end - at) / static_cast<double>(band.bytesPerRow);
      const double gap = box.width > 4 ? 0.8 : box.width > 2 ? 0.4 : 0;
      Rectangle(box.Inset(0, 0, gap, 0), ColorOf(picture, segment.fill, segment.stream), about);
      if (!labelled && box.width > 44) {
        labelled = true;
        Label(segment.fill == Fill::kStream ? "label" : "label lined", box,
              picture.found.NameOf(segment.stream));
      }
      at = end;
    }
  }

  // `about`: attributes, a line feed and a title.
  void Rectangle(const Box& box, const std::string& fill, const std::string& about) {
    const std::size_t title = about.find('\n');
    out += "<rect" + Place(box) + Attribute("fill", fill) + about.substr(0, title);
    constexpr double kTitled = 6;  // nobody points at less
    if (title == std::string::npos || box.width < kTitled) {
      out += "/>\n";
    } else {
      out += "><title>" + about.substr(title + 1) + "</title></rect>\n";
    }
  }

  void Label(const char* style, const Box& box, const std::string& name) {
    const std::string text = CutToWidth(name, box.width - 10, kLabel);
    if (!text.empty()) Text(style, box.x + 5, box.y + 12.8, text);
  }

  std::string AboutSegment(const Segment& segment) const {
    if (numbers == nullptr) {
      std::string title = segment.stream == kNoIndex ? WordFor(segment.fill)
                                                     : ShortPathOf(picture.found, segment.stream);
      if (segment.pieces > 1) title += " and " + Counted(segment.pieces - 1, "more", "more");
      return "\n" + XmlText(title) + ", " + Grouped(segment.offset) + " to " +
             Grouped(segment.offset + segment.size - 1);
    }
    std::string about = AboutStream(segment.stream, segment.pieces);
    if (segment.block != kNoIndex && segment.pieces == 1) {
      about += Attribute("data-b", std::to_string(picture.found.Blocks()[segment.block].offset));
    }
    if (segment.stream == kNoIndex || segment.fill == Fill::kSlack)
      about += Attribute("data-l", WordFor(segment.fill));
    return about + Attribute("data-o", std::to_string(segment.offset)) +
           Attribute("data-z", std::to_string(segment.size));
  }

  std::string AboutTile(const Tile& tile) const {
    const bool isStream = tile.stream != kNoIndex;
    if (numbers == nullptr) {
      std::string title =
          tile.kind == Tile::Kind::kStream ? ShortPathOf(picture.found, tile.stream) : tile.label;
      if (tile.kind == Tile::Kind::kFolderRecords)
        title = ShortPathOf(picture.found, tile.stream) + " (the folder's own records)";
      return "\n" + XmlText(title) + ", " + Counted(tile.bytes, "byte", "bytes");
    }
    std::string about = AboutStream(tile.stream, tile.pieces);
    if (!isStream || tile.pieces > 1) about += Attribute("data-l", XmlText(tile.label));
    return about + Attribute("data-z", std::to_string(tile.bytes));
  }

  std::string AboutStream(std::uint32_t stream, std::uint32_t pieces) const {
    std::string about;
    if (stream != kNoIndex && (*numbers)[stream] != kNoIndex)
      about += Attribute("data-s", std::to_string((*numbers)[stream]));
    if (pieces > 1) about += Attribute("data-n", std::to_string(pieces));
    return about;
  }

  static const char* WordFor(Fill fill) {
    switch (fill) {
      case Fill::kDirectory:
        return "header and directory";
      case Fill::kSlack:
        return "unused room";
      case Fill::kRemoved:
        return "removed";
      case Fill::kUnreachable:
        return "unreachable";
      default:
        return "in no record";
    }
  }

  void Jumps() {
    const Band& band = picture.band;
    const double opacity =
        std::clamp(11 / std::sqrt(1.0 + static_cast<double>(picture.jumps.size())), 0.22, 0.85);
    out +=
        "<g class=\"jumps\"" + Attribute("opacity", std::to_string(opacity).substr(0, 4)) + ">\n";
    for (const Jump& jump : picture.jumps) {
      const std::string path = JumpPath(band, jump);
      out += "<path" + Attribute("d", path) +
             Attribute("stroke", ColorOfJump(picture, jump.stream)) +
             (numbers == nullptr ? "" : AboutStream(jump.stream, 1)) + "/>\n";
    }
    out += "</g>\n";
  }

  // Out of the row's lower edge and into the upper edge of one below, or the other way round;
  // within a row a bow above it.
  static std::string JumpPath(const Band& band, const Jump& jump) {
    const std::uint64_t fromRow = band.RowOf(jump.from);
    const std::uint64_t toRow = band.RowOf(jump.to);
    const double x1 = band.X(jump.from);
    const double x2 = band.X(jump.to);
    const bool down = toRow > fromRow;
    const double y1 = band.Y(fromRow) + (down ? band.rowHeight : 0);
    const double y2 = band.Y(toRow) + (toRow < fromRow ? band.rowHeight : 0);
    const double bow = fromRow == toRow ? std::clamp(std::fabs(x2 - x1) / 4, 3.0, 15.0)
                                        : std::clamp(std::fabs(y2 - y1) * 0.45, 10.0, 90.0);
    const double c1 = down ? y1 + bow : y1 - bow;
    const double c2 = toRow < fromRow ? y2 + bow : y2 - bow;
    return "M" + Pixels(x1) + " " + Pixels(y1) + "C" + Pixels(x1) + " " + Pixels(c1) + " " +
           Pixels(x2) + " " + Pixels(c2) + " " + Pixels(x2) + " " + Pixels(y2);
  }

  void Treemap() {
    const Box& room = picture.treemap;
    Text("heading", Picture::kMargin, room.y - 46, "The tree");
    Text("small", Picture::kMargin + 94, room.y - 46,
         "each area is as large as the blocks of its stream");
    GroupChips(room.y - 28);
    out += "<g class=\"tree\">\n";
    for (const Tile& tile : picture.tiles) {
      const Box box = tile.box.Inset(0, 0, tile.box.width > 4 ? 1 : 0, tile.box.height > 4 ? 1 : 0);
      std::string fill = ColorOf(picture, tile.fill, tile.stream);
      if (tile.holdsTiles)
        fill = tile.stream == kNoIndex ? "#dcd8d2" : ColorOfFolder(picture, tile.stream);
      Rectangle(box, fill, AboutTile(tile));
      if (tile.isTitled && box.width > 44 && box.height > 16) TileLabel(tile, box);
    }
    out += "</g>\n";
  }

  void TileLabel(const Tile& tile, const Box& box) {
    const bool dark = tile.kind == Tile::Kind::kDirectory;
    const std::string text = CutToWidth(tile.label, box.width - 10, kLabel);
    if (text.empty()) return;
    const bool patterned = tile.kind == Tile::Kind::kDead;
    const char* style = dark ? "label light" : patterned ? "label lined" : "label";
    Text(style, box.x + 5, box.y + 12.8, text);
    if (!tile.holdsTiles && box.height > 34 && box.width > 56)
      Text(dark        ? "size light"
           : patterned ? "size lined"
                       : "size",
           box.x + 5, box.y + 26, ShortSize(tile.bytes));
  }

  // As many as one line takes.
  void GroupChips(double y) {
    double x = Picture::kMargin;
    for (std::size_t i = 0; i < picture.groups.size(); ++i) {
      const std::string name = picture.found.NameOf(picture.groups[i].stream);
      const std::string text =
          CutToWidth(name, 150, kSmall) + "  " + ShortSize(picture.groups[i].bytes);
      if (x + ChipWidth(text) > Picture::kWidth - Picture::kMargin) break;
      x = Chip(x, y, ColorOfGroup(i), text);
    }
  }

  void Footer() {
    std::string text = "Made by aostorage map.";
    if (picture.IsMerged()) {
      text += " What is too small to be seen is drawn together with what stands beside it";
      if (picture.jumps.size() < picture.allJumps) {
        text += "; of " + Grouped(picture.allJumps) + " jumps the " +
                Grouped(picture.jumps.size()) + " farthest are drawn";
      }
      text += ".";
    }
    Text("small", Picture::kMargin, picture.height - 18, text);
  }

  const Picture& picture;
  const std::vector<std::uint32_t>* numbers;  // null for a picture by itself
  std::string out;
};

}  // namespace

std::string SvgOf(const Picture& picture) { return Writer(picture, nullptr).Run(); }

std::string SvgForPage(const Picture& picture, const std::vector<std::uint32_t>& numbers) {
  return Writer(picture, &numbers).Run();
}

}  // namespace aotool
