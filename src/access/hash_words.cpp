#include <cstddef>

#include <aostorage/hash_words.h>

#include "platform/last_error.h"
#include "storage/records.h"

namespace aostorage {
namespace {

constexpr std::size_t kShiftWord = 4;
constexpr std::size_t kMaskWord = 11;
constexpr std::uint32_t kShiftBits = 0x1F;

void Refuse(const char* operationName) {
  const detail::Operation operation(operationName);
  detail::Fail(ErrorCode::kBadArgument);
}

}  // namespace

std::uint32_t HashLoadHashWord(const void* p) {
  if (p == nullptr) return Refuse("HashLoadHashWord"), 0;
  return detail::Load32(static_cast<const std::uint8_t*>(p));
}

void HashStoreHashWord(void* p, std::uint32_t value) {
  if (p == nullptr) {
    Refuse("HashStoreHashWord");
  } else {
    detail::Store32(static_cast<std::uint8_t*>(p), value);
  }
}

std::uint32_t FormHashIndexDword(const void* p, std::uint32_t value) {
  if (p == nullptr) return Refuse("FormHashIndexDword"), 0;
  const auto* words = static_cast<const std::uint8_t*>(p);
  const std::uint32_t shift = detail::Load32(words + 4 * kShiftWord) & kShiftBits;
  return (value >> shift) & detail::Load32(words + 4 * kMaskWord);
}

}  // namespace aostorage
