#include "support/meter.h"

#include <sys/stat.h>

#include <algorithm>

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

namespace aostorage::fuzz {
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

std::uint64_t Meter::FileSizes() {
  if (calls.changes != sizesAfter) {
    sizesAfter = calls.changes;
    sizes = 0;
    for (const std::string& path : paths) {
      struct stat state {};
      if (stat(path.c_str(), &state) == 0) sizes += static_cast<std::uint64_t>(state.st_size);
    }
  }
  return sizes;
}

Meter::Limit::Limit(Meter& owner, const char* operationLabel)
    : meter(owner), label(operationLabel), size(meter.FileSizes()), before(calls), memory(heap) {
  heapPeak = heap;
}

Meter::Limit::~Limit() {
  const auto taken = static_cast<std::uint64_t>(std::max<std::int64_t>(heapPeak - memory, 0));
  const std::uint64_t n = std::max(size, meter.FileSizes());
  const std::uint64_t made = calls.all - before.all, moved = calls.moved - before.moved;
  if (made <= 64 + n / 16 && moved <= 65536 + 16 * n && taken <= 1048576 + 4 * n) return;
  Require(false, label,
          "on " + std::to_string(n) + " bytes: " + std::to_string(made) + " calls, " +
              std::to_string(calls.changes - before.changes) + " of them changes, " +
              std::to_string(moved) + " bytes moved, " + std::to_string(taken) +
              " bytes of memory");
}

}  // namespace aostorage::fuzz
