// What the tool makes of any bytes: `check` ends, `recover` writes a sound store that is not much
// larger and never touches its source.
#include <cstdio>

#include <aostorage/error.h>

#include "check_command.h"
#include "recover_command.h"
#include "support/check_file.h"
#include "support/input.h"
#include "support/require.h"
#include "support/scratch.h"
#include "targets/targets.h"

namespace aostorage::fuzz {
namespace {

// The verbs print; nobody reads it here.
void PrintNothing() {
  static const bool done = std::freopen("/dev/null", "w", stdout) != nullptr;
  Require(done, "standard output cannot be led away");
}

void CheckWith(const std::string& path, bool json) {
  aotool::CheckOptions options;
  options.store = path;
  options.strict = options.notes = true;
  options.json = json;
  aotool::Report report(path);
  aotool::Check(options, report);
}

}  // namespace

void RecoverFile(const std::uint8_t* data, std::size_t size) {
  PrintNothing();
  const Bytes bytes(data, data + size);
  const std::string path = ScratchFile("file", bytes), made = ScratchPath("recovered");
  std::remove(made.c_str());
  CheckWith(path, size % 2 == 0);

  aotool::RecoverOptions options;
  options.store = path;
  options.output = made;
  options.json = size % 2 == 1;
  aotool::Report report(path);
  aotool::Recover(options, report);
  Require(testing::ReadFile(path) == bytes, "the source is changed");
  if (report.Code() == aotool::kNotAStorage) return;
  Require(report.Code() == aotool::kDone || report.Code() == aotool::kNotFound,
          "the recovery fails:", std::to_string(report.Code()));
  const Bytes after = testing::ReadFile(made);
  // Each slot without a name and each lost block may become a stream and a line of the report.
  Require(after.size() <= 8 * bytes.size() + 65536, "the output is too large:",
          std::to_string(bytes.size()) + " to " + std::to_string(after.size()));
  const std::string wrong = testing::CheckFile(made);
  Require(wrong.empty(), "the recovered file is not sound:", wrong);
  CheckWith(made, false);
}

}  // namespace aostorage::fuzz
