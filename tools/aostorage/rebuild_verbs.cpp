// compact, upgrade on the command line.

#include "verb_parser.h"

namespace aotool {
namespace {

constexpr const char* kNotes =
    "The new store is made in a file beside the old one, with _tmp at the end of its name, read\n"
    "back and put in place in one step. All durations become 0, and streams of reserved slots\n"
    "ordinary ones. A store that cannot be carried whole stays as it is.";

constexpr const char* kDropHidden = "--drop-hidden";
constexpr const char* kDropHiddenText =
    "leave root streams behind that a later one of the same name hides";

}  // namespace

void AddRebuildVerbs(Verbs& verbs) {
  auto compact = std::make_shared<RebuildOptions>();
  verbs
      .Add({"compact", "Rebuild a store without gaps and removed streams",
            "aostorage compact notes.aos\n"
            "aostorage compact notes.aos --output small.aos\n",
            kNotes},
           compact, &Compact)
      // Not an empty string when missing: an empty FILE must not mean the store itself.
      .Option(
          "--output", [compact](const std::string& file) { compact->output = file; }, "FILE",
          "the file for the new store; the old one stays. Default: in its place")
      .Flag("--force", compact->force, "replace a file that is there already")
      .Needs("--force", "--output")
      .Flag(kDropHidden, compact->dropHidden, kDropHiddenText);

  auto upgrade = std::make_shared<RebuildOptions>();
  verbs
      .Add({"upgrade", "Rebuild a store of the older form in the current one",
            "aostorage upgrade old.aos\n", kNotes},
           upgrade, &Upgrade)
      .Flag(kDropHidden, upgrade->dropHidden, kDropHiddenText);
}

}  // namespace aotool
