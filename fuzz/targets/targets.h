/// @file
/// All targets.
#ifndef AOSTORAGE_FUZZ_TARGETS_TARGETS_H_
#define AOSTORAGE_FUZZ_TARGETS_TARGETS_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <gtest/gtest.h>

#include "support/require.h"

namespace aostorage::fuzz {

void ReadFile(const std::uint8_t* data, std::size_t size);
void RunModel(const std::uint8_t* data, std::size_t size);
void RunScript(const std::uint8_t* data, std::size_t size);
void RebuildFile(const std::uint8_t* data, std::size_t size);
void InspectFile(const std::uint8_t* data, std::size_t size);
void RecoverFile(const std::uint8_t* data, std::size_t size);
void UseAccess(const std::uint8_t* data, std::size_t size);

/// What an input is.
enum class Shape { kFile, kFileAndScript, kScript };

struct Target {
  const char* name;
  Shape shape;
  void (*run)(const std::uint8_t* data, std::size_t size);
};

inline constexpr Target kTargets[] = {
    {"read", Shape::kFile, ReadFile},
    {"model", Shape::kScript, RunModel},
    {"script", Shape::kFileAndScript, RunScript},
    {"rebuild", Shape::kFile, RebuildFile},
    {"inspect", Shape::kFile, InspectFile},
    {"recover", Shape::kFile, RecoverFile},
    {"access", Shape::kFileAndScript, UseAccess},
};

/// Runs an input; what a target expects and is not so ends the program, too.
inline void Run(const Target& target, const std::uint8_t* data, std::size_t size) {
  target.run(data, size);
  Require(!::testing::Test::HasFailure(), "an expectation, see above");
}

/// Null for an unknown name.
inline const Target* FindTarget(const char* name) {
  for (const Target& target : kTargets) {
    if (std::strcmp(target.name, name) == 0) return &target;
  }
  return nullptr;
}

}  // namespace aostorage::fuzz

#endif  // AOSTORAGE_FUZZ_TARGETS_TARGETS_H_
