#include "shown.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>

namespace aotool {
namespace {

struct Character {
  std::uint32_t codePoint = 0;
  std::size_t length = 0;  // in bytes; 0: none begins there
};

struct Range {
  std::uint32_t first, last;
};

constexpr Range kUnfit[] = {
    {0x0000, 0x001F},    // C0 controls
    {'\\', '\\'},        // begins an escape
    {0x007F, 0x009F},    // DEL, C1 controls
    {0x00AD, 0x00AD},    // soft hyphen
    {0x034F, 0x034F},    // joins without a trace
    {0x061C, 0x061C},    // turns the direction
    {0x115F, 0x1160},    // fillers without a glyph
    {0x17B4, 0x17B5},    // vowels without a glyph
    {0x180B, 0x180F},    // selectors and a separator without a glyph
    {0x200B, 0x200F},    // zero-width ones, direction marks
    {0x2028, 0x202E},    // line and paragraph ends, embedding and overriding of the direction
    {0x2060, 0x206F},    // zero-width ones, isolation of the direction
    {0x3164, 0x3164},    // a filler without a glyph
    {0xFE00, 0xFE0F},    // selectors without a glyph
    {0xFEFF, 0xFEFF},    // zero-width no-break space
    {0xFFA0, 0xFFA0},    // a filler without a glyph
    {0xFFF0, 0xFFFB},    // annotations without a glyph
    {0xFFFE, 0xFFFF},    // no characters, and refused by readers of XML
    {0x1D173, 0x1D17A},  // controls of musical notes
    {0xE0000, 0xE0FFF},  // tags and selectors without a glyph
};

unsigned char ByteAt(std::string_view text, std::size_t index) {
  return static_cast<unsigned char>(text[index]);
}

Character CharacterAt(std::string_view text, std::size_t start) {
  const unsigned char lead = ByteAt(text, start);
  if (lead < 0x80) return {lead, 1};
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || start + length > text.size()) return {};
  std::uint32_t codePoint = lead & (0xFFU >> (length + 1));
  for (std::size_t i = start + 1; i < start + length; ++i) {
    if ((ByteAt(text, i) & 0xC0U) != 0x80) return {};
    codePoint = codePoint << 6 | (ByteAt(text, i) & 0x3FU);
  }
  constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};  // by length
  if (codePoint < kSmallest[length] || codePoint > 0x10FFFF) return {};
  if (codePoint >= 0xD800 && codePoint <= 0xDFFF) return {};
  return {codePoint, length};
}

bool IsFit(std::uint32_t codePoint) {
  return std::none_of(std::begin(kUnfit), std::end(kUnfit), [&](const Range& range) {
    return codePoint >= range.first && codePoint <= range.last;
  });
}

void AppendEscaped(std::string& text, std::string_view bytes) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, "\\x%02X", ByteAt(bytes, i));
    text += escaped;
  }
}

}  // namespace

std::string Shown(std::string_view name) {
  std::string shown;
  for (std::size_t i = 0; i < name.size();) {
    const Character character = CharacterAt(name, i);
    const std::string_view bytes = name.substr(i, character.length != 0 ? character.length : 1);
    if (character.length != 0 && IsFit(character.codePoint)) {
      shown += bytes;
    } else {
      AppendEscaped(shown, bytes);
    }
    i += bytes.size();
  }
  return shown;
}

bool IsUtf8(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    const Character character = CharacterAt(text, i);
    if (character.length == 0) return false;
    i += character.length;
  }
  return true;
}

}  // namespace aotool
