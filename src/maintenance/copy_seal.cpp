#include "maintenance/copy_seal.h"

#include <cstring>

namespace aostorage::detail {
namespace {

std::uint64_t Step(std::uint64_t lane, std::uint64_t word) {
  constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15;
  lane = (lane ^ word) * kOdd;
  return lane ^ (lane >> 32);
}

}  // namespace

bool CopySeal::Copied(const tag_aoStream& header, const std::uint8_t* data, std::uint32_t size) {
  Mix(IsFolderKind(header) ? kFolder : kPlain);
  MixBytes(reinterpret_cast<const std::uint8_t*>(header.name), std::strlen(header.name));
  MixBytes(data, size);
  return true;
}

void CopySeal::Mix(std::uint64_t word) {
  lanes[0] = Step(lanes[0], word);
  // The lanes change places, so that they stand for each other.
  lanes = {lanes[1], lanes[2], lanes[3], lanes[0]};
}

void CopySeal::MixBytes(const std::uint8_t* data, std::size_t size) {
  Mix(size);
  constexpr std::size_t kWord = sizeof(std::uint64_t);
  for (; size >= kWord * lanes.size(); size -= kWord * lanes.size()) {
    for (std::uint64_t& lane : lanes) {
      std::uint64_t word = 0;
      std::memcpy(&word, data, kWord);
      lane = Step(lane, word);
      data += kWord;
    }
  }
  while (size > 0) {
    std::uint64_t word = 0;
    const std::size_t count = size < kWord ? size : kWord;
    std::memcpy(&word, data, count);
    Mix(word);
    data += count;
    size -= count;
  }
}

}  // namespace aostorage::detail
