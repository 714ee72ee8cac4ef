/// @file
/// A scripted life of a file: every kind of change that streams at the root and in folders go
/// through, step by step, with what they hold before and after each. Fault injection and crash
/// states run over it.
#ifndef AOSTORAGE_TESTS_SUPPORT_LIFE_H_
#define AOSTORAGE_TESTS_SUPPORT_LIFE_H_

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/handles.h"
#include "support/raw_file.h"

namespace aostorage::testing {

using Values = std::map<std::string, Bytes>;  // path to value of every stream; of a folder none

struct Step {
  std::string label, path;
  /// @param retry  true: what fails is tried once more, on the same object where there is one
  std::function<bool(aoStorage& storage, bool retry)> perform;
  std::function<void(Values& values)> expect;
  bool flushing = false;  ///< a write that ends the stream
  /// Begins a stream whose folder may not count it yet, or that may lack its own count or value,
  /// whatever the call tells.
  bool begins = false;
};

/// Bytes reserved in each block of the life.
inline constexpr std::uint32_t kLifeReserve = 100;
/// The file that the life starts from: empty, with two ordinary slots, so that the third stream
/// makes the directory grow.
Bytes LifeStart();
std::vector<Step> ScriptedLife();

/// Opens the file with the library and reads all. A stream that is the same before and after must
/// be so; one that changes may stand at any point between the two. A flushing write passes through
/// more states: the bytes that it cuts off may be gone from the middle already and not yet from the
/// end, and its own may end at a block. The file may break no rule, nor hold any other stream.
/// @return what is wrong, empty if nothing
std::string CheckBetween(const std::string& path, const Values& before, const Values& after,
                         bool flushing = false);

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_LIFE_H_
