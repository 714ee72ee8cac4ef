// What --json prints: one document on standard output for each run that comes to an answer, all in
// ASCII. A run that fails before prints none; messages and the exit code are those of a run without
// --json. docs/aostorage-json.schema.json tells the form of each verb's document: a verb that gets
// one is entered there.
//
// Names and paths are bytes. One that is UTF-8 is a string; of another one the string is what Shown
// makes of it, and beside it stands a field of the same name with "Hex" at its end, which carries
// the bytes. SetName does both.
#ifndef AOSTORAGE_TOOLS_JSON_H_
#define AOSTORAGE_TOOLS_JSON_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include <nlohmann/json_fwd.hpp>

namespace aotool {

// An object or an array that is being put together. The library behind it takes long to compile, so
// only json.cpp includes it.
class Json {
 public:
  static Json Object();
  static Json Array();
  Json(Json&& other) noexcept;
  Json& operator=(Json&& other) noexcept;
  ~Json();

  // Fields of an object, in the order in which they are set. `text` is ours and UTF-8; what comes
  // from a store or a command line goes through SetName.
  Json& Set(const char* key, std::string_view text);
  Json& Set(const char* key, const char* text) { return Set(key, std::string_view(text)); }
  Json& Set(const char* key, double number);  // one that is no number or infinite becomes null
  Json& Set(const char* key, Json value);
  Json& SetNull(const char* key);
  Json& SetName(const char* key, std::string_view bytes);
  Json& SetHex(const char* key, std::string_view bytes);  // their hexadecimal digits
  template <typename Integer, std::enable_if_t<std::is_integral_v<Integer>, int> = 0>
  Json& Set(const char* key, Integer value) {
    if constexpr (std::is_same_v<Integer, bool>) {
      return SetTruth(key, value);
    } else if constexpr (std::is_signed_v<Integer>) {
      return SetSigned(key, value);
    } else {
      return SetUnsigned(key, value);
    }
  }

  // Elements of an array.
  Json& Add(Json value);
  Json& Add(std::int64_t number);
  Json& Add(std::string_view text);

  // On one line, without its end.
  std::string Text() const;

 private:
  explicit Json(nlohmann::ordered_json&& value);
  Json& SetTruth(const char* key, bool value);
  Json& SetSigned(const char* key, std::int64_t value);
  Json& SetUnsigned(const char* key, std::uint64_t value);

  std::unique_ptr<nlohmann::ordered_json> content;
};

// The fields with which every document begins: the verb and its store.
Json JsonHead(const char* verb, std::string_view store);

// The whole document of a verb.
void PrintJson(const Json& document);

// The document of a verb with a long list: an object whose last field is the list. Its elements are
// printed as they come, one a line, so that none is kept.
class JsonListing {
 public:
  // `head`: the fields before the list.
  JsonListing(Json head, const char* listKey);
  JsonListing(const JsonListing&) = delete;
  JsonListing& operator=(const JsonListing&) = delete;
  ~JsonListing();  // ends the document

  void Add(const Json& element);

 private:
  bool isEmpty = true;
};

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_JSON_H_
