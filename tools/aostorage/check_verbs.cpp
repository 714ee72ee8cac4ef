// check on the command line.

#include "check_command.h"
#include "verb_parser.h"

namespace aotool {

void AddCheckVerbs(Verbs& verbs) {
  auto check = std::make_shared<CheckOptions>();
  verbs
      .Add(
          {"check", "List what is wrong in a store",
           "aostorage check notes.aos\n"
           "aostorage check --strict --notes notes.aos\n"
           "aostorage check --json notes.aos | jq '.findings[] | select(.severity == \"error\")'\n",
           "An error tells of bytes that are lost or will be, a warning of something that no "
           "sound\n"
           "store has but that hurts nobody, a note of space that nothing uses or of an operation\n"
           "that was broken off. The exit code is 1 when there are errors."},
          check, &Check)
      .Flag("--strict", check->strict, "exit code 1 for warnings as well")
      .Flag("--notes", check->notes, "list the notes too, instead of counting them")
      .Json(*check);
}

}  // namespace aotool
