// Ctrl-C. The first one asks the verb to stop at the next place where nothing is half done; the
// second one ends the program at once.
#ifndef AOSTORAGE_TOOLS_INTERRUPT_H_
#define AOSTORAGE_TOOLS_INTERRUPT_H_

#include "report.h"

namespace aotool {

// From now on SIGINT and SIGTERM are remembered, once each. A signal that is ignored stays ignored.
// To be called by main alone.
void RememberInterrupts();

// True from the first such signal on. Every loop that can take long asks it between two streams,
// and between two pieces of a long one, and then ends with Interruption(). TreeWalk and Transfer
// ask by themselves: a walk gives one kFailed event and the end, a transfer fails.
bool Interrupted() noexcept;

// Waits until there is something to read, or the end. False when it was interrupted, be that before
// the call, so that no read waits behind an interrupt that came just ahead of it.
bool WaitForInput(int descriptor);

// The failure that an interrupted step returns: exit code 2.
Result Interruption();

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_INTERRUPT_H_
