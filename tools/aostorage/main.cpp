// aostorage: works on storage files from the command line.

#include <csignal>
#include <cstdio>
#include <exception>

#include "command_line.h"
#include "interrupt.h"

int main(int argc, char** argv) {
  // A file-size limit is to be a failed write with a message, not the end of the process.
  std::signal(SIGXFSZ, SIG_IGN);
  aotool::RememberInterrupts();
  try {
    aotool::Action chosen;
    const aotool::ExitCode code = aotool::ParseCommandLine(argc, argv, chosen);
    return chosen ? chosen() : code;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "aostorage: %s\n", error.what());
  } catch (...) {
    std::fputs("aostorage: failed for an unknown reason\n", stderr);
  }
  return aotool::kFailure;
}
