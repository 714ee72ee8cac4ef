/// @file
/// New inputs out of old ones.
#ifndef AOSTORAGE_FUZZ_SUPPORT_RECORD_MUTATOR_H_
#define AOSTORAGE_FUZZ_SUPPORT_RECORD_MUTATOR_H_

#include "support/input.h"
#include "targets/targets.h"

namespace aostorage::fuzz {

/// One to three changes to the records of a file.
Bytes MutateRecords(Bytes file, unsigned seed);
/// The beginning of one file and, from a record on, the end of another.
Bytes SpliceRecords(const Bytes& first, const Bytes& second, unsigned seed);
/// Changes an input in place. @return its new size
std::size_t MutateInput(const Target& target, std::uint8_t* data, std::size_t size,
                        std::size_t maxSize, unsigned seed);

}  // namespace aostorage::fuzz

#endif  // AOSTORAGE_FUZZ_SUPPORT_RECORD_MUTATOR_H_
