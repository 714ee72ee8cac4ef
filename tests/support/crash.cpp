#include "support/crash.h"

#include <algorithm>
#include <set>

namespace aostorage::testing {
namespace {

void Apply(Bytes& state, const RecordedWrite& write, std::size_t count) {
  const auto offset = static_cast<std::size_t>(write.offset);
  if (state.size() < offset + count) state.resize(offset + count);
  std::copy_n(write.bytes.begin(), count, state.begin() + static_cast<std::ptrdiff_t>(offset));
}

}  // namespace

void ReplayWrites(const Bytes& before, const std::vector<RecordedWrite>& writes,
                  const std::function<void(const Bytes&, std::size_t)>& check) {
  Bytes state = before;
  check(state, 0);
  for (std::size_t i = 0; i < writes.size(); ++i) {
    const std::size_t size = writes[i].bytes.size();
    if (writes[i].offset + size > state.size()) {
      // Borders of the records that can stand at the start of an appended piece.
      for (const std::size_t part :
           std::set<std::size_t>{1, 4, 19, 20, 21, 80, size / 2, size - 1}) {
        if (part == 0 || part >= size) continue;
        Bytes torn = state;
        Apply(torn, writes[i], part);
        check(torn, i);
      }
    }
    Apply(state, writes[i], size);
    check(state, i + 1);
  }
}

}  // namespace aostorage::testing
