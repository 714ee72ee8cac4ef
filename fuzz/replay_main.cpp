// Runs kept inputs through their targets: `fuzz_replay DIRECTORY...`, each with one directory for
// each target. Ends as a finding does when one of them fails.
#include <chrono>
#include <cstdio>
#include <filesystem>

#include "support/raw_file.h"
#include "targets/targets.h"

int main(int count, char** arguments) {
  namespace fs = std::filesystem;
  std::size_t inputs = 0;
  for (int i = 1; i < count; ++i) {
    for (const aostorage::fuzz::Target& target : aostorage::fuzz::kTargets) {
      const fs::path directory = fs::path(arguments[i]) / target.name;
      if (!fs::is_directory(directory)) continue;
      const auto start = std::chrono::steady_clock::now();
      std::size_t here = 0;
      for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        if (!entry.is_regular_file()) continue;
        std::fprintf(stderr, "%s %s\n", target.name, entry.path().c_str());
        const aostorage::testing::Bytes bytes = aostorage::testing::ReadFile(entry.path().string());
        Run(target, bytes.data(), bytes.size());
        ++here;
      }
      const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
      std::fprintf(stderr, "%s: %zu inputs in %.1f s\n", directory.c_str(), here, took.count());
      inputs += here;
    }
  }
  std::fprintf(stderr, "%zu inputs\n", inputs);
  return inputs == 0 ? 1 : 0;
}
