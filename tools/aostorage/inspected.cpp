#include "inspected.h"

#include <cstddef>
#include <vector>

#include "interrupt.h"

namespace aotool {
namespace {

using aostorage::Inspection;

Result Look(const std::string& path, const aostorage::InspectOptions& options,
            InspectionPtr& inspection) {
  aostorage::ClearLastError();
  inspection = Inspection::Of(path.c_str(), options);
  if (inspection) return {};
  if (Interrupted()) return Interruption();
  Result failure = FromLibrary();
  if (failure.code == kNotFound) failure.reason = "there is no such store";
  return failure;
}

}  // namespace

Result Inspect(const std::string& path, InspectionPtr& inspection) {
  aostorage::InspectOptions options;
  options.goOn = [](std::uint64_t, std::uint64_t) { return !Interrupted(); };
  return Look(path, options, inspection);
}

InspectionPtr Inspect(const std::string& store, Report& report, bool salvage) {
  aostorage::InspectOptions options;
  options.salvage = salvage;
  options.goOn = [&report](std::uint64_t seen, std::uint64_t total) {
    const std::uint64_t percent = total == 0 ? 0 : seen * 100 / total;
    report.Progress("looking at the file, " + std::to_string(percent) + " %", 1, seen);
    return !Interrupted();
  };
  InspectionPtr inspection;
  const Result result = Look(store, options, inspection);
  report.EndProgress();
  if (!result.Ok()) report.Fail("", result);
  return inspection;
}

void ReportStop(Report& report) { report.Fail("", Interrupted() ? Interruption() : FromLibrary()); }

void ReportDamage(const Inspection& inspection, Report& report) {
  const std::uint64_t count = inspection.CountOf(aostorage::Severity::kError);
  if (count == 0) return;
  report.Fail("", {kDamaged, "the file is damaged in " + Grouped(count) +
                                 (count == 1 ? " place" : " places") + "; check tells more"});
}

std::string ShortPathOf(const Inspection& inspection, std::uint32_t stream) {
  constexpr std::size_t kMostNames = 64;
  const auto& streams = inspection.Streams();
  std::vector<std::uint32_t> way;
  std::uint32_t at = stream;
  for (; at < streams.size() && way.size() < kMostNames; at = streams[at].parent) way.push_back(at);
  if (at >= streams.size()) return inspection.PathOf(stream);
  std::string path = "...";
  for (auto step = way.rbegin(); step != way.rend(); ++step) path += "/" + inspection.NameOf(*step);
  return path;
}

std::string Grouped(std::uint64_t number) {
  std::string text = std::to_string(number);
  for (std::size_t at = text.size(); at > 3;) text.insert(at -= 3, ",");
  return text;
}

}  // namespace aotool
