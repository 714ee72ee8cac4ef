#include "names.h"

#include <cstdio>

namespace aotool {
namespace {

// At most `longest` bytes of the name, without half of a character of several bytes at the end.
std::string Cut(const std::string& name, std::size_t longest) {
  if (name.size() <= longest) return name;
  std::size_t end = longest;
  while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0U) == 0x80) --end;
  return name.substr(0, end != 0 ? end : longest);
}

}  // namespace

std::string UsedNames::MakeUnique(const std::string& name, const std::string& ending,
                                  std::size_t longest) {
  std::string candidate = Cut(name, longest - ending.size()) + ending;
  for (unsigned long number = 2; !names.insert(candidate).second; ++number) {
    const std::string suffix = ending + "~" + std::to_string(number);
    candidate = Cut(name, longest - suffix.size()) + suffix;
  }
  return candidate;
}

std::string SafeFileName(const std::string& streamName) {
  const bool dots = streamName == "." || streamName == "..";
  std::string safe;
  for (const char letter : streamName) {
    const auto byte = static_cast<unsigned char>(letter);
    if (byte >= 0x20 && byte != 0x7F && byte != '/' && !dots) {
      safe += letter;
    } else {
      char encoded[8];
      std::snprintf(encoded, sizeof encoded, "%%%02X", byte);
      safe += encoded;
    }
  }
  return safe;
}

}  // namespace aotool
