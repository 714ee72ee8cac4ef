/// @file
/// The records that the magic words in a file promise.
#ifndef AOSTORAGE_FUZZ_SUPPORT_RECORD_SCAN_H_
#define AOSTORAGE_FUZZ_SUPPORT_RECORD_SCAN_H_

#include <string>
#include <vector>

#include "support/raw_file.h"

namespace aostorage::fuzz {

struct ScannedRecord {
  std::uint32_t offset, magic;
  /// Bytes up to the end of its last word.
  std::uint32_t Size() const;
};

/// In the order of offsets, whatever the rest of their bytes; the first 2,000.
std::vector<ScannedRecord> ScanRecords(const testing::Bytes& file);
/// The names in stream headers, the first 50.
std::vector<std::string> ScanNames(const testing::Bytes& file);

}  // namespace aostorage::fuzz

#endif  // AOSTORAGE_FUZZ_SUPPORT_RECORD_SCAN_H_
