/// @file
/// Every public operation over one file, whatever its bytes: what each of them costs is counted and
/// held against the size of the file.
#ifndef AOSTORAGE_TESTS_SUPPORT_GAUNTLET_H_
#define AOSTORAGE_TESTS_SUPPORT_GAUNTLET_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "support/allocations.h"
#include "support/handles.h"
#include "support/raw_file.h"
#include "support/syscalls.h"
#include "support/watchdog.h"

namespace aostorage::testing {

/// What one operation may cost on a file of n bytes: in calls, in bytes moved and in bytes of
/// memory; and how large a file it may make of it.
constexpr std::uint64_t MostCalls(std::uint64_t n) { return 64 + n / 16; }
constexpr std::uint64_t MostMoved(std::uint64_t n) { return (64 << 10) + 16 * n; }
constexpr std::uint64_t MostMemory(std::uint64_t n) { return (1 << 20) + 4 * n; }
constexpr std::uint64_t MostOutput(std::uint64_t n) { return (64 << 10) + n + n / 4; }

/// A file in a directory of its own. The names that the operations ask for are "sound", "target",
/// "folder" and "gone", and in a folder "child", "sub" and "gone".
class Gauntlet {
 public:
  explicit Gauntlet(std::string file);

  /// All that reads, in every opening mode, the inspection included. The bytes may not change.
  void Read();
  /// All that writes. Starts from `bytes` anew for each group of operations; `after` runs behind
  /// each of them.
  void Write(const Bytes& bytes, const std::function<void()>& after);
  /// Rebuilds and copies. `sound`: may not be refused.
  void Carry(const Bytes& bytes, bool sound);
  /// The inspection in both modes alone.
  void Inspect();

  /// Allows operations more memory than the file's size gives them.
  void Allow(std::uint64_t bytes) { memoryMore = bytes; }
  /// Operations so far, of all objects.
  static std::uint64_t Operations();

  /// Runs one operation and counts what it takes.
  template <class Operation>
  auto Do(const char* name, Operation operation) {
    const std::uint64_t before = SizeNow();
    Watch watch;
    watch.ForgetWrites();
    const MeasureMemory memory;
    auto result = operation();
    const std::size_t peak = memory.Peak();
    Judge(name, before, watch, peak);
    return result;
  }

 private:
  std::uint64_t SizeNow() const;
  void Judge(const char* name, std::uint64_t size, const Watch& watch, std::uint64_t memory);
  void ReadStorage(aoStorage& storage);
  void WalkRoots(aoStorage& storage);
  void ReadStream(aoStream& stream, int depth);
  void ReadFolder(aoStream& folder, int depth);
  void ReadThroughOthers();
  void WriteRoots(aoStorage& storage);
  void WritePlain(aoStream& stream);
  void WriteFolder(aoStream& folder);
  void WriteThroughOthers();

  std::string path;
  std::uint64_t memoryMore = 0;
  std::string second;  // a further file that takes part
};

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_GAUNTLET_H_
