// Stores as text, compared, and looked at record by record.
#ifndef AOSTORAGE_TOOLS_TEXT_VERBS_H_
#define AOSTORAGE_TOOLS_TEXT_VERBS_H_

#include <cstdint>
#include <string>

#include "verbs.h"

namespace aotool {

struct DumpOptions : CommonOptions {
  std::string file;  // "-" and "": standard output
};
void Dump(const DumpOptions& options, Report& report);

struct LoadOptions : CommonOptions {
  std::string file;  // "-" and "": standard input
  bool force = false;
};
void Load(const LoadOptions& options, Report& report);

struct DiffOptions : CommonOptions {
  std::string other;
  bool quiet = false;
  bool ignoreDurations = false;
};
// Every failure is a kFailure: 1 stands for differences alone, and so 2 for all trouble.
void Diff(const DiffOptions& options, Report& report);

void Blocks(const CommonOptions& options, Report& report);

struct HexdumpOptions : CommonOptions {
  std::uint32_t offset = 0;
  std::uint32_t length = 0xFFFFFFFF;
  bool all = false;  // no data is left out
};
void Hexdump(const HexdumpOptions& options, Report& report);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_TEXT_VERBS_H_
