// blocks

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <string>

#include "interrupt.h"
#include "json.h"
#include "named_tree.h"
#include "style.h"
#include "text_verbs.h"

namespace aotool {
namespace {

using aostorage::InspectedBlock;
using aostorage::InspectedStream;

constexpr std::uint32_t kBlockHeaderSize = 20;

// Bytes of data that lie in the file.
std::uint32_t DataBytes(const InspectedBlock& block) {
  const std::uint32_t end = std::min(block.used, block.present);
  return end > kBlockHeaderSize ? end - kBlockHeaderSize : 0;
}

// What is to be said of a block that is not as a plain chain has it; `before` is null for the
// first.
std::string RemarkOf(const InspectedBlock& block, const InspectedBlock* before,
                     const InspectedStream& stream) {
  std::string remark;
  const auto add = [&remark](const std::string& text) {
    remark += (remark.empty() ? "" : ", ") + text;
  };
  if (before != nullptr) {
    const std::int64_t behind = std::int64_t{before->offset} + before->capacity;
    const std::int64_t jump = std::int64_t{block.offset} - behind;
    add(jump == 0 ? "follows directly"
                  : std::string("jump ") + (jump > 0 ? "+" : "") + std::to_string(jump));
  }
  if (block.prevBlock != (before != nullptr ? before->offset : 0))
    add("prevBlock names another block");
  if (block.present < block.capacity) add("cut off by the end of the file");
  const bool hasLength =
      stream.headerOffset != 0 && stream.origin != aostorage::StreamOrigin::kVacated;
  if (hasLength && !stream.isFolder && DataBytes(block) != 0 &&
      block.position >= stream.header.length) {
    add("behind the length");
  }
  return remark;
}

std::string EndOf(const InspectedStream& stream) {
  if (stream.chainEnd != aostorage::ChainEnd::kWhole) return ChainEndText(stream);
  return stream.blockCount == 0 ? "the stream has no block" : "the chain is whole";
}

const char* EndWord(aostorage::ChainEnd end) {
  static constexpr const char* kWords[] = {"whole",    "outOfRange", "truncated",
                                           "badMagic", "badWords",   "overlap"};
  return kWords[static_cast<std::size_t>(end)];
}

void PrintText(const NamedTree& tree, std::uint32_t index, const Style& style) {
  const InspectedStream& stream = tree.At(index);
  std::string head = Shown(ShortPathOf(tree.Store(), index)) + ": ";
  head += stream.isFolder ? "folder" : "plain stream";
  head += ", length " + std::to_string(stream.header.length);
  if (stream.headerOffset != 0) head += ", header at " + std::to_string(stream.headerOffset);
  Print(style.Paint(Tint::kBold, head) + "\n");
  if (stream.blockCount != 0) {
    Print(style.Paint(Tint::kBold,
                      "   #      offset        used    capacity        data"
                      "    position        prev        next  remark") +
          "\n");
  }
  const InspectedBlock* before = nullptr;
  for (std::uint32_t i = 0; i < stream.blockCount && !Interrupted(); ++i) {
    const InspectedBlock& block = tree.Store().Blocks()[stream.firstBlock + i];
    char row[160];
    std::snprintf(row, sizeof row, "%4u  %10u  %10u  %10u  %10u  %10" PRIu64 "  %10u  %10u", i,
                  block.offset, block.used, block.capacity, DataBytes(block), block.position,
                  block.prevBlock, block.nextBlock);
    const std::string remark = RemarkOf(block, before, stream);
    Print(row + (remark.empty() ? "" : "  " + style.Paint(Tint::kYellow, remark)) + "\n");
    before = &block;
  }
  Print(EndOf(stream) + ", " + std::to_string(stream.blockCount) +
        (stream.blockCount == 1 ? " block, " : " blocks, ") + std::to_string(stream.dataBytes) +
        " bytes of data\n");
}

void PrintDocument(const NamedTree& tree, std::uint32_t index, const CommonOptions& options) {
  const InspectedStream& stream = tree.At(index);
  Json head = JsonHead("blocks", options.store);
  head.SetName("path", options.path)
      .Set("kind", stream.isFolder ? "folder" : "plain")
      .Set("length", stream.header.length)
      .Set("headerOffset", stream.headerOffset)
      .Set("dataBytes", stream.dataBytes)
      .Set("chainEnd", EndWord(stream.chainEnd))
      .Set("chainEndOffset", stream.chainEndOffset);
  JsonListing listing(std::move(head), "blocks");
  const InspectedBlock* before = nullptr;
  for (std::uint32_t i = 0; i < stream.blockCount && !Interrupted(); ++i) {
    const InspectedBlock& block = tree.Store().Blocks()[stream.firstBlock + i];
    listing.Add(Json::Object()
                    .Set("offset", block.offset)
                    .Set("used", block.used)
                    .Set("capacity", block.capacity)
                    .Set("dataBytes", DataBytes(block))
                    .Set("position", block.position)
                    .Set("prevBlock", block.prevBlock)
                    .Set("nextBlock", block.nextBlock)
                    .Set("remark", RemarkOf(block, before, stream)));
    before = &block;
  }
}

}  // namespace

void Blocks(const CommonOptions& options, Report& report) {
  InspectionPtr inspection;
  Result result = Inspect(options.store, inspection);
  if (!result.Ok()) return report.Fail("", result);
  const NamedTree tree(*inspection);
  std::uint32_t stream = aostorage::kNoIndex;
  result = tree.Find(options.path, stream);
  if (!result.Ok()) return report.Fail(options.path, result);
  if (options.json) {
    PrintDocument(tree, stream, options);
  } else {
    PrintText(tree, stream, Style(options.color));
  }
  if (Interrupted()) return report.Fail("", Interruption());
  result = CheckWhole(tree.At(stream));
  if (!result.Ok()) report.Fail(options.path, result);
}

}  // namespace aotool
