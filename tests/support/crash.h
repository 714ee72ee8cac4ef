/// @file
/// The file as it stood after each write of an operation, and inside each write that appended.
#ifndef AOSTORAGE_TESTS_SUPPORT_CRASH_H_
#define AOSTORAGE_TESTS_SUPPORT_CRASH_H_

#include <functional>
#include <vector>

#include "support/raw_file.h"
#include "support/syscalls.h"

namespace aostorage::testing {

/// Lays the recorded writes of one file over `before`, one after the other. `check` gets each state
/// on the way, the first and the last included, with the number of whole writes in it; of a write
/// that appends it also gets the states in which only a part has arrived.
void ReplayWrites(const Bytes& before, const std::vector<RecordedWrite>& writes,
                  const std::function<void(const Bytes& state, std::size_t wholeWrites)>& check);

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_CRASH_H_
