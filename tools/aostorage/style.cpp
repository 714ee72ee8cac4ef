#include "style.h"

#include <cstdlib>

namespace aotool {
namespace {

const char* CodeOf(Tint tint) {
  switch (tint) {
    case Tint::kBold:
      return "\033[1m";
    case Tint::kDim:
      return "\033[2m";
    case Tint::kRed:
      return "\033[31m";
    case Tint::kGreen:
      return "\033[32m";
    case Tint::kYellow:
      return "\033[33m";
    case Tint::kBlue:
      return "\033[34m";
    case Tint::kMagenta:
      return "\033[35m";
    case Tint::kCyan:
      return "\033[36m";
    case Tint::kFolder:
      return "\033[1;34m";
  }
  return "";
}

bool Decide(ColorRule rule, int output) {
  if (rule != ColorRule::kAuto) return rule == ColorRule::kAlways;
  const char* refused = std::getenv("NO_COLOR");
  return (refused == nullptr || *refused == '\0') && IsCapableTerminal(output);
}

}  // namespace

Style::Style(ColorRule rule, int output) : on(Decide(rule, output)) {}

std::string Style::Paint(Tint tint, std::string_view text) const {
  if (!on || text.empty()) return std::string(text);
  return std::string(CodeOf(tint)).append(text).append("\033[0m");
}

bool IsCapableTerminal(int descriptor) {
  const char* terminal = std::getenv("TERM");
  return ::isatty(descriptor) == 1 && terminal != nullptr && std::string_view(terminal) != "dumb";
}

}  // namespace aotool
