// Names on terminals. A name is any run of bytes: it could move the cursor or turn the direction of
// what stands behind it.
#ifndef AOSTORAGE_TOOLS_SHOWN_H_
#define AOSTORAGE_TOOLS_SHOWN_H_

#include <string>
#include <string_view>

namespace aotool {

// A name fit for one line of a terminal: control characters, characters that turn the direction of
// writing or that nobody sees, backslashes, and bytes that are no UTF-8 are written as \xHH, byte
// by byte. Two names never look the same.
std::string Shown(std::string_view name);

// True when all of it is well-formed UTF-8: no overlong form, no surrogate.
bool IsUtf8(std::string_view text);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_SHOWN_H_
