#include "support/watchdog.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>

namespace aostorage::testing {
namespace {

char watched[200];

void Bark(int /*signal*/) {
  static_cast<void>(!write(STDERR_FILENO, watched, std::strlen(watched)));
  _exit(124);
}

}  // namespace

Watchdog::Watchdog(const std::string& what, unsigned seconds) {
  std::snprintf(watched, sizeof watched, "hangs: %s\n", what.c_str());
  signal(SIGALRM, Bark);
  alarm(seconds);
}
Watchdog::~Watchdog() {
  alarm(0);
  signal(SIGALRM, SIG_DFL);
}

}  // namespace aostorage::testing
