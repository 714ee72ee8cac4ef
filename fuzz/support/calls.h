/// @file
/// The system calls of this program, counted. The linker leads them here (--wrap), so that the
/// sanitizer's own functions still see the buffers.
#ifndef AOSTORAGE_FUZZ_SUPPORT_CALLS_H_
#define AOSTORAGE_FUZZ_SUPPORT_CALLS_H_

#include <cstdint>

namespace aostorage::fuzz {

struct CallCounts {
  std::uint64_t all = 0;
  std::uint64_t changes = 0;  ///< those of them that change a file or a directory
  std::uint64_t moved = 0;    ///< bytes read, written and copied
};
extern CallCounts calls;

}  // namespace aostorage::fuzz

#endif  // AOSTORAGE_FUZZ_SUPPORT_CALLS_H_
