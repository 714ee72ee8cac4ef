/// @file
/// Whether a storage file keeps its invariants.
#ifndef AOSTORAGE_TESTS_SUPPORT_CHECK_FILE_H_
#define AOSTORAGE_TESTS_SUPPORT_CHECK_FILE_H_

#include <string>
#include <vector>

namespace aostorage::testing {

/// What a file may show.
enum class Rules {
  kStrict,      ///< after operations that all succeeded
  kAfterFault,  ///< after a failed or broken-off one: also a length above the chain, a slot that is
                ///< not counted and a folder without count
};

/// The broken rules, one on each line; empty for a sound file.
/// @param names  takes the paths of the streams in use that it holds
std::string CheckFile(const std::string& path, Rules rules = Rules::kStrict,
                      std::vector<std::string>* names = nullptr);

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_CHECK_FILE_H_
