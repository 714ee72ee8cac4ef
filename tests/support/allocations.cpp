#include "support/allocations.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t allocationsLeft = 0;  // 0: none fails
thread_local bool allocationFailed = false;

bool FailsNow() {
  if (allocationsLeft == 0 || --allocationsLeft > 0) return false;
  allocationFailed = true;
  return true;
}

}  // namespace

void* operator new(std::size_t size) {
  if (FailsNow()) throw std::bad_alloc();
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

// The linker gives these to whoever calls calloc and realloc, the library included.
extern "C" {
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* memory, std::size_t size);

void* __wrap_calloc(std::size_t count, std::size_t size) {
  return FailsNow() ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* memory, std::size_t size) {
  return FailsNow() ? nullptr : __real_realloc(memory, size);
}
}

namespace aostorage::testing {

FailAllocation::FailAllocation(std::size_t k) {
  allocationFailed = false;
  allocationsLeft = k;
}

FailAllocation::~FailAllocation() { allocationsLeft = 0; }

bool FailAllocation::Fired() const { return allocationFailed; }

}  // namespace aostorage::testing
