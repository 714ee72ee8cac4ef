#include "support/allocations.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t allocationsLeft = 0;  // 0: none fails
thread_local std::size_t allocationsMade = 0;
thread_local std::ptrdiff_t allocationsLiving = 0;
thread_local bool allocationFailed = false, failsForEver = false, spared = false;

bool FailsNow() {
  if (spared) return false;
  ++allocationsMade;
  if (allocationsLeft == 0 || --allocationsLeft > 0) return false;
  if (failsForEver) allocationsLeft = 1;
  allocationFailed = true;
  return true;
}

thread_local std::ptrdiff_t bytesHeld = 0, mostBytesHeld = 0;

void* Weighed(void* memory) {
  if (memory == nullptr) return memory;
  bytesHeld += static_cast<std::ptrdiff_t>(malloc_usable_size(memory));
  mostBytesHeld = std::max(mostBytesHeld, bytesHeld);
  return memory;
}

void* Counted(void* memory) {
  if (memory != nullptr) ++allocationsLiving;
  return Weighed(memory);
}

}  // namespace

// The linker gives these to whoever calls calloc, realloc and free, the library included.
extern "C" {
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* memory, std::size_t size);
void __real_free(void* memory);

void* __wrap_calloc(std::size_t count, std::size_t size) {
  return FailsNow() ? nullptr : Counted(__real_calloc(count, size));
}
void* __wrap_realloc(void* memory, std::size_t size) {
  if (FailsNow()) return nullptr;
  const auto before = memory == nullptr ? 0 : malloc_usable_size(memory);
  void* const moved = __real_realloc(memory, size);
  if (memory == nullptr) return Counted(moved);
  if (moved != nullptr) bytesHeld -= static_cast<std::ptrdiff_t>(before);
  return Weighed(moved);
}
void __wrap_free(void* memory) {
  if (memory != nullptr) --allocationsLiving;
  if (memory != nullptr) bytesHeld -= static_cast<std::ptrdiff_t>(malloc_usable_size(memory));
  __real_free(memory);
}
}

void* operator new(std::size_t size) {
  if (FailsNow()) throw std::bad_alloc();
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return Counted(memory);
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

namespace aostorage::testing {

FailAllocation::FailAllocation(std::size_t k, bool forEver) {
  allocationFailed = false;
  failsForEver = forEver;
  allocationsLeft = k;
}
FailAllocation::~FailAllocation() { allocationsLeft = 0; }
bool FailAllocation::Fired() const { return allocationFailed; }

SpareAllocations::SpareAllocations() : before(spared) { spared = true; }
SpareAllocations::~SpareAllocations() { spared = before; }

std::size_t AllocationsMade() { return allocationsMade; }
std::ptrdiff_t AllocationsLiving() { return allocationsLiving; }

MeasureMemory::MeasureMemory() : before(bytesHeld) { mostBytesHeld = bytesHeld; }
std::size_t MeasureMemory::Peak() const { return static_cast<std::size_t>(mostBytesHeld - before); }

}  // namespace aostorage::testing
