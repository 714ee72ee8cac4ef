/// @file
/// Lets allocations of this thread fail.
#ifndef AOSTORAGE_TESTS_SUPPORT_ALLOCATIONS_H_
#define AOSTORAGE_TESTS_SUPPORT_ALLOCATIONS_H_

#include <cstddef>

namespace aostorage::testing {

/// While it lives, the k-th allocation on this thread, counted from 1, fails: by `new`, by calloc
/// or by realloc; with `forEver` all that follow do, too.
class FailAllocation {
 public:
  explicit FailAllocation(std::size_t k, bool forEver = false);
  ~FailAllocation();
  FailAllocation(const FailAllocation&) = delete;
  FailAllocation& operator=(const FailAllocation&) = delete;
  /// Whether it came that far.
  bool Fired() const;
};

/// While it lives, allocations are the test's own: they neither count nor fail.
class SpareAllocations {
 public:
  SpareAllocations();
  ~SpareAllocations();
  SpareAllocations(const SpareAllocations&) = delete;
  SpareAllocations& operator=(const SpareAllocations&) = delete;

 private:
  bool before;
};

/// How many allocations this thread has made so far, and how many of them are not freed.
std::size_t AllocationsMade();
std::ptrdiff_t AllocationsLiving();

/// How much memory this thread takes from its beginning on.
class MeasureMemory {
 public:
  MeasureMemory();
  /// The most bytes that it held at once, less those that it held before.
  std::size_t Peak() const;

 private:
  std::ptrdiff_t before;
};

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_ALLOCATIONS_H_
