// The bytes of a store as letters on a terminal.
#ifndef AOSTORAGE_TOOLS_TERMINAL_MAP_H_
#define AOSTORAGE_TOOLS_TERMINAL_MAP_H_

#include <aostorage/inspect.h>

#include "style.h"

namespace aotool {

// At most 80 columns wide and about 30 rows high, with a legend. False when memory ran out or the
// user interrupted it.
bool PrintTerminalMap(const aostorage::Inspection& found, const Style& style);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_TERMINAL_MAP_H_
