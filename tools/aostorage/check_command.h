// check
#ifndef AOSTORAGE_TOOLS_CHECK_COMMAND_H_
#define AOSTORAGE_TOOLS_CHECK_COMMAND_H_

#include "verbs.h"

namespace aotool {

struct CheckOptions : CommonOptions {
  bool strict = false;  // warnings count as well
  bool notes = false;   // notes are listed, not only counted
};
void Check(const CheckOptions& options, Report& report);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_CHECK_COMMAND_H_
