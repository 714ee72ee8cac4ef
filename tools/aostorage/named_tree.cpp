#include "named_tree.h"

#include <algorithm>

#include <aostorage/error.h>

#include "interrupt.h"

namespace aotool {
namespace {

using aostorage::ChainEnd;
using aostorage::InspectedStream;
using aostorage::Inspection;
using aostorage::kNoIndex;
using aostorage::RecordState;
using aostorage::StreamOrigin;

// A finding in something that is removed or that nobody reaches costs nobody a stream.
bool Concerns(const Inspection& inspection, const aostorage::Finding& finding) {
  if (finding.severity != aostorage::Severity::kError) return false;
  if (finding.stream == kNoIndex) return true;
  const RecordState state = inspection.Streams()[finding.stream].state;
  return state == RecordState::kLive || state == RecordState::kUnreachable;
}

}  // namespace

std::string_view NameIn(const InspectedStream& stream) {
  const char* const begin = stream.header.name;
  const char* const end = std::find(begin, begin + sizeof stream.header.name, '\0');
  return {begin, static_cast<std::size_t>(end - begin)};
}

std::string ChainEndText(const InspectedStream& stream) {
  const std::string at = " at offset " + std::to_string(stream.chainEndOffset);
  switch (stream.chainEnd) {
    case ChainEnd::kWhole:
      return "";
    case ChainEnd::kOutOfRange:
      return "the chain leads out of the file," + at;
    case ChainEnd::kTruncated:
      return "the file ends within the block" + at;
    case ChainEnd::kBadMagic:
      return "the chain leads to something that is no block," + at;
    case ChainEnd::kBadWords:
      return "the words of the block contradict each other," + at;
    case ChainEnd::kOverlap:
      return "the chain leads into another record," + at;
  }
  return "the chain breaks off" + at;
}

Result CheckWhole(const InspectedStream& stream) {
  if (stream.chainEnd != ChainEnd::kWhole) return {kDamaged, ChainEndText(stream)};
  if (stream.shared) return {kDamaged, "another stream claims bytes of its blocks"};
  if (!stream.isFolder && stream.header.length > stream.dataBytes)
    return {kDamaged, "the stream ends before its length"};
  return {};
}

Result FirstDamage(const Inspection& inspection) {
  std::uint64_t errors = 0;
  for (const aostorage::Finding& finding : inspection.Findings()) {
    if (finding.severity == aostorage::Severity::kError) ++errors;
    if (!Concerns(inspection, finding)) continue;
    const std::string text = std::string(aostorage::RuleText(finding.rule)) + ", at offset " +
                             std::to_string(finding.offset);
    if (finding.rule == aostorage::Rule::kGivenUp) return {kFailure, text};
    return {finding.rule == aostorage::Rule::kUnreadable ? kInputOutput : kDamaged, text};
  }
  // Only so many are kept: what was left out may concern anything.
  if (inspection.CountOf(aostorage::Severity::kError) == errors) return {};
  return {kDamaged, "there is more damage than can be listed"};
}

NamedTree::NamedTree(const Inspection& inspected) : inspection(inspected) {
  const std::vector<InspectedStream>& streams = inspection.Streams();
  for (std::uint32_t i = 0; i < streams.size(); ++i) {
    if (streams[i].parent != kNoIndex) continue;
    if (streams[i].origin == StreamOrigin::kHidden) hiddenRoot.push_back(i);
    if (streams[i].state == RecordState::kLive) root.push_back(i);
  }
  SortByName(root);
  SortByName(hiddenRoot);
}

void NamedTree::SortByName(std::vector<std::uint32_t>& streams) const {
  std::stable_sort(streams.begin(), streams.end(), [this](std::uint32_t left, std::uint32_t right) {
    return NameIn(At(left)) < NameIn(At(right));
  });
}

std::vector<std::uint32_t> NamedTree::Children(std::uint32_t folder) const {
  if (folder == kNoIndex) return root;
  std::vector<std::uint32_t> children;
  for (std::uint32_t i = 0; i < At(folder).childCount; ++i) {
    const std::uint32_t child = At(folder).firstChild + i;
    if (At(child).state == RecordState::kLive) children.push_back(child);
  }
  SortByName(children);
  return children;
}

std::vector<std::uint32_t> NamedTree::Hidden(std::uint32_t folder) const {
  if (folder == kNoIndex) return hiddenRoot;
  std::vector<std::uint32_t> hidden;
  for (std::uint32_t i = 0; i < At(folder).childCount; ++i) {
    const std::uint32_t child = At(folder).firstChild + i;
    if (At(child).origin == StreamOrigin::kHidden) hidden.push_back(child);
  }
  SortByName(hidden);
  return hidden;
}

std::uint32_t NamedTree::Child(std::uint32_t folder, std::string_view name) const {
  if (folder == kNoIndex) {
    const auto found = std::lower_bound(
        root.begin(), root.end(), name,
        [this](std::uint32_t left, std::string_view wanted) { return NameIn(At(left)) < wanted; });
    return found != root.end() && NameIn(At(*found)) == name ? *found : kNoIndex;
  }
  for (std::uint32_t i = 0; i < At(folder).childCount; ++i) {
    const InspectedStream& child = At(At(folder).firstChild + i);
    if (child.state == RecordState::kLive && NameIn(child) == name)
      return At(folder).firstChild + i;
  }
  return kNoIndex;
}

bool NamedTree::IsReserved(std::uint32_t stream) const {
  constexpr std::uint32_t kMostReserved = 6;  // more are not looked at, whatever the file says
  const InspectedStream& found = At(stream);
  if (found.parent != kNoIndex || inspection.Directories().empty()) return false;
  const aostorage::InspectedDirectory& first = inspection.Directories().front();
  constexpr std::uint64_t kDirectorySize = 5132;
  return found.headerOffset < first.offset + kDirectorySize &&
         found.slotIndex < std::min<std::uint32_t>(
                               {kMostReserved, inspection.ReservedSlotCount(), first.slotCount});
}

}  // namespace aotool
