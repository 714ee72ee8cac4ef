/// @file
/// A bound on the time that a piece of a test may take.
#ifndef AOSTORAGE_TESTS_SUPPORT_WATCHDOG_H_
#define AOSTORAGE_TESTS_SUPPORT_WATCHDOG_H_

#include <string>

namespace aostorage::testing {

/// Ends the program when what runs while it lives takes longer: a hang shows by name.
class Watchdog {
 public:
  explicit Watchdog(const std::string& what, unsigned seconds = 120);
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;
};

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_WATCHDOG_H_
