#include "support.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <random>
#include <system_error>

namespace aobench {
namespace {

std::string BaseDirectory() {
  for (const char* variable : {"AOSTORAGE_BENCH_DIR", "TMPDIR"}) {
    const char* value = std::getenv(variable);
    if (value != nullptr && *value != '\0') return value;
  }
  return "/tmp";
}

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

/// One step of SplitMix64. Standard shuffles may differ between standard libraries; this one does
/// not.
std::uint64_t NextRandom(std::uint64_t& state) {
  state += 0x9E3779B97F4A7C15U;
  std::uint64_t mixed = state;
  mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9U;
  mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBU;
  return mixed ^ (mixed >> 31);
}

}  // namespace

TempDir::TempDir() {
  std::random_device entropy;
  const std::string base = BaseDirectory() + "/aostorage_bench_";
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::error_code error;
    path = base + std::to_string(entropy());
    if (std::filesystem::create_directory(path, error)) return;
  }
  path += "/missing";  // nothing was made: every use of a file in here fails
}

TempDir::~TempDir() {
  std::error_code error;
  std::filesystem::remove_all(path, error);
}

bool RemoveStream(StreamPtr stream) {
  if (stream == nullptr || !stream->Remove()) return false;
  static_cast<void>(stream.release());  // a successful removal has ended the object
  return true;
}

std::vector<std::uint32_t> Shuffled(std::size_t count, std::uint64_t seed) {
  std::vector<std::uint32_t> order(count);
  for (std::size_t i = 0; i < count; ++i) order[i] = static_cast<std::uint32_t>(i);
  for (std::size_t left = count; left > 1; --left) {
    const auto pick = static_cast<std::size_t>(NextRandom(seed) % left);
    std::swap(order[left - 1], order[pick]);
  }
  return order;
}

std::vector<std::string> NumberedNames(char prefix, std::size_t count) {
  std::vector<std::string> names;
  names.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    char text[24];
    std::snprintf(text, sizeof text, "%c%09zu", prefix, i);
    names.emplace_back(text);
  }
  return names;
}

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
