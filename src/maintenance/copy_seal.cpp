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

}  // namespace

bool CopySeal::Copied(const tag_aoStream& header, const std::uint8_t* data, std::uint32_t size) {
  Mix(IsFolderKind(header) ? kFolder : kPlain);
  MixBytes(reinterpret_cast<const std::uint8_t*>(header.name), std::strlen(header.name));
  MixBytes(data, size);
  return true;
}

void CopySeal::Mix(std::uint64_t word) {
  constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15;
  seal = (seal ^ word) * kOdd;
  seal ^= seal >> 32;
}

// Each lane has the sum of its words, and the sum of those sums, which tells their order. Sums are
// as fast as the memory; the multiplications come once for each stream.
void CopySeal::MixBytes(const std::uint8_t* data, std::size_t size) {
  Mix(size);
  std::array<std::uint64_t, 4> sums{}, sumsOfSums{};
  for (; size >= kWord * sums.size(); size -= kWord * sums.size()) {
    for (std::size_t lane = 0; lane < sums.size(); ++lane) {
      sums[lane] += LoadWord(data + kWord * lane, kWord);
      sumsOfSums[lane] += sums[lane];
    }
    data += kWord * sums.size();
  }
  for (const std::uint64_t sum : sums) Mix(sum);
  for (const std::uint64_t sum : sumsOfSums) Mix(sum);
  for (; size > 0; size -= std::min(size, kWord)) {
    Mix(LoadWord(data, std::min(size, kWord)));
    data += std::min(size, kWord);
  }
}

}  // namespace aostorage::detail
