// What the verbs that look at a store from outside have in common.
#ifndef AOSTORAGE_TOOLS_INSPECTED_H_
#define AOSTORAGE_TOOLS_INSPECTED_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <aostorage/inspect.h>

#include "report.h"

namespace aotool {

using InspectionPtr = std::unique_ptr<aostorage::Inspection>;

// Fails when the file cannot be opened or is no storage. Ctrl-C ends it.
Result Inspect(const std::string& path, InspectionPtr& inspection);

// The same with progress, and `salvage` for files without a header. Null after a failure, which is
// reported.
InspectionPtr Inspect(const std::string& store, Report& report, bool salvage = false);

// Reports why a walk over what was found ended early.
void ReportStop(Report& report);

// Where the inspection found bytes lost, what was printed is not all: says so, exit code 3. To be
// called behind the answer.
void ReportDamage(const aostorage::Inspection& inspection, Report& report);

// Inspection::PathOf, but of a stream below more than 64 folders only the last names, behind "...":
// a tree can be so deep that the paths of all its streams take forever. Empty for no stream.
std::string ShortPathOf(const aostorage::Inspection& inspection, std::uint32_t stream);

// "1,234,567"
std::string Grouped(std::uint64_t number);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_INSPECTED_H_
