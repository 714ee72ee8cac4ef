#include "json.h"

#include <cstdio>
#include <utility>

#include <nlohmann/json.hpp>

#include "report.h"
#include "shown.h"

namespace aotool {
namespace {

using Value = nlohmann::ordered_json;

std::string Hex(std::string_view bytes) {
  std::string hex;
  for (const char byte : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
    hex += digits;
  }
  return hex;
}

}  // namespace

Json::Json(Value&& value) : content(std::make_unique<Value>(std::move(value))) {}
Json::Json(Json&& other) noexcept = default;
Json& Json::operator=(Json&& other) noexcept = default;
Json::~Json() = default;

Json Json::Object() { return Json(Value::object()); }
Json Json::Array() { return Json(Value::array()); }

Json& Json::Set(const char* key, std::string_view text) {
  (*content)[key] = text;
  return *this;
}

Json& Json::Set(const char* key, double number) {
  (*content)[key] = number;
  return *this;
}

Json& Json::Set(const char* key, Json value) {
  (*content)[key] = std::move(*value.content);
  return *this;
}

Json& Json::SetNull(const char* key) {
  (*content)[key] = nullptr;
  return *this;
}

Json& Json::SetName(const char* key, std::string_view bytes) {
  if (IsUtf8(bytes)) return Set(key, bytes);
  Set(key, Shown(bytes));
  return SetHex((std::string(key) + "Hex").c_str(), bytes);
}

Json& Json::SetHex(const char* key, std::string_view bytes) { return Set(key, Hex(bytes)); }

Json& Json::SetTruth(const char* key, bool value) {
  (*content)[key] = value;
  return *this;
}

Json& Json::SetSigned(const char* key, std::int64_t value) {
  (*content)[key] = value;
  return *this;
}

Json& Json::SetUnsigned(const char* key, std::uint64_t value) {
  (*content)[key] = value;
  return *this;
}

Json& Json::Add(Json value) {
  content->push_back(std::move(*value.content));
  return *this;
}

Json& Json::Add(std::int64_t number) {
  content->push_back(number);
  return *this;
}

Json& Json::Add(std::string_view text) {
  content->push_back(text);
  return *this;
}

// In ASCII, so that no name in it can act on a terminal.
std::string Json::Text() const { return content->dump(-1, ' ', true); }

Json JsonHead(const char* verb, std::string_view store) {
  Json head = Json::Object();
  head.Set("verb", verb).SetName("store", store);
  return head;
}

void PrintJson(const Json& document) { Print(document.Text() + "\n"); }

JsonListing::JsonListing(Json head, const char* listKey) {
  std::string text = head.Set(listKey, Json::Array()).Text();
  text.resize(text.size() - 2);  // the brackets that the elements come between are left open
  Print(text);
}

JsonListing::~JsonListing() { Print(isEmpty ? "]}\n" : "\n]}\n"); }

void JsonListing::Add(const Json& element) {
  Print(isEmpty ? "\n" : ",\n");
  Print(element.Text());
  isEmpty = false;
}

}  // namespace aotool
