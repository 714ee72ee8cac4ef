// recover
#ifndef AOSTORAGE_TOOLS_RECOVER_COMMAND_H_
#define AOSTORAGE_TOOLS_RECOVER_COMMAND_H_

#include <string>

#include "verbs.h"

namespace aotool {

struct RecoverOptions : CommonOptions {
  std::string output;  // the file for the new store
  bool force = false;
};
void Recover(const RecoverOptions& options, Report& report);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_RECOVER_COMMAND_H_
