/// @file
/// How a target tells that something is wrong.
#ifndef AOSTORAGE_FUZZ_SUPPORT_REQUIRE_H_
#define AOSTORAGE_FUZZ_SUPPORT_REQUIRE_H_

#include <cstdio>
#include <cstdlib>
#include <string>

namespace aostorage::fuzz {

/// Ends the program, and so makes a finding of the input, unless `holds`.
inline void Require(bool holds, const char* rule, const std::string& more = "") {
  if (holds) return;
  std::fprintf(stderr, "BROKEN: %s %s\n", rule, more.c_str());
  std::abort();
}

}  // namespace aostorage::fuzz

#endif  // AOSTORAGE_FUZZ_SUPPORT_REQUIRE_H_
