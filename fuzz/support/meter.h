/// @file
/// Counts what a call costs and ends the program where it costs more than the files justify.
#ifndef AOSTORAGE_FUZZ_SUPPORT_METER_H_
#define AOSTORAGE_FUZZ_SUPPORT_METER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "support/calls.h"
#include "support/require.h"

namespace aostorage::fuzz {

/// For all calls of the library while it lives.
class Meter {
 public:
  /// @param filePaths  the files that the calls work on; n is the sum of their sizes, before the
  ///                   call or behind it, whichever is more
  explicit Meter(std::vector<std::string> filePaths) : paths(std::move(filePaths)) {}

  /// Runs one operation: at most 64 + n/16 system calls, 64 KiB + 16 n bytes moved and 1 MiB + 4 n
  /// bytes of memory beyond what there was.
  template <class Operation>
  auto operator()(const char* label, Operation operation) {
    const Limit limit(*this, label);
    return operation();
  }
  /// As above, for an operation that is told to change nothing in any file.
  template <class Operation>
  auto Reading(const char* label, Operation operation) {
    const std::uint64_t before = calls.changes;
    const Limit limit(*this, label);
    struct Unchanged {
      std::uint64_t before;
      const char* label;
      ~Unchanged() { Require(calls.changes == before, "reading writes:", label); }
    } const unchanged{before, label};
    return operation();
  }

 private:
  class Limit {
   public:
    Limit(Meter& owner, const char* operationLabel);
    ~Limit();
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;

   private:
    Meter& meter;
    const char* label;
    const std::uint64_t size;
    const CallCounts before;
    const std::int64_t memory;
  };
  std::uint64_t FileSizes();

  std::vector<std::string> paths;
  std::uint64_t sizes = 0, sizesAfter = UINT64_MAX;  // as many changes
};

}  // namespace aostorage::fuzz

#endif  // AOSTORAGE_FUZZ_SUPPORT_METER_H_
