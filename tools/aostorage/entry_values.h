// Values of entries as texts: from the command line and to standard output.
#ifndef AOSTORAGE_TOOLS_ENTRY_VALUES_H_
#define AOSTORAGE_TOOLS_ENTRY_VALUES_H_

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace aotool {

enum class ValueType { kInt, kInt64, kUint, kDouble, kString, kSize, kRect, kRaw };

struct RawBytes {
  std::string bytes;
};
using SizeNumbers = std::array<std::int32_t, 2>;  // width, height
using RectNumbers = std::array<std::int32_t, 4>;  // left, top, right, bottom
using Value = std::variant<std::int32_t, std::int64_t, std::uint32_t, double, std::string,
                           SizeNumbers, RectNumbers, RawBytes>;

// The option that names the type, and what its value looks like.
struct ValueForm {
  ValueType type;
  const char* option;
  const char* form;
  std::uint32_t width;  // bytes of a value, 0 when they vary
};
const std::vector<ValueForm>& ValueForms();

// Nothing when `text` is not wholly a value of that type, in its range.
std::optional<Value> ParseValue(ValueType type, const std::string& text);
std::string FormatValue(const Value& value);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_ENTRY_VALUES_H_
