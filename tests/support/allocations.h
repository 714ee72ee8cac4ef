/// @file
/// Lets allocations of this thread fail.
#ifndef AOSTORAGE_TESTS_SUPPORT_ALLOCATIONS_H_
#define AOSTORAGE_TESTS_SUPPORT_ALLOCATIONS_H_

#include <cstddef>

namespace aostorage::testing {

/// While it lives, the k-th allocation on this thread, counted from 1, fails: by `new`, by calloc
/// or by realloc.
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
