// recover on the command line.

#include "recover_command.h"
#include "verb_parser.h"

namespace aotool {

void AddRecoverVerbs(Verbs& verbs) {
  auto recover = std::make_shared<RecoverOptions>();
  verbs
      .Add({"recover", "Write a new store with all that can be read of a damaged one",
            "aostorage recover damaged.aos -o whole.aos\n"
            "aostorage recover damaged.aos -o whole.aos --json > report.json\n",
            "The store itself is never written. What can be reached and is whole goes under its\n"
            "path. Everything else, removed and hidden streams, blocks that nobody reaches and\n"
            "streams of which a part is missing, goes under the folder lost+found, with a\n"
            "report of what each is and why it may be wrong. Exit code 1 tells that something\n"
            "that could once be reached is missing or not whole."},
           recover, &Recover)
      .Option("-o,--output", recover->output, "NEW", "the file for the new store; required")
      .Flag("--force", recover->force, "replace a file that is there already")
      .Json(*recover);
}

}  // namespace aotool
