// stat, map on the command line.

#include "picture_commands.h"
#include "verb_parser.h"

namespace aotool {

void AddPictureVerbs(Verbs& verbs) {
  auto stat = std::make_shared<StatOptions>();
  verbs
      .Add({"stat", "Tell where the bytes of a store are",
            "aostorage stat notes.aos\n"
            "aostorage stat --top 20 notes.aos\n"
            "aostorage stat --json notes.aos | jq .compact.givenBack\n",
            "A fragment is a run of blocks of one stream that lie directly behind each other. The\n"
            "lists are of streams that a name leads to."},
           stat, &Stat)
      .Number("--top", stat->top, 0, 1000, "streams in each list")
      .Json(*stat);

  auto map = std::make_shared<MapOptions>();
  verbs
      .Add({"map", "Show a store as a picture, byte by byte",
            "aostorage map notes.aos\n"
            "aostorage map --svg notes.svg notes.aos\n"
            "aostorage map --html notes.html notes.aos\n"
            "aostorage map --json notes.aos | jq '.records[] | select(.state == \"orphan\")'\n",
            "FILE may be - for standard output. A FILE that is there already is replaced, the\n"
            "store itself never. The picture and the page load nothing from elsewhere."},
           map, &Map)
      .Option("--svg", map->svg, "FILE",
              "write a picture: the blocks with the jumps of each chain, and the tree by bytes")
      .Option("--html", map->html, "FILE", "write the picture as a page that can be searched")
      .Json(*map)
      .Excludes("--json", "--svg")
      .Excludes("--json", "--html");
}

}  // namespace aotool
