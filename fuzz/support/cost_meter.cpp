// Of the fuzz targets: the calls that the linker leads here, and the memory that the sanitizer
// sees.
#include <algorithm>

#include "support/budget.h"
#include "support/calls.h"

#if defined(__SANITIZE_ADDRESS__)
#define AOSTORAGE_FUZZ_WITH_ASAN
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define AOSTORAGE_FUZZ_WITH_ASAN
#endif
#endif
#ifdef AOSTORAGE_FUZZ_WITH_ASAN
// g++ has the functions, but not the header.
extern "C" {
int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, std::size_t),
                                              void (*)(const volatile void*));
std::size_t __sanitizer_get_allocated_size(const volatile void*);
}
#endif

namespace aostorage::testing {
namespace {

// Bytes on the heap, and the most since it was last set to `heap`. Only known under the sanitizer.
std::int64_t heap = 0, heapPeak = 0;

#ifdef AOSTORAGE_FUZZ_WITH_ASAN
void Allocated(const volatile void*, std::size_t size) {
  heap += static_cast<std::int64_t>(size);
  heapPeak = std::max(heapPeak, heap);
}
void Freed(const volatile void* memory) {
  if (memory == nullptr) return;
  heap -= static_cast<std::int64_t>(__sanitizer_get_allocated_size(memory));
}
[[maybe_unused]] const int hooks = __sanitizer_install_malloc_and_free_hooks(Allocated, Freed);
#endif

}  // namespace

struct CostMeter::Counters {
  const fuzz::CallCounts before = fuzz::calls;
  const std::int64_t memory = heapPeak = heap;
};

CostMeter::CostMeter() : counters(std::make_unique<Counters>()) {}
CostMeter::~CostMeter() = default;

Cost CostMeter::Taken() const {
  const fuzz::CallCounts& before = counters->before;
  return {fuzz::calls.all - before.all, fuzz::calls.changes - before.changes,
          fuzz::calls.moved - before.moved,
          static_cast<std::uint64_t>(std::max<std::int64_t>(heapPeak - counters->memory, 0))};
}

}  // namespace aostorage::testing
