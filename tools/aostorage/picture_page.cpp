#include "picture_page.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

#include "json.h"
#include "map_page_files.h"
#include "picture_svg.h"
#include "shown.h"
#include "xml_text.h"

namespace aotool {
namespace {

using aostorage::InspectedBlock;
using aostorage::InspectedStream;
using aostorage::kNoIndex;
using aostorage::RecordState;
using aostorage::StreamOrigin;

constexpr std::size_t kMostStreams = 30000;
constexpr std::size_t kMostFoldersAbove = 64;  // that a stream brings along
constexpr std::size_t kMostBlocks = 200000;
constexpr std::uint32_t kMostBlocksOfOne = 5000;

const char* WordFor(RecordState state) {
  switch (state) {
    case RecordState::kLive:
      return "live";
    case RecordState::kVacated:
      return "removed";
    case RecordState::kOrphan:
      return "orphan";
    default:
      return "unreachable";
  }
}

bool IsSomething(const InspectedStream& stream) {
  return stream.origin != StreamOrigin::kUnusedSlot && stream.origin != StreamOrigin::kDamagedSlot;
}

// The streams of the page, and the number that each has there.
class Selection {
 public:
  explicit Selection(const Picture& picture)
      : streams(picture.found.Streams()), numbers(streams.size(), kNoIndex) {
    std::vector<std::uint32_t> candidates;
    for (std::uint32_t i = 0; i < streams.size(); ++i) {
      if (IsSomething(streams[i])) candidates.push_back(i);
    }
    if (candidates.size() > kMostStreams) {
      leftOut = candidates.size();
      const auto end = candidates.begin() + kMostStreams;
      std::nth_element(candidates.begin(), end, candidates.end(),
                       [&picture](std::uint32_t left, std::uint32_t right) {
                         return picture.treeBytes[left] > picture.treeBytes[right];
                       });
      candidates.erase(end, candidates.end());
    }
    for (const std::uint32_t candidate : candidates) Take(candidate);
    for (std::uint32_t i = 0; i < numbers.size(); ++i) {  // in the order of the file
      if (numbers[i] == kNoIndex) continue;
      numbers[i] = static_cast<std::uint32_t>(chosen.size());
      chosen.push_back(i);
    }
    if (leftOut != 0) leftOut -= std::min<std::uint64_t>(leftOut, chosen.size());
  }

  const std::vector<InspectedStream>& streams;
  std::vector<std::uint32_t> numbers;  // by stream; kNoIndex: not in the page
  std::vector<std::uint32_t> chosen;
  std::uint64_t leftOut = 0;

 private:
  // With the folders that it is in: they give its path.
  void Take(std::uint32_t stream) {
    std::uint32_t at = stream;
    for (std::size_t i = 0; i < kMostFoldersAbove && at != kNoIndex && numbers[at] == kNoIndex;
         ++i) {
      numbers[at] = 0;
      at = streams[at].parent;
    }
  }
};

Json BlocksOf(const Picture& picture, const InspectedStream& stream, std::size_t& left) {
  Json blocks = Json::Array();
  const auto count = static_cast<std::uint32_t>(
      std::min<std::size_t>(std::min(stream.blockCount, kMostBlocksOfOne), left));
  for (std::uint32_t i = 0; i < count; ++i) {
    const InspectedBlock& block = picture.found.Blocks()[stream.firstBlock + i];
    for (const std::uint32_t word : {block.offset, block.used, block.capacity, block.nextBlock})
      blocks.Add(std::int64_t{word});
  }
  left -= count;
  return blocks;
}

// -1 at the root; -2 below folders that are not in the page.
std::int64_t ParentIn(const Selection& selection, const InspectedStream& stream) {
  if (stream.parent == kNoIndex) return -1;
  const std::uint32_t number = selection.numbers[stream.parent];
  return number == kNoIndex ? -2 : std::int64_t{number};
}

std::string DataOf(const Picture& picture, const Selection& selection) {
  Json streams = Json::Array();
  std::size_t blocksLeft = kMostBlocks;
  for (const std::uint32_t index : selection.chosen) {
    const InspectedStream& stream = selection.streams[index];
    Json element = Json::Object();
    element.Set("name", Shown(picture.found.NameOf(index)))
        .Set("parent", ParentIn(selection, stream))
        .Set("folder", stream.isFolder)
        .Set("state", WordFor(stream.state))
        .Set("length", stream.header.length)
        .Set("blockCount", stream.blockCount)
        .Set("blocks", BlocksOf(picture, stream, blocksLeft));
    streams.Add(std::move(element));
  }
  Json band = Json::Object();
  band.Set("left", picture.band.left)
      .Set("top", picture.band.top)
      .Set("width", picture.band.width)
      .Set("rowHeight", picture.band.rowHeight)
      .Set("pitch", picture.band.pitch)
      .Set("bytesPerRow", picture.band.bytesPerRow);
  Json data = Json::Object();
  data.Set("fileSize", picture.found.FileSize())
      .Set("band", std::move(band))
      .Set("streamsLeftOut", selection.leftOut)
      .Set("streams", std::move(streams));
  return data.Text();
}

// JSON, which has such characters in strings alone, as the content of a script element.
std::string ForScript(const std::string& json) {
  std::string text;
  text.reserve(json.size());
  for (const char letter : json) {
    if (letter == '<' || letter == '>' || letter == '&') {
      text += letter == '<' ? "\\u003c" : letter == '>' ? "\\u003e" : "\\u0026";
    } else {
      text += letter;
    }
  }
  return text;
}

}  // namespace

std::string PageOf(const Picture& picture) {
  const Selection selection(picture);
  // What is put in is not looked at again: a name can hold anything.
  std::string page;
  std::string_view rest = kMapPageHtml;
  for (;;) {
    const std::size_t open = rest.find("{{");
    page += rest.substr(0, open);
    if (open == std::string_view::npos) return page;
    const std::size_t close = rest.find("}}", open);
    const std::string_view key = rest.substr(open + 2, close - open - 2);
    rest.remove_prefix(close + 2);
    if (key == "title") {
      page += XmlText(picture.name) + " \xE2\x80\x93 aostorage";
    } else if (key == "style") {
      page += kMapPageCss;
    } else if (key == "picture") {
      page += SvgForPage(picture, selection.numbers);
    } else if (key == "data") {
      page += ForScript(DataOf(picture, selection));
    } else if (key == "script") {
      page += kMapPageScript;
    }
  }
}

}  // namespace aotool
