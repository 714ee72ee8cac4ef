#include "entry_values.h"

#include <charconv>
#include <string_view>
#include <type_traits>

namespace aotool {
namespace {

constexpr std::size_t kLongestString = 0xFFFF;  // its count has 16 bits

template <typename Number>
std::optional<Number> ParseNumber(std::string_view text) {
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

// Numbers separated by commas, as many as there are.
template <std::size_t Count>
std::optional<std::array<std::int32_t, Count>> ParseNumbers(std::string_view text) {
  std::array<std::int32_t, Count> numbers{};
  for (std::size_t i = 0; i < Count; ++i) {
    const std::size_t comma = text.find(',');
    if ((comma == std::string_view::npos) != (i + 1 == Count)) return std::nullopt;
    const std::optional<std::int32_t> number = ParseNumber<std::int32_t>(text.substr(0, comma));
    if (!number) return std::nullopt;
    numbers[i] = *number;
    if (i + 1 != Count) text.remove_prefix(comma + 1);
  }
  return numbers;
}

template <typename Parsed>
std::optional<Value> AsValue(const std::optional<Parsed>& parsed) {
  if (!parsed) return std::nullopt;
  return Value(*parsed);
}

template <std::size_t Count>
std::string Join(const std::array<std::int32_t, Count>& numbers) {
  std::string text;
  for (const std::int32_t number : numbers)
    text += (text.empty() ? "" : ",") + std::to_string(number);
  return text;
}

std::string FormatDouble(double number) {
  char text[64];
  const std::to_chars_result result = std::to_chars(text, text + sizeof text, number);
  return {text, result.ptr};
}

}  // namespace

const std::vector<ValueForm>& ValueForms() {
  static const std::vector<ValueForm> kForms = {
      {ValueType::kInt, "--int", "a signed number of 32 bits", 4},
      {ValueType::kInt64, "--int64", "a signed number of 64 bits", 8},
      {ValueType::kUint, "--uint", "an unsigned number of 32 bits", 4},
      {ValueType::kDouble, "--double", "a floating-point number", 8},
      {ValueType::kString, "--string", "a text of at most 65535 bytes", 0},
      {ValueType::kSize, "--size", "WIDTH,HEIGHT", 8},
      {ValueType::kRect, "--rect", "LEFT,TOP,RIGHT,BOTTOM", 16},
      {ValueType::kRaw, "--raw", "the bytes alone", 0},
  };
  return kForms;
}

std::optional<Value> ParseValue(ValueType type, const std::string& text) {
  switch (type) {
    case ValueType::kInt:
      return AsValue(ParseNumber<std::int32_t>(text));
    case ValueType::kInt64:
      return AsValue(ParseNumber<std::int64_t>(text));
    case ValueType::kUint:
      return AsValue(ParseNumber<std::uint32_t>(text));
    case ValueType::kDouble:
      return AsValue(ParseNumber<double>(text));
    case ValueType::kString:
      if (text.size() > kLongestString) return std::nullopt;
      return Value(text);
    case ValueType::kSize:
      return AsValue(ParseNumbers<2>(text));
    case ValueType::kRect:
      return AsValue(ParseNumbers<4>(text));
    case ValueType::kRaw:
      return Value(RawBytes{text});
  }
  return std::nullopt;
}

std::string FormatValue(const Value& value) {
  return std::visit(
      [](const auto& held) -> std::string {
        using Held = std::decay_t<decltype(held)>;
        if constexpr (std::is_same_v<Held, std::string>) {
          return held;
        } else if constexpr (std::is_same_v<Held, RawBytes>) {
          return held.bytes;
        } else if constexpr (std::is_same_v<Held, double>) {
          return FormatDouble(held);
        } else if constexpr (std::is_arithmetic_v<Held>) {
          return std::to_string(held);
        } else {
          return Join(held);
        }
      },
      value);
}

}  // namespace aotool
