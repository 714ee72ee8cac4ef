// set, get-entry

#include <array>
#include <cmath>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include <aostorage/error.h>
#include <aostorage/types.h>

#include "entry_store.h"
#include "entry_values.h"
#include "files.h"
#include "json.h"
#include "paths.h"
#include "store.h"
#include "transfer.h"
#include "verbs.h"

namespace aotool {
namespace {

const ValueForm& FormOf(ValueType type) { return ValueForms()[static_cast<std::size_t>(type)]; }

Result NoValue(ValueType type, const std::string& text) {
  const ValueForm& form = FormOf(type);
  return {kFailure,
          "'" + Shown(text) + "' does not fit " + form.option + ", which takes " + form.form};
}

// A document has the fields of a value as its own types: numbers, a text, a list of numbers.
struct SetValue {
  Json& document;

  void operator()(std::int32_t number) const { document.Set("value", number); }
  void operator()(std::int64_t number) const { document.Set("value", number); }
  void operator()(std::uint32_t number) const { document.Set("value", number); }
  void operator()(double number) const {
    if (std::isfinite(number)) {
      document.Set("value", number);
    } else {
      document.Set("value", FormatValue(number));
    }
  }
  void operator()(const std::string& text) const { document.SetName("value", text); }
  void operator()(const RawBytes& raw) const { document.SetName("value", raw.bytes); }
  template <std::size_t Count>
  void operator()(const std::array<std::int32_t, Count>& numbers) const {
    Json list = Json::Array();
    for (const std::int32_t number : numbers) list.Add(number);
    document.Set("value", std::move(list));
  }
};

void PrintDocument(const GetEntryOptions& options, const Value& value, bool isDefault) {
  Json document = JsonHead("get-entry", options.store);
  document.SetName("path", options.path)
      .Set("type", FormOf(options.type).option + 2)  // without its dashes
      .Set("isDefault", isDefault);
  std::visit(SetValue{document}, value);
  PrintJson(document);
}

void PrintValue(const GetEntryOptions& options, const Value& value, bool isDefault) {
  if (options.json) return PrintDocument(options, value, isDefault);
  Print(FormatValue(value));
  if (!std::holds_alternative<RawBytes>(value)) Print("\n");
}

// What a raw entry holds is what its stream holds.
Result PrintRaw(aostorage::aoStream& stream) {
  OutputFile output(AT_FDCWD, "-", OutputFile::IfThere::kOverwrite, {});
  return Transfer([](std::uint64_t) {}).CopyOut(stream, output);
}

Result PrintStored(const GetEntryOptions& options, Target& target,
                   const std::optional<Value>& defaultValue) {
  const ValueType type = options.type;
  if (type == ValueType::kRaw) return PrintRaw(*target.stream);
  const bool tooShort = target.stream->GetLength() < FormOf(type).width;
  target.stream.reset();
  if (const std::optional<Value> value = LoadValue(target.parents.Bottom(), target.name, type)) {
    PrintValue(options, *value, false);
    return {};
  }
  if (!tooShort) return FromShortRead();
  if (!defaultValue) {
    return {kFailure, std::string("holds too little for ") + FormOf(type).option};
  }
  PrintValue(options, *defaultValue, true);
  return {};
}

}  // namespace

void SetEntry(const SetOptions& options, Report& report) {
  const auto& [type, text] = *options.given.begin();
  const std::optional<Value> value = ParseValue(type, text);
  if (!value) return report.Fail(options.path, NoValue(type, text));
  const StoragePtr storage = OpenForWriting(options.store, options.reserve, report);
  if (!storage) return;
  Target target(*storage);
  Result result = LocateForCreation(options.path, target);
  if (result.Ok() && target.stream && target.stream->IsFolder() == 1) {
    result = {kFailure, "is a folder"};
  }
  target.stream.reset();
  if (result.Ok()) result = StoreValue(target.parents.Bottom(), target.name, *value);
  if (!result.Ok()) report.Fail(options.path, result);
}

void PrintEntry(const GetEntryOptions& options, Report& report) {
  const ValueType type = options.type;
  std::optional<Value> defaultValue;
  if (options.defaultValue) {
    defaultValue = ParseValue(type, *options.defaultValue);
    if (!defaultValue) return report.Fail(options.path, NoValue(type, *options.defaultValue));
  }
  const StoragePtr storage = OpenForReading(options.store, report);
  if (!storage) return;
  Target target(*storage);
  Result result = LocatePlain(options.path, target);
  const bool absent =
      result.code == kNotFound || result.code == kFailure;  // or a folder is in the way
  if (absent && defaultValue) return PrintValue(options, *defaultValue, true);
  if (result.Ok()) result = PrintStored(options, target, defaultValue);
  if (!result.Ok()) report.Fail(options.path, result);
}

}  // namespace aotool
