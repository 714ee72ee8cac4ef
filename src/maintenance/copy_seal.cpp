#include "maintenance/copy_seal.h"

#include <algorithm>
#include <cstring>

namespace aostorage::detail {

bool CopySeal::Copied(const tag_aoStream& header, const std::uint8_t* data, std::uint32_t size) {
  Mix(IsFolderKind(header) ? kFolder : kPlain);
  MixBytes(reinterpret_cast<const std::uint8_t*>(header.name), std::strlen(header.name));
  Mix(size);
  MixBytes(data, std::min(size, kHeadSize));
  return true;
}

// The turn brings what a multiplication drives to the top back to the bottom.
void CopySeal::Mix(std::uint64_t word) {
  constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15;
  seal ^= word;
  seal = ((seal << 29) | (seal >> 35)) * kOdd;
}

void CopySeal::MixBytes(const std::uint8_t* data, std::size_t size) {
  Mix(size);
  while (size > 0) {
    std::uint64_t word = 0;
    const std::size_t count = std::min(size, sizeof(word));
    std::memcpy(&word, data, count);
    Mix(word);
    data += count;
    size -= count;
  }
}

}  // namespace aostorage::detail
