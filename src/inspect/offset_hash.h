// Offsets as keys of hash tables.
#ifndef AOSTORAGE_INSPECT_OFFSET_HASH_H_
#define AOSTORAGE_INSPECT_OFFSET_HASH_H_

#include <cstddef>
#include <cstdint>

namespace aostorage::detail {

// Offsets are a file's choice: neighbours, or multiples of anything, must not fall together.
struct OffsetHash {
  std::size_t operator()(std::uint32_t offset) const {
    constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15U;
    return static_cast<std::size_t>(offset * kOdd >> 32);
  }
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_INSPECT_OFFSET_HASH_H_
