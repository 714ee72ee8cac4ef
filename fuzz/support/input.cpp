#include "support/input.h"

#include <algorithm>

namespace aostorage::fuzz {

std::uint32_t Script::Below(std::uint32_t limit) {
  if (limit <= 1) return 0;
  std::uint32_t value = Byte();
  if (limit > 0x100) value |= static_cast<std::uint32_t>(Byte()) << 8;
  if (limit > 0x10000) value |= static_cast<std::uint32_t>(Byte()) << 16;
  return value % limit;
}

std::uint32_t Script::Word() {
  const std::uint32_t choice = Byte();
  if (choice < 128) return choice;
  if (choice < 192) return BorderWords()[choice % BorderWords().size()];
  std::uint32_t word = 0;
  for (int i = 0; i < (choice < 240 ? 2 : 4); ++i) word = word << 8 | Byte();
  return word;
}

Bytes Script::Data() {
  const std::uint32_t choice = Byte();
  const std::uint32_t count = choice < 240 ? choice % 100 : Below(1000);
  return testing::Pattern(count, choice);
}

std::string Script::Name(const std::vector<std::string>& known) {
  static const std::string fixed[] = {"a", "b",   "box",      std::string(60, 'n'),
                                      "",  "a/b", "00000001", std::string(61, 'x')};
  const std::uint32_t choice = Byte();
  if (choice < 160 && !known.empty()) return known[choice % known.size()];
  return fixed[choice % std::size(fixed)];
}

const std::vector<std::uint32_t>& BorderWords() {
  static const std::vector<std::uint32_t> words = {
      0,          1,          2,          3,          4,          6,          7,
      19,         20,         21,         26,         32,         44,         63,
      64,         65,         80,         100,        5132,       5164,       0xFFFF,
      0x10000,    0x7FFFFFEC, 0x7FFFFFED, 0x7FFFFFFF, 0x80000000, 0x80000001, 0xFFFFFFEC,
      0xFFFFFFFE, 0xFFFFFFFF, 0xFAFAFAFA, 0xFBFBFBFB, 0xFCFCFCFC};
  return words;
}

FileAndScript::FileAndScript(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return;
  const std::size_t told = data[size - 2] | static_cast<std::size_t>(data[size - 1]) << 8;
  const std::size_t count = std::min(told, size - 2);
  file.assign(data, data + (size - 2 - count));
  script.assign(data + (size - 2 - count), data + (size - 2));
}

Bytes FileAndScript::Join(const Bytes& file, const Bytes& script) {
  Bytes all = file;
  const std::size_t count = std::min<std::size_t>(script.size(), 0xFFFF);
  all.insert(all.end(), script.begin(), script.begin() + static_cast<std::ptrdiff_t>(count));
  all.push_back(static_cast<std::uint8_t>(count));
  all.push_back(static_cast<std::uint8_t>(count >> 8));
  return all;
}

}  // namespace aostorage::fuzz
