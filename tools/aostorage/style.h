// Colour in what is printed.
#ifndef AOSTORAGE_TOOLS_STYLE_H_
#define AOSTORAGE_TOOLS_STYLE_H_

#include <unistd.h>

#include <string>
#include <string_view>

namespace aotool {

// What --color asks for. kAuto: where the output is a terminal that is not dumb, and the
// environment variable NO_COLOR is missing or empty.
enum class ColorRule { kAuto, kAlways, kNever };

enum class Tint { kBold, kDim, kRed, kGreen, kYellow, kBlue, kMagenta, kCyan, kFolder };

// Paints text, or leaves it as it is. Make one for each run of a verb:
//   const Style style(options.color);
//   Print(style.Paint(Tint::kFolder, Shown(name)) + "\n");
// Pad a column before painting it: the colour codes count as letters.
class Style {
 public:
  explicit Style(ColorRule rule, int output = STDOUT_FILENO);

  bool IsOn() const { return on; }
  std::string Paint(Tint tint, std::string_view text) const;

 private:
  bool on;
};

// A terminal that understands more than letters.
bool IsCapableTerminal(int descriptor);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_STYLE_H_
