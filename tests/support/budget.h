/// @file
/// What operations cost, held against the size of the files that they work on.
#ifndef AOSTORAGE_TESTS_SUPPORT_BUDGET_H_
#define AOSTORAGE_TESTS_SUPPORT_BUDGET_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace aostorage::testing {

/// What one operation may cost on files of n bytes: in calls, in bytes moved and in bytes of
/// memory; and how large a file it may make of them.
constexpr std::uint64_t MostCalls(std::uint64_t n) { return 64 + n / 16; }
constexpr std::uint64_t MostMoved(std::uint64_t n) { return (64 << 10) + 16 * n; }
constexpr std::uint64_t MostMemory(std::uint64_t n) { return (1 << 20) + 4 * n; }
constexpr std::uint64_t MostOutput(std::uint64_t n) { return (64 << 10) + n + n / 4; }

struct Cost {
  std::uint64_t calls = 0;
  std::uint64_t changes = 0;  ///< those of them that change a file or a directory
  std::uint64_t moved = 0;    ///< bytes read, written and copied
  std::uint64_t memory = 0;   ///< the most bytes held at once; 0 where nobody knows
};

/// Counts from its beginning on. The test program and the fuzz targets each do it in their own way.
class CostMeter {
 public:
  CostMeter();
  ~CostMeter();
  CostMeter(const CostMeter&) = delete;
  CostMeter& operator=(const CostMeter&) = delete;
  Cost Taken() const;

 private:
  struct Counters;
  std::unique_ptr<Counters> counters;
};

/// Runs operations; an expectation fails where one costs more than the files justify.
class Budget {
 public:
  /// @param filePaths  the files; n is the sum of their sizes, before the operation or behind it,
  ///                   whichever is more
  explicit Budget(std::vector<std::string> filePaths) : paths(std::move(filePaths)) {}

  template <class Operation>
  auto operator()(const char* label, Operation operation) {
    const Limit limit(*this, label);
    return operation();
  }
  /// Operations so far, of all budgets.
  static std::uint64_t Operations();

  bool readOnly = false;         ///< no operation may change a file
  std::uint64_t moreMemory = 0;  ///< beyond what the size gives
  std::vector<std::string> paths;

 private:
  class Limit {
   public:
    Limit(const Budget& owner, const char* operationLabel);
    ~Limit();
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;

   private:
    const Budget& budget;
    const char* label;
    const std::uint64_t size;
    const CostMeter meter;
  };
  std::uint64_t FileSizes() const;
};

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_BUDGET_H_
