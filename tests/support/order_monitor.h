/// @file
/// Watches the order of writes: after each single one the raw bytes keep the rules W1 to W9 of
/// docs/invariants.md and those that always hold.
#ifndef AOSTORAGE_TESTS_SUPPORT_ORDER_MONITOR_H_
#define AOSTORAGE_TESTS_SUPPORT_ORDER_MONITOR_H_

#include <map>
#include <string>
#include <vector>

#include "support/raw_file.h"

namespace aostorage::testing {

class OrderMonitor {
 public:
  explicit OrderMonitor(const Bytes& start) : file(start) { Look(); }

  /// A public operation begins: what it covers has to be written in it.
  void BeginOperation();
  /// The next write. `bytes` need not be all of it.
  void Write(std::uint64_t offset, const std::vector<std::uint8_t>& bytes);
  /// The rules that were broken, with the places; empty if none was.
  const std::string& Violations() const { return violations; }

 private:
  void Look();
  void Require(bool holds, const char* rule, std::uint64_t place);
  bool IsWritten(std::uint64_t first, std::uint64_t end) const;
  void CheckDirectories();
  void CheckChain(const RawStream& stream);
  void CheckStream(const RawStream& stream);
  void CheckFolder(const RawStream& stream, const RawStream* before);
  void CheckOverlaps();

  Bytes file;
  std::vector<bool> written;  // in the present operation
  std::uint64_t sizeBefore = 0;
  std::map<std::uint32_t, std::uint32_t> directories, directoriesBefore;  // offset to next
  std::map<std::uint32_t, RawStream> slots, slotsBefore;                  // by record offset
  std::map<std::uint32_t, RawBlock> blocks, blocksBefore;
  std::string violations;
};

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_ORDER_MONITOR_H_
