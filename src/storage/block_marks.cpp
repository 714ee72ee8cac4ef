#include "storage/block_marks.h"

#include <algorithm>
#include <new>

namespace aostorage::detail {

void BlockMarks::Note(const ChainCursor& atStart) noexcept {
  if (atStart.steps != kFirstStep + marks.size() * stride) return;
  if (marks.size() == kMost) {
    for (std::size_t i = 0; i < kMost / 2; ++i) marks[i] = marks[2 * i];
    marks.resize(kMost / 2);
    stride *= 2;
  }
  try {
    marks.push_back({atStart.position, atStart.block});
  } catch (const std::bad_alloc&) {
    // The next walk comes by here again.
  }
}

bool BlockMarks::Approach(std::uint32_t position, ChainCursor& cursor) const {
  const auto behind =
      std::lower_bound(marks.begin(), marks.end(), position,
                       [](const Mark& mark, std::uint32_t at) { return mark.position < at; });
  if (behind == marks.begin()) return false;
  const Mark& mark = *(behind - 1);
  cursor = ChainCursor::AtStart(mark.block);
  cursor.position = mark.position;
  cursor.steps = kFirstStep + static_cast<std::uint32_t>(behind - 1 - marks.begin()) * stride;
  return true;
}

}  // namespace aostorage::detail
