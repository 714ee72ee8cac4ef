#include "support/allocations.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t allocationsLeft = 0;  // 0: none fails
thread_local bool allocationFailed = false;

}  // namespace

void* operator new(std::size_t size) {
  if (allocationsLeft > 0 && --allocationsLeft == 0) {
    allocationFailed = true;
    throw std::bad_alloc();
  }
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

namespace aostorage::testing {

FailAllocation::FailAllocation(std::size_t k) {
  allocationFailed = false;
  allocationsLeft = k;
}

FailAllocation::~FailAllocation() { allocationsLeft = 0; }

bool FailAllocation::Fired() const { return allocationFailed; }

}  // namespace aostorage::testing
