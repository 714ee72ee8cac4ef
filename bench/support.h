/// @file
/// What all benchmarks share: a place for their files, owners of library objects, names and orders
/// that are the same in every run, a stopwatch, and the frame that times rounds and reports
/// failures.
#ifndef AOSTORAGE_BENCH_SUPPORT_H_
#define AOSTORAGE_BENCH_SUPPORT_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include <aostorage/aostorage.h>

namespace aobench {

/// Null when all went well, else what went wrong: a text that lives as long as the program.
using Failure = const char*;

/// A directory of its own for the files of one benchmark, removed with all that is in it. It is
/// made in AOSTORAGE_BENCH_DIR, or where that is not set in TMPDIR, or in /tmp.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  /// Path of the file `name` in it. Where the directory could not be made, no file can be made
  /// there either.
  std::string File(const char* name) const { return path + "/" + name; }

 private:
  std::string path;
};

struct StorageReleaser {
  void operator()(aostorage::aoStorage* storage) const { storage->Release(); }
};
struct StreamReleaser {
  void operator()(aostorage::aoStream* stream) const { stream->Release(); }
};
using StoragePtr = std::unique_ptr<aostorage::aoStorage, StorageReleaser>;
using StreamPtr = std::unique_ptr<aostorage::aoStream, StreamReleaser>;

/// Removes the stream and ends the object. A null stream is a failure.
bool RemoveStream(StreamPtr stream);

/// The numbers 0 to count - 1 in an order that looks random and depends on `count` and `seed`
/// alone.
std::vector<std::uint32_t> Shuffled(std::size_t count, std::uint64_t seed);

/// `count` names of 10 characters, ascending: the prefix letter and nine digits.
std::vector<std::string> NumberedNames(char prefix, std::size_t count);

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

/// Registers a benchmark named "family/operation/who/key:value/...", the form that ratios.py reads.
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

#endif  // AOSTORAGE_BENCH_SUPPORT_H_
