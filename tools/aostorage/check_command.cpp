// check

#include "check_command.h"

#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include <aostorage/inspect.h>

#include "inspected.h"
#include "interrupt.h"
#include "json.h"
#include "shown.h"
#include "style.h"

namespace aotool {
namespace {

using aostorage::Finding;
using aostorage::Inspection;
using aostorage::Severity;

const char* NameOf(Severity severity) {
  switch (severity) {
    case Severity::kNote:
      return "note";
    case Severity::kWarning:
      return "warning";
    default:
      return "error";
  }
}

Tint TintOf(Severity severity) {
  return severity == Severity::kError     ? Tint::kRed
         : severity == Severity::kWarning ? Tint::kYellow
                                          : Tint::kDim;
}

bool IsListed(const CheckOptions& options, const Finding& finding) {
  return finding.severity != Severity::kNote || options.notes;
}

std::string Plural(std::uint64_t count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// "error    I11 at 5484, box/kid: a chain leads to something that is no block (no magic word)"
std::string LineOf(const Inspection& inspection, const Finding& finding, const Style& style) {
  char column[16];
  std::snprintf(column, sizeof column, "%-8s", NameOf(finding.severity));
  std::string line = style.Paint(TintOf(finding.severity), column) + " ";
  std::snprintf(column, sizeof column, "%-4s", aostorage::RuleName(finding.rule));
  line += column + (" at " + std::to_string(finding.offset));
  const std::string path = ShortPathOf(inspection, finding.stream);
  if (!path.empty()) line += ", " + style.Paint(Tint::kBold, Shown(path));
  line += std::string(": ") + aostorage::RuleText(finding.rule) + " (" + finding.detail;
  if (finding.value != 0) line += " " + std::to_string(finding.value);
  return line + ")\n";
}

Json JsonOf(const Inspection& inspection, const Finding& finding) {
  Json element = Json::Object();
  element.Set("severity", NameOf(finding.severity))
      .Set("rule", aostorage::RuleName(finding.rule))
      .Set("offset", finding.offset)
      .SetName("path", ShortPathOf(inspection, finding.stream))
      .Set("means", aostorage::RuleText(finding.rule))
      .Set("detail", finding.detail)
      .Set("value", finding.value);
  return element;
}

// Of each rule only so many findings are kept.
std::string Untold(const CheckOptions& options, const Inspection& inspection) {
  std::map<aostorage::Rule, std::uint64_t> kept;
  for (const Finding& finding : inspection.Findings()) {
    if (IsListed(options, finding)) ++kept[finding.rule];
  }
  std::string text;
  for (const auto& [rule, count] : kept) {
    if (const std::uint64_t all = inspection.CountOf(rule); all > count)
      text +=
          std::string(aostorage::RuleName(rule)) + ": " + std::to_string(all - count) + " more\n";
  }
  return text;
}

void PrintLines(const CheckOptions& options, const Inspection& inspection, const Style& style) {
  for (const Finding& finding : inspection.Findings()) {
    if (Interrupted()) return;
    if (IsListed(options, finding)) Print(LineOf(inspection, finding, style));
  }
  Print(Untold(options, inspection));
  const std::uint64_t errors = inspection.CountOf(Severity::kError);
  const std::uint64_t warnings = inspection.CountOf(Severity::kWarning);
  const std::uint64_t notes = inspection.CountOf(Severity::kNote);
  std::string verdict = errors + warnings == 0
                            ? style.Paint(Tint::kGreen, "sound")
                            : style.Paint(errors != 0 ? Tint::kRed : Tint::kYellow, "not sound");
  verdict += ": " + Plural(errors, "error") + ", " + Plural(warnings, "warning") + ", " +
             Plural(notes, "note");
  if (notes != 0 && !options.notes) verdict += " (--notes lists them)";
  Print(verdict + "\n");
}

void PrintDocument(const CheckOptions& options, const Inspection& inspection) {
  Json head = JsonHead("check", options.store);
  head.Set("errors", inspection.CountOf(Severity::kError))
      .Set("warnings", inspection.CountOf(Severity::kWarning))
      .Set("notes", inspection.CountOf(Severity::kNote));
  JsonListing findings(std::move(head), "findings");
  for (const Finding& finding : inspection.Findings()) findings.Add(JsonOf(inspection, finding));
}

}  // namespace

void Check(const CheckOptions& options, Report& report) {
  const std::unique_ptr<Inspection> inspection = Inspect(options.store, report);
  if (!inspection) return;
  if (options.json) {
    PrintDocument(options, *inspection);
  } else {
    PrintLines(options, *inspection, Style(options.color));
  }
  if (Interrupted()) return report.Fail("", Interruption());
  const bool warned = options.strict && inspection->CountOf(Severity::kWarning) != 0;
  if (warned || inspection->CountOf(Severity::kError) != 0) report.AnswerNo();
}

}  // namespace aotool
