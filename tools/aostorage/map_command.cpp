// map

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "byte_kinds.h"
#include "files.h"
#include "inspected.h"
#include "interrupt.h"
#include "json.h"
#include "picture.h"
#include "picture_commands.h"
#include "picture_page.h"
#include "picture_svg.h"
#include "shown.h"
#include "style.h"
#include "terminal_map.h"

namespace aotool {
namespace {

using aostorage::Inspection;
using aostorage::Record;
using aostorage::RecordKind;
using aostorage::RecordState;

const char* WordOf(RecordKind kind) {
  switch (kind) {
    case RecordKind::kFileHeader:
      return "fileHeader";
    case RecordKind::kDirectoryBlock:
      return "directoryBlock";
    case RecordKind::kSlot:
      return "slot";
    case RecordKind::kBlockHeader:
      return "blockHeader";
    case RecordKind::kFolderCount:
      return "folderCount";
    case RecordKind::kChildRecord:
      return "childRecord";
    case RecordKind::kData:
      return "data";
    case RecordKind::kBehindLength:
      return "behindLength";
    case RecordKind::kReserve:
      return "reserve";
    case RecordKind::kUnknown:
      break;
  }
  return "unknown";
}

const char* WordOf(RecordState state) {
  switch (state) {
    case RecordState::kLive:
      return "live";
    case RecordState::kUnused:
      return "unused";
    case RecordState::kVacated:
      return "vacated";
    case RecordState::kUnreachable:
      return "unreachable";
    case RecordState::kOrphan:
      return "orphan";
    case RecordState::kOverlapping:
      break;
  }
  return "overlapping";
}

Json ElementOf(const Inspection& found, const Record& record) {
  Json element = Json::Object();
  element.Set("offset", record.offset)
      .Set("size", record.size)
      .Set("kind", WordOf(record.kind))
      .Set("state", WordOf(record.state));
  if (record.stream == aostorage::kNoIndex) return element;
  element.Set("stream", record.stream);
  const aostorage::InspectedStream& stream = found.Streams()[record.stream];
  const bool isHeader = record.kind == RecordKind::kSlot || record.kind == RecordKind::kChildRecord;
  if (isHeader) {
    element.SetName("name", found.NameOf(record.stream));
    if (stream.parent != aostorage::kNoIndex) element.Set("parent", stream.parent);
    element.Set("length", stream.header.length);
  }
  if (isHeader || record.kind == RecordKind::kBlockHeader)
    element.SetName("path", ShortPathOf(found, record.stream));
  if (record.block == aostorage::kNoIndex) return element;
  const aostorage::InspectedBlock& block = found.Blocks()[record.block];
  if (record.kind == RecordKind::kBlockHeader) {
    element.Set("used", block.used)
        .Set("capacity", block.capacity)
        .Set("prevBlock", block.prevBlock)
        .Set("nextBlock", block.nextBlock)
        .Set("position", block.position);
  } else if (record.kind != RecordKind::kReserve) {
    element.Set("position", record.position);
  }
  return element;
}

bool PrintRecords(const Inspection& found, const MapOptions& options) {
  Json head = JsonHead("map", options.store);
  head.Set("fileSize", found.FileSize());
  JsonListing listing(std::move(head), "records");
  return found.ForEachRecord([&](const Record& record) {
    listing.Add(ElementOf(found, record));
    return !Interrupted();
  });
}

// Into a new file that takes the place of an old one when it is whole.
Result WriteInPlace(const std::string& path, const std::string& store, const std::string& text) {
  const FileIdentity source = FileIdentity::At(store);
  const FileIdentity goal = path == "-" ? FileIdentity::Of(STDOUT_FILENO) : FileIdentity::At(path);
  if (goal == source) return {kFailure, "the output is the store itself"};
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  const auto write = [&](OutputFile&& output) {
    Result result = output.Write(bytes, text.size());
    return result.Ok() ? output.Finish() : result;
  };
  if (path == "-") return write({AT_FDCWD, path, OutputFile::IfThere::kReplace, source});
  const std::size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const std::string name = path.substr(slash + 1);  // npos + 1 is 0
  if (name.empty()) return {kFailure, "'" + Shown(path) + "' names no file"};
  const Descriptor place(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!place) return FromSystem(errno, "cannot open '" + Shown(directory) + "'");
  return write({place.Number(), name, OutputFile::IfThere::kReplace, source});
}

}  // namespace

void Map(const MapOptions& options, Report& report) {
  const auto found = Inspect(options.store, report);
  if (found == nullptr) return;
  bool drawn = true, written = true;
  if (!options.svg.empty() || !options.html.empty()) {
    Picture picture(*found, options.store);
    drawn = picture.Draw();
    const auto write = [&](const std::string& file, const std::string& text) {
      if (file.empty() || !drawn) return;
      const Result result = WriteInPlace(file, options.store, text);
      if (result.Ok()) return;
      report.Fail("", result);
      written = false;
    };
    if (drawn && !options.svg.empty()) write(options.svg, SvgOf(picture));
    if (drawn && !options.html.empty()) write(options.html, PageOf(picture));
  } else if (options.json) {
    drawn = PrintRecords(*found, options);
  } else {
    drawn = PrintTerminalMap(*found, Style(options.color));
  }
  if (!drawn) return ReportStop(report);
  if (written) ReportDamage(*found, report);
}

}  // namespace aotool
