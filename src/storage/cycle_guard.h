// Bounds a walk over links that are stored in the file.
#ifndef AOSTORAGE_STORAGE_CYCLE_GUARD_H_
#define AOSTORAGE_STORAGE_CYCLE_GUARD_H_

#include <cstdint>

namespace aostorage::detail {

// Notices that a walk goes round in a circle, in constant memory and without a look at the file: it
// keeps one offset that was passed and replaces it at distances that double. A circle of n links is
// noticed within three rounds; a sound chain, which has no offset twice, is never stopped.
class CycleGuard {
 public:
  CycleGuard() = default;
  explicit CycleGuard(std::uint32_t startOffset) : mark(startOffset) {}

  // False when `offset` was passed before.
  [[nodiscard]] bool Pass(std::uint32_t offset) {
    if (offset == mark) return false;
    if (++steps == span) {
      mark = offset;
      steps = 0;
      span *= 2;
    }
    return true;
  }

 private:
  std::uint32_t mark = 0;
  std::uint32_t steps = 0;
  std::uint32_t span = 1;
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_STORAGE_CYCLE_GUARD_H_
