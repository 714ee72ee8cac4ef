// The fields of the records of a storage file, for those who read its bytes: docs/format.md as
// tables. The one place of the tool that knows them.
#ifndef AOSTORAGE_TOOLS_RECORD_FIELDS_H_
#define AOSTORAGE_TOOLS_RECORD_FIELDS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace aotool {

enum class FieldKind : std::uint8_t {
  kMagicWord,
  kText,     // as it stands
  kName,     // up to the terminating zero
  kNumber,   // little-endian
  kOffset,   // a file offset, 0 for none
  kFlag,     // 1: folder
  kIgnored,  // not examined
};

struct Field {
  const char* name;
  std::uint32_t offset, size;  // in the record
  FieldKind kind;
};

struct RecordLayout {
  std::uint32_t size;
  std::uint32_t magic;  // of its magic word; 0 without one
  std::vector<Field> fields;
};

extern const RecordLayout kFileHeaderLayout, kOlderFileHeaderLayout, kDirectoryHeadLayout,
    kStreamHeaderLayout, kBlockHeaderLayout, kFolderCountLayout;

std::uint64_t NumberIn(const std::uint8_t* bytes, std::size_t size);

// What the bytes of a whole field say: "slotCount 64", "name "hello"".
std::string Meaning(const RecordLayout& layout, const Field& field, const std::uint8_t* bytes);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_RECORD_FIELDS_H_
