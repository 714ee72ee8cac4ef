// ls, tree, info on the command line.

#include "verb_parser.h"

namespace aotool {

void AddListVerbs(Verbs& verbs) {
  auto list = std::make_shared<ListOptions>();
  verbs
      .Add({"ls", "List the root streams or a folder",
            "aostorage ls notes.aos\n"
            "aostorage ls -l --durations notes.aos letters\n"
            "aostorage ls --json notes.aos | jq -r '.streams[].name'\n"},
           list, &List)
      .Path(*list, "the folder, or a single stream; default: the root", Need::kOptional)
      .Flag("-l", list->details, "also kind (d: a folder) and length in bytes")
      .Choice("--sort", list->order, {"name", "none", "slot"},
              "name; slot: the order in the file; none: as the store has them at hand")
      .Flag("--durations", list->durations,
            "also the duration in seconds; at the root estimated where a stream has none and "
            "its name is a time in eight hexadecimal digits")
      .Json(*list);

  auto tree = std::make_shared<CommonOptions>();
  verbs
      .Add({"tree", "Show everything below the root or a folder",
            "aostorage tree notes.aos\n"
            "aostorage tree notes.aos letters\n"
            "aostorage tree --json notes.aos | jq '[.entries[].length] | add'\n"},
           tree, &Tree)
      .Path(*tree, "the folder; default: the root", Need::kOptional)
      .Json(*tree);

  auto info = std::make_shared<CommonOptions>();
  verbs
      .Add({"info", "Tell what a store holds",
            "aostorage info notes.aos\n"
            "aostorage info --json notes.aos | jq .streamBytes\n"},
           info, &Info)
      .Json(*info);
}

}  // namespace aotool
