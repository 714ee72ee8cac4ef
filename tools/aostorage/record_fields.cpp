#include "record_fields.h"

#include <algorithm>

#include "shown.h"

namespace aotool {

const RecordLayout kFileHeaderLayout = {32,
                                        0,
                                        {{"magic text", 0, 24, FieldKind::kText},
                                         {"version", 24, 1, FieldKind::kText},
                                         {"reserved", 25, 1, FieldKind::kIgnored},
                                         {"slotsPerDirectory", 26, 2, FieldKind::kNumber},
                                         {"reservedSlotCount", 28, 2, FieldKind::kNumber},
                                         {"reserved", 30, 2, FieldKind::kIgnored}}};
const RecordLayout kOlderFileHeaderLayout = {
    26, 0, {{"magic text", 0, 25, FieldKind::kText}, {"terminator", 25, 1, FieldKind::kIgnored}}};
const RecordLayout kDirectoryHeadLayout = {12,
                                           0xFBFBFBFB,
                                           {{"magic", 0, 4, FieldKind::kMagicWord},
                                            {"slotCount", 4, 4, FieldKind::kNumber},
                                            {"nextDirectory", 8, 4, FieldKind::kOffset}}};
const RecordLayout kStreamHeaderLayout = {80,
                                          0xFCFCFCFC,
                                          {{"magic", 0, 4, FieldKind::kMagicWord},
                                           {"name", 4, 61, FieldKind::kName},
                                           {"duration", 65, 2, FieldKind::kNumber},
                                           {"kind", 67, 1, FieldKind::kFlag},
                                           {"length", 68, 4, FieldKind::kNumber},
                                           {"lastBlock", 72, 4, FieldKind::kOffset},
                                           {"firstBlock", 76, 4, FieldKind::kOffset}}};
const RecordLayout kBlockHeaderLayout = {20,
                                         0xFAFAFAFA,
                                         {{"magic", 0, 4, FieldKind::kMagicWord},
                                          {"used", 4, 4, FieldKind::kNumber},
                                          {"capacity", 8, 4, FieldKind::kNumber},
                                          {"prevBlock", 12, 4, FieldKind::kOffset},
                                          {"nextBlock", 16, 4, FieldKind::kOffset}}};
const RecordLayout kFolderCountLayout = {4, 0, {{"child count", 0, 4, FieldKind::kNumber}}};

std::uint64_t NumberIn(const std::uint8_t* bytes, std::size_t size) {
  std::uint64_t number = 0;
  for (std::size_t i = size; i > 0; --i) number = number * 256 + bytes[i - 1];
  return number;
}

std::string Meaning(const RecordLayout& layout, const Field& field, const std::uint8_t* bytes) {
  const std::string name = field.name;
  const std::string text(reinterpret_cast<const char*>(bytes), field.size);
  const std::uint64_t number = NumberIn(bytes, std::min<std::size_t>(field.size, 8));
  switch (field.kind) {
    case FieldKind::kMagicWord:
      return number == layout.magic ? name : "no magic word";
    case FieldKind::kText:
      return name + " \"" + Shown(text) + "\"";
    case FieldKind::kName:
      if (text.find('\0') == std::string::npos) return name + " without end";
      if (text[0] == '\0') return "no name";
      return name + " \"" + Shown(text.substr(0, text.find('\0'))) + "\"";
    case FieldKind::kNumber:
      return name + " " + std::to_string(number);
    case FieldKind::kOffset:
      return name + " " + std::to_string(number) + (number == 0 ? ": none" : "");
    case FieldKind::kFlag:
      return name + " " + std::to_string(number) + (number == 1 ? ": folder" : ": plain");
    case FieldKind::kIgnored:
      return name;
  }
  return name;
}

}  // namespace aotool
