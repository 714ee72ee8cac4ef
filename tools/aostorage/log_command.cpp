// log
//
// A log entry is a stream: at offset 0 the offset of the newest value as a 32-bit number, and from
// offset 4 on every value written, oldest first, without borders between them.

#include <cstdio>
#include <string>
#include <vector>

#include <aostorage/error.h>
#include <aostorage/types.h>

#include "files.h"
#include "json.h"
#include "paths.h"
#include "store.h"
#include "verbs.h"

namespace aotool {
namespace {

constexpr std::uint32_t kPrefixSize = 4;
// The operation that appends takes a value as a whole.
constexpr std::size_t kLongestValue = std::size_t{64} << 20;

struct LogState {
  std::uint32_t length = 0;
  std::uint32_t newest = 0;  // its offset; 0 in an empty stream
};

bool LooksLikeLog(const LogState& state) {
  return state.length == 0 || (state.newest >= kPrefixSize && state.newest <= state.length);
}

Result ReadState(aostorage::aoStream& stream, LogState& state) {
  state.length = stream.GetLength();
  if (state.length == 0) return {};
  if (state.length < kPrefixSize) return {kFailure, "is no log entry: it is too short"};
  aostorage::ClearLastError();
  stream >> state.newest;
  if (stream.GetCurDataPos() != kPrefixSize) return FromShortRead();
  if (LooksLikeLog(state)) return {};
  return {kFailure, "is no log entry: it does not begin with the offset of a value"};
}

Result ReadValue(int input, std::vector<std::uint8_t>& value) {
  std::size_t count = 0;
  constexpr std::size_t kPiece = std::size_t{256} << 10;
  do {
    const std::size_t start = value.size();
    value.resize(start + kPiece);
    if (Result result = ReadPiece(input, value.data() + start, kPiece, count); !result.Ok())
      return result;
    value.resize(start + count);
    if (value.size() > kLongestValue) return {kFailure, "the value is longer than 64 MiB"};
  } while (count == kPiece);
  if (value.empty()) return {kFailure, "an empty value leaves no trace in a log: nothing was done"};
  return {};
}

// Entries at the root have no log form, so its bytes are written here: the value first, so that the
// prefix never points at a value that is not there.
bool AppendAtRoot(Place place, const std::string& name, const std::vector<std::uint8_t>& value) {
  const auto size = static_cast<std::uint32_t>(value.size());
  const StreamPtr stream(
      place.storage->OpenOrCreateStream(name.c_str(), aostorage::PackKind(false)));
  if (!stream) return false;
  const bool isNew = stream->GetLength() == 0;
  const std::uint32_t offset = isNew ? kPrefixSize : stream->GetLength();
  if (isNew) {
    *stream << kPrefixSize;
  } else if (stream->Seek(offset, 0) != 0) {
    return false;
  }
  if (stream->GetCurDataPos() != offset || stream->Write(value.data(), size) != size) return false;
  if (isNew) return true;
  if (stream->Seek(0, 0) != 0) return false;
  *stream << offset;
  return stream->GetCurDataPos() == kPrefixSize;
}

bool AppendInFolder(Place place, const std::string& name, const std::vector<std::uint8_t>& value) {
  return place.folder->SetEntry(name.c_str(), value.data(),
                                static_cast<std::uint32_t>(value.size())) == 1;
}

// Success of the operation says only that the stream was there, so the new state is looked at.
Result Append(Place place, const std::string& name, const std::vector<std::uint8_t>& value,
              std::uint32_t oldLength) {
  const std::uint32_t offset = oldLength == 0 ? kPrefixSize : oldLength;
  aostorage::ClearLastError();
  const bool done = place.folder != nullptr ? AppendInFolder(place, name, value)
                                            : AppendAtRoot(place, name, value);
  if (!done) return FromLibrary();
  const Result appended = FromLibrary();
  LogState state;
  const StreamPtr stream = place.Open(name, aostorage::kReadFlags);
  if (!stream) return FromLibrary();
  if (Result result = ReadState(*stream, state); !result.Ok()) return result;
  if (state.newest == offset && state.length == offset + value.size()) return {};
  return {appended.code == kFailure ? kInputOutput : appended.code,
          "the value was not written whole: " + appended.reason};
}

void PrintRow(std::uint32_t offset, std::uint32_t bytes, const char* what) {
  char row[96];
  std::snprintf(row, sizeof row, "%10u %10u  %s\n", offset, bytes, what);
  Print(row);
}

void PrintLog(const LogState& state) {
  Print("    offset      bytes\n");
  if (state.length == 0) return;
  PrintRow(0, kPrefixSize, ("prefix " + std::to_string(state.newest)).c_str());
  if (state.newest > kPrefixSize) {
    PrintRow(kPrefixSize, state.newest - kPrefixSize, "older values; their borders are not stored");
  }
  PrintRow(state.newest, state.length - state.newest, "newest value");
}

Json Part(std::uint32_t offset, std::uint32_t bytes) {
  Json part = Json::Object();
  part.Set("offset", offset).Set("bytes", bytes);
  return part;
}

void PrintDocument(const LogOptions& options, const LogState& state) {
  Json document = JsonHead("log", options.store);
  document.SetName("path", options.path).Set("length", state.length);
  if (state.length == 0) {
    document.SetNull("older").SetNull("newest");
  } else {
    document.Set("older", Part(kPrefixSize, state.newest - kPrefixSize))
        .Set("newest", Part(state.newest, state.length - state.newest));
  }
  PrintJson(document);
}

void ListLog(const LogOptions& options, Report& report) {
  const StoragePtr storage = OpenForReading(options.store, report);
  if (!storage) return;
  Target target(*storage);
  LogState state;
  Result result = LocatePlain(options.path, target);
  if (result.Ok()) result = ReadState(*target.stream, state);
  if (!result.Ok()) return report.Fail(options.path, result);
  if (options.json) return PrintDocument(options, state);
  PrintLog(state);
}

void AppendToLog(const LogOptions& options, Report& report) {
  Descriptor input;
  std::vector<std::uint8_t> value;
  Result result = OpenInput(options.file, FileIdentity::At(options.store), input);
  if (result.Ok()) result = ReadValue(input.Number(), value);
  if (!result.Ok()) return report.Fail(options.path, result);
  const StoragePtr storage = OpenForWriting(options.store, options.reserve, report);
  if (!storage) return;
  Target target(*storage);
  LogState state;
  result = LocateForCreation(options.path, target);
  if (result.Ok() && target.stream) {
    result = target.stream->IsFolder() == 1 ? Result{kFailure, "is a folder"}
                                            : ReadState(*target.stream, state);
  }
  target.stream.reset();
  if (result.Ok()) result = Append(target.parents.Bottom(), target.name, value, state.length);
  if (!result.Ok()) report.Fail(options.path, result);
}

}  // namespace

void Log(const LogOptions& options, Report& report) {
  if (options.list) return ListLog(options, report);
  AppendToLog(options, report);
}

}  // namespace aotool
