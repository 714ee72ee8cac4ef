#include "text_loader.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <aostorage/error.h>
#include <aostorage/types.h>

#include "files.h"
#include "paths.h"

namespace aotool {
namespace {

// Each takes memory while it is open, and no tree that somebody means is as deep.
constexpr std::uint64_t kMostLevels = 65536;

Result Bad(const std::string& why) { return {kFailure, why}; }

}  // namespace

Result LineReader::Next(std::string_view& line, bool& got) {
  ++number;
  for (std::size_t looked = begin;;) {
    const auto* found =
        static_cast<const char*>(std::memchr(buffer.data() + looked, '\n', end - looked));
    const std::size_t size =
        (found != nullptr ? static_cast<std::size_t>(found - buffer.data()) : end) - begin;
    if (size > kLongestLine)
      return Bad("the line is longer than " + std::to_string(kLongestLine) + " bytes");
    if (found != nullptr || atEnd) {
      got = found != nullptr || size != 0;
      line = std::string_view(buffer.data() + begin, size);
      begin += size + (found != nullptr ? 1 : 0);
      if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
      return {};
    }
    std::memmove(buffer.data(), buffer.data() + begin, end - begin);
    end -= std::exchange(begin, 0);
    looked = end;
    std::size_t count = 0;
    const std::size_t room = buffer.size() - end;
    if (Result result =
            ReadPiece(input, reinterpret_cast<std::uint8_t*>(buffer.data() + end), room, count);
        !result.Ok()) {
      return result;
    }
    end += count;
    atEnd = count < room;
  }
}

Result TextLoader::Take(std::string_view line) {
  if (!begun) {
    begun = true;
    if (line == kTextFirstLine) return {};
    return Bad("the text does not begin with '" + std::string(kTextFirstLine) + "'");
  }
  if (line.empty() || line.front() == '#') return {};
  if (ended) return Bad("there is more behind the line that ends the text");
  if (TakeWord(line, "  ")) return TakeData(line);
  if (Result result = EndStream(); !result.Ok()) return result;
  TextRecord record;
  if (TakeRecord(line, record)) return TakeStream(record);
  TextTotals totals;
  if (!TakeEnd(line, totals)) return Bad("this is no line of such a text");
  ended = true;
  if (totals.folders == made.folders && totals.plain == made.plain && totals.bytes == made.bytes)
    return {};
  return Bad("the text has other totals: a part of it is missing or was added ('" + EndLine(made) +
             "' would fit)");
}

Result TextLoader::Finish() const {
  return ended ? Result{} : Bad("the text breaks off: it has no line 'end'");
}

Result TextLoader::TakeStream(const TextRecord& record) {
  if (record.depth > kMostLevels)
    return Bad("the folders lie deeper than " + std::to_string(kMostLevels));
  if (record.depth > trail.Names().size() + 1) return Bad("there is no folder around the stream");
  while (trail.Names().size() >= record.depth) trail.Pop();
  if (Result result = CheckFolders(record); !result.Ok()) return result;
  StreamPtr stream;
  if (Result result = Create(record, stream); !result.Ok()) return result;
  if (record.folder) {
    ++made.folders;
    trail.Push(record.names.back(), std::move(stream));
    return {};
  }
  ++made.plain;
  made.bytes += record.length;
  missing = record.length;
  current = std::move(stream);
  return {};
}

// The names in front of the last one are there for the reader; they must not tell otherwise.
Result TextLoader::CheckFolders(const TextRecord& record) const {
  const std::vector<std::string>& names = trail.Names();
  const std::size_t above = record.names.size() - 1;
  if (std::equal(names.end() - static_cast<std::ptrdiff_t>(above), names.end(),
                 record.names.begin())) {
    return {};
  }
  return Bad("the folders on the path are not those of the lines before");
}

Result TextLoader::Create(const TextRecord& record, StreamPtr& stream) {
  const std::string& name = record.names.back();
  if (name.find('\0') != std::string::npos) return Bad("the name holds a zero byte");
  if (Result result = CheckName(name); !result.Ok()) return result;
  if (record.reserved && record.depth != 1) return Bad("only root streams have reserved slots");
  const std::uint32_t kind = aostorage::PackKind(record.folder, record.duration);
  const Place place = trail.Bottom();
  aostorage::ClearLastError();
  if (record.reserved && place.Open(name, aostorage::kReadFlags))
    return Bad("there is a stream of this name already");
  aostorage::ClearLastError();
  stream = record.reserved
               ? StreamPtr(storage.CreateStreamFast(name.c_str(), kind, aostorage::kWriteFlags))
               : place.Create(name, kind);
  if (stream) return {};
  switch (aostorage::LastError().code) {
    case aostorage::ErrorCode::kExists:
      return Bad("there is a stream of this name already");
    case aostorage::ErrorCode::kFull:
      return Bad("there are more streams in reserved slots than a store has");
    default:
      return FromLibrary();
  }
}

Result TextLoader::TakeData(std::string_view line) {
  if (!current) return Bad("there is no plain stream that these bytes belong to");
  const std::size_t before = held.size();
  const bool good =
      line.substr(0, 1) == "\"" ? TakeQuoted(line, held) && line.empty() : TakeHex(line, held);
  if (!good) return Bad("these are neither quoted text nor hexadecimal digits");
  const std::size_t added = held.size() - before;
  if (added > missing) return Bad("these are more bytes than the length of the stream");
  missing -= added;
  constexpr std::size_t kPiece = 65536;
  return held.size() < kPiece ? Result{} : WriteHeld();
}

Result TextLoader::WriteHeld() {
  if (held.empty()) return {};
  const auto count = static_cast<std::uint32_t>(held.size());
  aostorage::ClearLastError();
  if (current->Write(held.data(), count) != count) return FromLibrary();
  held.clear();
  return {};
}

Result TextLoader::EndStream() {
  if (missing != 0) {
    return Bad(std::to_string(missing) + " bytes of the stream before are missing");
  }
  if (!current) return {};
  Result result = WriteHeld();
  current.reset();
  return result;
}

}  // namespace aotool
