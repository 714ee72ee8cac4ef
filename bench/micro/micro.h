/// @file
/// The frame of the small benchmarks, on Google Benchmark: a stopwatch, and what times rounds and
/// reports failures.
#ifndef AOSTORAGE_BENCH_MICRO_H_
#define AOSTORAGE_BENCH_MICRO_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include <benchmark/benchmark.h>

#include <aostorage/aostorage.h>

#include "../support.h"

namespace aobench {

/// Null when all went well, else what went wrong: a text that lives as long as the program.
using Failure = const char*;

/// How often a round of `items` is repeated so that small rounds are long enough to be timed.
std::int64_t RoundsFor(std::int64_t items, std::int64_t leastItems = 20000);

/// Adds up the time between its starts and stops: that of the wall or, with
/// AOSTORAGE_BENCH_CLOCK=cpu, the processor time of this process, which is steadier on a machine
/// that has other work to do.
class Stopwatch {
 public:
  void Start() { begin = Now(); }
  void Stop() { total += Now() - begin; }
  double Seconds() const { return total; }

 private:
  static double Now();

  double begin = 0.0;
  double total = 0.0;
};

/// Times a scope.
class Timed {
 public:
  explicit Timed(Stopwatch& watch) : target(watch) { target.Start(); }
  ~Timed() { target.Stop(); }
  Timed(const Timed&) = delete;
  Timed& operator=(const Timed&) = delete;

 private:
  Stopwatch& target;
};

/// Ends a loop whose cost has run away, so that one bad road does not stop the whole run for hours.
/// The limit is 30 seconds, or AOSTORAGE_BENCH_LIMIT seconds.
class Deadline {
 public:
  Deadline();
  /// Looks at the clock at every 256th step only.
  bool Passed(std::size_t step) const {
    return step % 256 == 0 && std::chrono::steady_clock::now() > end;
  }
  static constexpr Failure kFailure = "took longer than the limit of one loop";

 private:
  std::chrono::steady_clock::time_point end;
};

/// Marks the benchmark as failed, with the text and the library's last error.
void Fail(benchmark::State& state, Failure failure);

/// The body of every benchmark here: each iteration runs `rounds` times `round(Stopwatch&) ->
/// Failure`, which times what it names and nothing else. The first failure ends the benchmark as an
/// error.
template <class Round>
void MeasureRounds(benchmark::State& state, std::int64_t rounds, std::int64_t itemsPerRound,
                   Round&& round) {
  aostorage::ClearLastError();
  for (auto _ : state) {
    Stopwatch watch;
    for (std::int64_t i = 0; i < rounds; ++i) {
      if (const Failure failure = round(watch)) {
        Fail(state, failure);
        return;
      }
    }
    state.SetIterationTime(watch.Seconds());
  }
  state.SetItemsProcessed(state.iterations() * rounds * itemsPerRound);
}

/// Registers a benchmark named "family/operation/who/key:value/...".
/// @param function  called with the state and `arguments`
template <class Function, class... Arguments>
void Register(const std::string& name, std::int64_t iterations, Function function,
              Arguments... arguments) {
  benchmark::RegisterBenchmark(name.c_str(), function, std::move(arguments)...)
      ->Iterations(iterations)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
}

}  // namespace aobench

#endif  // AOSTORAGE_BENCH_MICRO_H_
