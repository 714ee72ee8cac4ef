// The command line and what it asks for.
#ifndef AOSTORAGE_TOOLS_COMMAND_LINE_H_
#define AOSTORAGE_TOOLS_COMMAND_LINE_H_

#include <functional>

#include "report.h"

namespace aotool {

using Action = std::function<ExitCode()>;

// Sets `chosen` to what is to be done. It stays empty when the command line asks for help or is
// wrong; then that was printed, and the result is the exit code.
ExitCode ParseCommandLine(int argc, char** argv, Action& chosen);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_COMMAND_LINE_H_
