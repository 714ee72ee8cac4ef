// stat and map: where the bytes of a store are.
#ifndef AOSTORAGE_TOOLS_PICTURE_COMMANDS_H_
#define AOSTORAGE_TOOLS_PICTURE_COMMANDS_H_

#include <cstdint>
#include <string>

#include "report.h"
#include "verbs.h"

namespace aotool {

struct StatOptions : CommonOptions {
  std::uint32_t top = 5;  // streams in each list
};
void Stat(const StatOptions& options, Report& report);

struct MapOptions : CommonOptions {
  std::string svg, html;  // files to write; empty: none
};
void Map(const MapOptions& options, Report& report);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_PICTURE_COMMANDS_H_
