// Of the test program: it sees the calls and the allocations of the library itself.
#include "support/allocations.h"
#include "support/budget.h"
#include "support/syscalls.h"

namespace aostorage::testing {

struct CostMeter::Counters {
  Watch watch;
  MeasureMemory memory;
};

CostMeter::CostMeter() : counters(std::make_unique<Counters>()) { counters->watch.ForgetWrites(); }
CostMeter::~CostMeter() = default;

Cost CostMeter::Taken() const {
  const Watch& watch = counters->watch;
  const std::size_t memory = counters->memory.Peak();
  std::uint64_t changes = 0;
  for (const Call call : {Call::kWrite, Call::kRename, Call::kUnlink, Call::kCopy, Call::kTruncate})
    changes += watch.Count(call);
  return {watch.Total(), changes, watch.Moved(), memory};
}

}  // namespace aostorage::testing
