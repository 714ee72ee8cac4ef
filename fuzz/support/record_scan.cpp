#include "support/record_scan.h"

#include <cstring>

namespace aostorage::fuzz {

using testing::Bytes;

std::uint32_t ScannedRecord::Size() const {
  if (magic == testing::kStreamMagic) return testing::kSlotSize;
  return magic == testing::kBlockMagic ? testing::kBlockHeaderSize : 12;
}

std::vector<ScannedRecord> ScanRecords(const Bytes& file) {
  std::vector<ScannedRecord> records;
  for (std::size_t at = 0; at + 12 <= file.size() && records.size() < 2000; ++at) {
    const std::uint8_t first = file[at];
    if (first < 0xFA || first > 0xFC) continue;
    const std::uint32_t word = testing::Get32(file, at);
    if (word != first * 0x01010101U) continue;
    const ScannedRecord record{static_cast<std::uint32_t>(at), word};
    if (at + record.Size() <= file.size()) records.push_back(record);
  }
  return records;
}

std::vector<std::string> ScanNames(const Bytes& file) {
  std::vector<std::string> names;
  for (const ScannedRecord& record : ScanRecords(file)) {
    if (record.magic != testing::kStreamMagic || names.size() == 50) continue;
    const char* name = reinterpret_cast<const char*>(file.data()) + record.offset + 4;
    if (*name != 0) names.emplace_back(name, strnlen(name, 61));
  }
  return names;
}

}  // namespace aostorage::fuzz
