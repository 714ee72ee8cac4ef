// set, get-entry

#include <optional>
#include <string>
#include <variant>

#include <aostorage/error.h>
#include <aostorage/types.h>

#include "entry_store.h"
#include "entry_values.h"
#include "files.h"
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

void PrintValue(const Value& value) {
  Print(FormatValue(value));
  if (!std::holds_alternative<RawBytes>(value)) Print("\n");
}

// What a raw entry holds is what its stream holds.
Result PrintRaw(aostorage::aoStream& stream) {
  OutputFile output(AT_FDCWD, "-", OutputFile::IfThere::kOverwrite, {});
  return Transfer([](std::uint64_t) {}).CopyOut(stream, output);
}

Result PrintStored(Target& target, ValueType type, const std::optional<Value>& defaultValue) {
  if (type == ValueType::kRaw) return PrintRaw(*target.stream);
  const bool tooShort = target.stream->GetLength() < FormOf(type).width;
  target.stream.reset();
  if (const std::optional<Value> value = LoadValue(target.parents.Bottom(), target.name, type)) {
    PrintValue(*value);
    return {};
  }
  if (!tooShort) return FromShortRead();
  if (!defaultValue) {
    return {kFailure, std::string("holds too little for ") + FormOf(type).option};
  }
  PrintValue(*defaultValue);
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
  if (absent && defaultValue) return PrintValue(*defaultValue);
  if (result.Ok()) result = PrintStored(target, type, defaultValue);
  if (!result.Ok()) report.Fail(options.path, result);
}

}  // namespace aotool
