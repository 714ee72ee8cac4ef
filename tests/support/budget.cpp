#include "support/budget.h"

#include <sys/stat.h>

#include <algorithm>

#include <gtest/gtest.h>

namespace aostorage::testing {
namespace {

std::uint64_t operations = 0;

}  // namespace

std::uint64_t Budget::Operations() { return operations; }

std::uint64_t Budget::FileSizes() const {
  std::uint64_t size = 0;
  for (const std::string& path : paths) {
    struct stat state {};
    if (stat(path.c_str(), &state) == 0) size += static_cast<std::uint64_t>(state.st_size);
  }
  return size;
}

Budget::Limit::Limit(const Budget& owner, const char* operationLabel)
    : budget(owner), label(operationLabel), size(owner.FileSizes()) {}

Budget::Limit::~Limit() {
  const Cost cost = meter.Taken();
  ++operations;
  // What the operation made of the files was its to look at, too.
  const std::uint64_t n = std::max(size, budget.FileSizes());
  EXPECT_LE(cost.calls, MostCalls(n)) << label << ", " << n << " bytes, changes: " << cost.changes;
  EXPECT_LE(cost.moved, MostMoved(n)) << label << ", " << n << " bytes moved";
  EXPECT_LE(cost.memory, MostMemory(n) + budget.moreMemory) << label << ", " << n << " bytes";
  EXPECT_TRUE(cost.changes == 0 || !budget.readOnly) << label << " writes";
}

}  // namespace aostorage::testing
