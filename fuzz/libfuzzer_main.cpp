// What libFuzzer calls, for the target that AOSTORAGE_FUZZ_TARGET names.
#include <algorithm>

#include "support/record_mutator.h"

using aostorage::fuzz::Bytes;
using aostorage::fuzz::FindTarget;
using aostorage::fuzz::Shape;
using aostorage::fuzz::Target;

namespace {
const Target& target = *FindTarget(AOSTORAGE_FUZZ_TARGET);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  aostorage::fuzz::Run(target, data, size);
  return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned seed) {
  return aostorage::fuzz::MutateInput(target, data, size, maxSize, seed);
}

extern "C" std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* first, std::size_t firstSize,
                                                 const std::uint8_t* second, std::size_t secondSize,
                                                 std::uint8_t* out, std::size_t outSize,
                                                 unsigned seed) {
  Bytes made(first, first + firstSize);
  if (target.shape == Shape::kFile) {
    made = aostorage::fuzz::SpliceRecords(made, Bytes(second, second + secondSize), seed);
  } else if (target.shape == Shape::kFileAndScript) {
    const aostorage::fuzz::FileAndScript one(first, firstSize), other(second, secondSize);
    made = seed % 2 == 0
               ? aostorage::fuzz::FileAndScript::Join(one.file, other.script)
               : aostorage::fuzz::FileAndScript::Join(
                     aostorage::fuzz::SpliceRecords(one.file, other.file, seed / 2), one.script);
  } else {
    made.resize(seed % (firstSize + 1));
    made.insert(made.end(), second, second + secondSize);
  }
  if (made.size() > outSize) return 0;
  std::copy(made.begin(), made.end(), out);
  return made.size();
}
