#include "support/check_file.h"

#include <cstdint>

#include <aostorage/inspect.h>

namespace aostorage::testing {
namespace {

// A slot that lies across a border of pages is rewritten in two parts.
bool IsHalfASlot(const Finding& finding) {
  return finding.severity == Severity::kWarning &&
         (finding.rule == Rule::kSlotInUse || finding.rule == Rule::kEmptySlot ||
          finding.rule == Rule::kVacatedSlot);
}

bool IsBroken(const Finding& finding, Rules rules) {
  if (rules == Rules::kAfterFault && IsHalfASlot(finding)) return false;
  if (finding.severity != Severity::kNote) return true;
  return rules == Rules::kStrict &&
         (finding.rule == Rule::kLengthInData || finding.rule == Rule::kFolderHasCount ||
          finding.rule == Rule::kUncountedSlot);
}

}  // namespace

std::string CheckFile(const std::string& path, Rules rules, std::vector<std::string>* names) {
  const auto inspection = Inspection::Of(path.c_str());
  if (!inspection) return "no storage\n";
  std::string text;
  for (const Finding& finding : inspection->Findings()) {
    if (!IsBroken(finding, rules)) continue;
    // What was removed may look as if it had been a folder.
    const bool gone = inspection->PathOf(finding.stream).find('<') != std::string::npos;
    if (finding.severity == Severity::kNote && gone) continue;
    text += RuleName(finding.rule) + (" at " + std::to_string(finding.offset) + " ") +
            inspection->PathOf(finding.stream) + ": " + finding.detail + " " +
            std::to_string(finding.value) + "\n";
  }
  std::uint64_t end = 0;
  inspection->ForEachRecord([&](const Record& record) {
    if (record.offset != end) text += "nothing tells what lies at " + std::to_string(end) + "\n";
    end = record.offset + record.size;
    return true;
  });
  if (end != inspection->FileSize()) text += "the records end at " + std::to_string(end) + "\n";
  const auto& streams = inspection->Streams();
  for (std::uint32_t i = 0; names != nullptr && i < streams.size(); ++i) {
    if (streams[i].origin <= StreamOrigin::kHidden && streams[i].state == RecordState::kLive)
      names->push_back(inspection->PathOf(i));
  }
  return text;
}

}  // namespace aostorage::testing
