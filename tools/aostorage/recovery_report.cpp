// What a recovery tells: of each find, of the directory, and of the whole.
#include <algorithm>
#include <cstring>
#include <vector>

#include "recovery.h"

namespace aotool {
namespace {

using aostorage::Rule;

constexpr std::size_t kDirectorySize = 5132;
constexpr std::size_t kSlotsAt = 12;
constexpr std::size_t kSlots = 64;
constexpr std::size_t kSlotSize = sizeof(aostorage::tag_aoStream);

bool IsAboutDirectory(Rule rule) {
  return rule == Rule::kFileHeader || rule == Rule::kFirstDirectory ||
         rule == Rule::kDirectoryBlock || rule == Rule::kDirectoryChain;
}

bool IsBlank(const char* slot) {
  return std::all_of(slot, slot + kSlotSize, [](char byte) { return byte == 0; });
}

std::string Counted(std::uint64_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

}  // namespace

Result Recovery::Tell(const Find& find) {
  if (Result result = lines.Add(TextOf(find)); !result.Ok()) return result;
  if (documents == nullptr) return {};
  const char* const separator = documents->IsEmpty() ? "\n" : ",\n";
  return documents->Add(separator + JsonOf(find).Text());
}

Result Recovery::TellOfStore(const std::string& why) {
  Find find;
  find.what = "store";
  find.why = why;
  return Tell(find);
}

// What is wrong above all streams: some may be missing without a trace.
Result Recovery::TellOfDirectory() {
  for (const aostorage::Finding& finding : source.Findings()) {
    if (!IsAboutDirectory(finding.rule)) continue;
    ++totals.missing;
    Result result = TellOfStore(aostorage::RuleText(finding.rule) + std::string(" (offset ") +
                                std::to_string(finding.offset) + ": " + finding.detail + ")");
    if (!result.Ok()) return result;
  }
  for (const aostorage::InspectedDirectory& directory : source.Directories()) {
    if (directory.state != aostorage::RecordState::kLive) continue;
    if (Result result = TellOfBlankSlots(directory); !result.Ok()) return result;
  }
  return {};
}

// A slot that was never used has its magic word in the first block, and lies behind all others in
// an appended one. Other blank slots have been wiped.
Result Recovery::TellOfBlankSlots(const aostorage::InspectedDirectory& directory) {
  std::vector<char> block(kDirectorySize);
  if (source.Read(directory.offset, block.data(), block.size()) != block.size()) return {};
  std::uint64_t wiped = 0, blank = 0;
  for (std::size_t i = 0; i < std::min<std::size_t>(kSlots, directory.slotCount); ++i) {
    ++blank;
    if (IsBlank(&block[kSlotsAt + kSlotSize * i])) continue;
    wiped += blank - 1;
    blank = 0;
  }
  if (directory.offset == source.FileHeaderSize()) wiped += blank;
  if (wiped == 0) return {};
  ++totals.missing;
  return TellOfStore(Counted(wiped, "slot", "slots") + " of the directory block at offset " +
                     std::to_string(directory.offset) +
                     " were wiped: streams that stood there have lost their names");
}

std::string Recovery::Summary() const {
  std::string line = Counted(totals.streams, "stream", "streams") + " and " +
                     Counted(totals.folders, "folder", "folders") + " under their paths, " +
                     Counted(totals.bytes, "byte", "bytes");
  if (totals.finds != 0) {
    line += "; " + Counted(totals.finds, "find", "finds") + " under " + lostFolder + ", " +
            Counted(totals.findBytes, "byte", "bytes");
  }
  line += totals.missing == 0 ? "; nothing that could be reached is missing"
                              : "; damage at " + Counted(totals.missing, "place", "places");
  return line;
}

}  // namespace aotool
