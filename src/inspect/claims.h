// Which bytes of the file belong to a record already.
#ifndef AOSTORAGE_INSPECT_CLAIMS_H_
#define AOSTORAGE_INSPECT_CLAIMS_H_

#include <cstdint>
#include <map>

namespace aostorage::detail {

// A set of bytes, kept as stretches: records that lie side by side are one stretch, so that a file
// without gaps costs next to nothing.
class Claims {
 public:
  // True when no byte of the stretch is claimed; then all are.
  [[nodiscard]] bool Claim(std::uint64_t begin, std::uint64_t end) {
    if (!IsFree(begin, end)) return false;
    auto next = stretches.lower_bound(begin);
    if (next != stretches.end() && next->first == end) {
      end = next->second;
      next = stretches.erase(next);
    }
    if (next != stretches.begin()) {
      if (auto before = next; (--before)->second == begin) {
        before->second = end;
        return true;
      }
    }
    stretches.emplace_hint(next, begin, end);
    return true;
  }

  bool IsFree(std::uint64_t begin, std::uint64_t end) const {
    const auto next = stretches.lower_bound(begin);
    if (next != stretches.end() && next->first < end) return false;
    if (next == stretches.begin()) return true;
    auto before = next;
    return (--before)->second <= begin;
  }

  // Calls take(begin, end) for each stretch below `size` that is not claimed.
  template <typename Take>
  void ForEachGap(std::uint64_t size, Take take) const {
    std::uint64_t at = 0;
    for (const auto& [begin, end] : stretches) {
      if (begin >= size) break;
      if (begin > at) take(at, begin);
      at = end;
    }
    if (at < size) take(at, size);
  }

 private:
  std::map<std::uint64_t, std::uint64_t> stretches;  // begin to end
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_INSPECT_CLAIMS_H_
