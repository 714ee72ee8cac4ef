/// @file
/// Lets allocations of this thread fail.
#ifndef AOSTORAGE_TESTS_SUPPORT_ALLOCATIONS_H_
#define AOSTORAGE_TESTS_SUPPORT_ALLOCATIONS_H_

#include <cstddef>

namespace aostorage::testing {

/// While it lives, the k-th allocation by `new` on this thread, counted from 1, throws bad_alloc.
class FailAllocation {
 public:
  explicit FailAllocation(std::size_t k);
  ~FailAllocation();
  FailAllocation(const FailAllocation&) = delete;
  FailAllocation& operator=(const FailAllocation&) = delete;
  /// Whether it came that far.
  bool Fired() const;
};

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_ALLOCATIONS_H_
