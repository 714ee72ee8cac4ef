#include "micro.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace aobench {
namespace {

double LimitSeconds() {
  const char* value = std::getenv("AOSTORAGE_BENCH_LIMIT");
  const double seconds = value != nullptr ? std::strtod(value, nullptr) : 0.0;
  return seconds > 0.0 ? seconds : 30.0;
}

bool TimesProcessor() {
  const char* value = std::getenv("AOSTORAGE_BENCH_CLOCK");
  return value != nullptr && std::strcmp(value, "cpu") == 0;
}

/// The choice stands in the output, so that no table is read as what it is not.
const bool timesProcessor = [] {
  const bool chosen = TimesProcessor();
  benchmark::AddCustomContext("stopwatch", chosen ? "processor time" : "wall clock");
  return chosen;
}();

}  // namespace

std::int64_t RoundsFor(std::int64_t items, std::int64_t leastItems) {
  return std::max<std::int64_t>(1, leastItems / std::max<std::int64_t>(1, items));
}

double Stopwatch::Now() {
  if (timesProcessor)
    return static_cast<double>(std::clock()) / static_cast<double>(CLOCKS_PER_SEC);
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double>(now).count();
}

Deadline::Deadline()
    : end(std::chrono::steady_clock::now() +
          std::chrono::duration_cast<std::chrono::steady_clock::duration>(
              std::chrono::duration<double>(LimitSeconds()))) {}

void Fail(benchmark::State& state, Failure failure) {
  std::string text = failure;
  const aostorage::Error& error = aostorage::LastError();
  if (error.code != aostorage::ErrorCode::kNone)
    text += std::string(" (last error: ") + error.text + ")";
  state.SkipWithError(text.c_str());
}

}  // namespace aobench
