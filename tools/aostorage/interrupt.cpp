#include "interrupt.h"

#include <poll.h>

#include <csignal>

namespace aotool {
namespace {

// The one thing that a handler may write to.
volatile std::sig_atomic_t caught = 0;

void Remember(int) { caught = 1; }

void Catch(int signal) {
  struct sigaction before {};
  if (::sigaction(signal, nullptr, &before) != 0 || before.sa_handler == SIG_IGN) return;
  struct sigaction action {};
  action.sa_handler = Remember;
  ::sigemptyset(&action.sa_mask);
  action.sa_flags =
      static_cast<int>(SA_RESETHAND);  // without SA_RESTART: a read that waits for input ends
  ::sigaction(signal, &action, nullptr);
}

}  // namespace

void RememberInterrupts() {
  Catch(SIGINT);
  Catch(SIGTERM);
}

bool Interrupted() noexcept { return caught != 0; }

bool WaitForInput(int descriptor) {
  sigset_t held;
  sigset_t before;
  ::sigemptyset(&held);
  ::sigaddset(&held, SIGINT);
  ::sigaddset(&held, SIGTERM);
  ::sigprocmask(SIG_BLOCK, &held, &before);
  pollfd input{descriptor, POLLIN, 0};
  // What was held comes through inside of the call, which then ends. Whatever else ends it is left
  // to the read.
  if (!Interrupted()) ::ppoll(&input, 1, nullptr, &before);
  ::sigprocmask(SIG_SETMASK, &before, nullptr);
  return !Interrupted();
}

Result Interruption() { return {kFailure, "interrupted"}; }

}  // namespace aotool
