#include "maintenance/copy_seal.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace aostorage::detail {
namespace {

constexpr std::size_t kWord = sizeof(std::uint64_t);

std::uint64_t LoadWord(const std::uint8_t* data, std::size_t count) {
  std::uint64_t word = 0;
  std::memcpy(&word, data, count);
  return word;
}

// The turn brings what a multiplication drives to the top back to the bottom.
std::uint64_t Step(std::uint64_t lane, std::uint64_t word) {
  constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15;
  lane ^= word;
  return ((lane << 29) | (lane >> 35)) * kOdd;
}

}  // namespace

bool CopySeal::Copied(const tag_aoStream& header, const std::uint8_t* data, std::uint32_t size) {
  Mix(IsFolderKind(header) ? kFolder : kPlain);
  MixBytes(reinterpret_cast<const std::uint8_t*>(header.name), std::strlen(header.name));
  MixBytes(data, size);
  return true;
}

void CopySeal::Mix(std::uint64_t word) { seal = Step(seal, word); }

// The lanes stand side by side, so that the processor need not wait for one multiplication before
// the next.
void CopySeal::MixBytes(const std::uint8_t* data, std::size_t size) {
  Mix(size);
  std::array<std::uint64_t, 8> lanes{};
  constexpr std::size_t kStride = kWord * lanes.size();
  for (; size >= kStride; size -= kStride) {
    for (std::size_t lane = 0; lane < lanes.size(); ++lane)
      lanes[lane] = Step(lanes[lane], LoadWord(data + kWord * lane, kWord));
    data += kStride;
  }
  for (const std::uint64_t lane : lanes) Mix(lane);
  for (; size > 0; size -= std::min(size, kWord)) {
    Mix(LoadWord(data, std::min(size, kWord)));
    data += std::min(size, kWord);
  }
}

}  // namespace aostorage::detail
