/// @file
/// How much of a proof a run does, and which part of it.
#ifndef AOSTORAGE_TESTS_SUPPORT_SIZE_H_
#define AOSTORAGE_TESTS_SUPPORT_SIZE_H_

#include <cstdlib>
#include <cstring>

namespace aostorage::testing {

/// Whether everything is to be tried, for as long as it takes: AOSTORAGE_TEST_SIZE is "full".
inline bool FullSize() {
  const char* size = std::getenv("AOSTORAGE_TEST_SIZE");
  return size != nullptr && std::strcmp(size, "full") == 0;
}

/// Whether each call costs several times as much as elsewhere.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

/// Picks the points of a proof: all of them in full size, else every `stride`-th, from another one
/// on for each seed.
class Points {
 public:
  Points(std::size_t quickStride, unsigned seed)
      : stride(FullSize() ? 1 : quickStride), next(seed % stride) {}
  bool Take() {
    if (next-- != 0) return false;
    next = stride - 1;
    ++taken;
    return true;
  }
  std::size_t Taken() const { return taken; }

 private:
  std::size_t stride, next, taken = 0;
};

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_SIZE_H_
