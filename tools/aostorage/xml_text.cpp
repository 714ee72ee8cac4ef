#include "xml_text.h"

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "shown.h"

namespace aotool {
namespace {

// Of well-formed UTF-8.
std::size_t LengthOfCharacter(char lead) {
  const auto byte = static_cast<unsigned char>(lead);
  return byte < 0xC0 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

// In parts of the font's size; letters from U+0800 on may be as wide as high.
double WidthOf(char lead) {
  const auto byte = static_cast<unsigned char>(lead);
  if (byte >= 0xE0) return 1.0;
  if (byte >= 'A' && byte <= 'Z') return 0.68;
  if (byte == 'm' || byte == 'w' || byte == '<' || byte == '>') return 0.85;
  return byte >= '0' && byte <= '9' ? 0.64 : 0.57;
}

}  // namespace

std::string XmlText(std::string_view bytes) { return XmlTextOfShown(Shown(bytes)); }

std::string XmlTextOfShown(std::string_view shown) {
  std::string text;
  for (const char letter : shown) {
    switch (letter) {
      case '&':
        text += "&amp;";
        break;
      case '<':
        text += "&lt;";
        break;
      case '>':
        text += "&gt;";
        break;
      case '"':
        text += "&quot;";
        break;
      case '\'':
        text += "&#39;";
        break;
      default:
        text += letter;
    }
  }
  return text;
}

std::string CutToWidth(std::string_view bytes, double width, double fontSize) {
  const std::string shown = Shown(bytes);
  constexpr const char* kDots = "\xE2\x80\xA6";
  double used = 0;
  std::size_t fits = 0;  // with the dots behind it
  for (std::size_t i = 0; i < shown.size(); i += LengthOfCharacter(shown[i])) {
    if (used + fontSize <= width) fits = i;
    used += WidthOf(shown[i]) * fontSize;
    if (used > width) return fits < 3 ? std::string() : shown.substr(0, fits) + kDots;
  }
  return shown;
}

double WidthOfText(std::string_view shown, double fontSize) {
  double width = 0;
  for (std::size_t i = 0; i < shown.size(); i += LengthOfCharacter(shown[i]))
    width += WidthOf(shown[i]) * fontSize;
  return width;
}

std::string ShortSize(std::uint64_t bytes) {
  constexpr const char* kUnits[] = {"bytes", "kB", "MB", "GB"};
  auto value = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (value >= 999.95 && unit < 3) {
    value /= 1000;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", value, kUnits[unit]);
  return text;
}

std::string Pixels(double value) {
  const long tenths = std::lround(value * 10);
  std::string text = tenths < 0 ? "-" : "";
  const long size = std::labs(tenths);
  text += std::to_string(size / 10);
  if (size % 10 != 0) text += "." + std::to_string(size % 10);
  return text;
}

}  // namespace aotool
