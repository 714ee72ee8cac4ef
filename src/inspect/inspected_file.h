// What an inspection has found: the lists behind the public class, and what reads from them.
#ifndef AOSTORAGE_INSPECT_INSPECTED_FILE_H_
#define AOSTORAGE_INSPECT_INSPECTED_FILE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <aostorage/inspect.h>

#include "inspect/file_view.h"
#include "storage/records.h"

namespace aostorage::detail {

Severity SeverityOf(Rule rule);

// Keeps the first findings of each rule and counts them all.
class FindingList {
 public:
  void Add(const Finding& finding);
  void Add(Rule rule, std::uint64_t offset, std::uint32_t stream, const char* detail,
           std::uint64_t value = 0) {
    Add({rule, SeverityOf(rule), offset, stream, detail, value});
  }
  void Sort();

  const std::vector<Finding>& All() const { return findings; }
  std::uint64_t CountOf(Rule rule) const { return byRule[static_cast<std::size_t>(rule)]; }
  std::uint64_t CountOf(Severity severity) const {
    return bySeverity[static_cast<std::size_t>(severity)];
  }

 private:
  static constexpr std::uint64_t kMostOfOneRule = 1000;
  std::vector<Finding> findings;
  std::array<std::uint64_t, 256> byRule{};
  std::array<std::uint64_t, 3> bySeverity{};
};

struct InspectedFile {
  explicit InspectedFile(FileView source) : view(std::move(source)) {}

  mutable FileView view;  // its pages change when it is read
  bool hasHeader = false;
  StorageFileHeader header;
  std::uint32_t headerSize = 0;
  std::vector<InspectedStream> streams;
  std::vector<InspectedBlock> blocks;
  std::vector<InspectedDirectory> directories;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> overlaps;  // block header offset, stream
  std::vector<bool> contested;  // by block: another stream claims it as well
  FindingList findings;
};

// Bytes of data that the block holds, as far as they lie in the file.
inline std::uint32_t DataBytes(const InspectedBlock& block) {
  const std::uint32_t end = block.used < block.present ? block.used : block.present;
  return end > BlockHeader::kSize ? end - BlockHeader::kSize : 0;
}

// Bytes of the stream's chain from `position` on; fewer than `count` where the chain ends.
std::size_t ReadChain(const InspectedFile& file, const InspectedStream& stream,
                      std::uint64_t position, void* buffer, std::size_t count);

// File offset of a byte of the stream's chain.
std::uint64_t PlaceOf(const InspectedFile& file, const InspectedStream& stream,
                      std::uint64_t position);

// False when `take` ended it.
bool ForEachRecord(const InspectedFile& file, const std::function<bool(const Record&)>& take);

}  // namespace aostorage::detail

#endif  // AOSTORAGE_INSPECT_INSPECTED_FILE_H_
