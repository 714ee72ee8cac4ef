/// @file
/// The works: what is done to a store, how often, and what of it is timed.
#ifndef AOSTORAGE_BENCH_WORKS_WORKS_H_
#define AOSTORAGE_BENCH_WORKS_WORKS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "store.h"

namespace aobench {

/// One figure: one work, done once by one competitor.
struct Row {
  std::string work;
  std::size_t n;
  Outcome outcome;
  double seconds;
  std::size_t items;
  std::int64_t bytesBefore = 0, bytesAfter = 0;  ///< of the store, where the work asks for them
};

/// What a scenario is run with.
struct Run {
  const Competitor& competitor;
  std::string directory;  ///< empty, gone afterwards
  std::size_t divisor;    ///< 1, or what all counts are divided by in a quick run
  std::vector<Row> rows;
};

/// Works that need the same store, one after the other.
struct Scenario {
  const char* works;  ///< their names, with blanks between them
  void (*run)(Run&);
  Part part;  ///< competitors without it stay away
};

const std::vector<Scenario>& Scenarios();

}  // namespace aobench

#endif  // AOSTORAGE_BENCH_WORKS_WORKS_H_
