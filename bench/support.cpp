#include "support.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <system_error>
#include <utility>

namespace aobench {
namespace {

std::string BaseDirectory() {
  for (const char* variable : {"AOSTORAGE_BENCH_DIR", "TMPDIR"}) {
    const char* value = std::getenv(variable);
    if (value != nullptr && *value != '\0') return value;
  }
  return "/tmp";
}

}  // namespace

TempDir::TempDir() : TempDir(BaseDirectory()) {}

TempDir::TempDir(const std::string& base) {
  std::random_device entropy;
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::error_code error;
    path = base + "/aostorage_bench_" + std::to_string(entropy());
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

std::uint64_t NextRandom(std::uint64_t& state) {
  state += 0x9E3779B97F4A7C15U;
  std::uint64_t mixed = state;
  mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9U;
  mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBU;
  return mixed ^ (mixed >> 31);
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

}  // namespace aobench
