#include "recover_finds.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include <aostorage/types.h>

#include "inspected.h"
#include "shown.h"

namespace aotool {
namespace {

using aostorage::InspectedStream;
using aostorage::Inspection;
using aostorage::RecordState;
using aostorage::StreamOrigin;

struct Kind {
  const char* what;
  const char* why;
};

// What can be said by the place where the stream was found.
Kind KindOf(const Inspection& source, const InspectedStream& stream) {
  switch (stream.origin) {
    case StreamOrigin::kVacated:
      return {"removed", "it was removed; streams that came later may have written over it"};
    case StreamOrigin::kHidden:
      return {"hidden", "another stream of the same name is found in its place"};
    case StreamOrigin::kUncounted:
      return {"uncounted", "its folder does not count it: its creation may have been broken off"};
    case StreamOrigin::kLostDirectory:
      return {"lost", "its directory block is not reached"};
    case StreamOrigin::kLoneRecord:
      return {"lost", "its header lies outside all directory blocks and folders; it may be old"};
    case StreamOrigin::kOrphanChain:
      return {"orphan", "no header leads to these blocks"};
    default:
      break;
  }
  if (stream.parent != aostorage::kNoIndex &&
      source.Streams()[stream.parent].state != RecordState::kLive) {
    return {"inside", "the folder around it is not reached"};
  }
  return {kDamagedHeader, "its name or magic word is damaged"};
}

std::string BrokenPart(const InspectedStream& stream, const Verdict& verdict) {
  if (verdict.Whole() || stream.isFolder) return "";
  if (!HasLength(stream)) return "-cut-" + std::to_string(verdict.bytes);
  if (verdict.bytes < stream.header.length) {
    return "-cut-" + std::to_string(verdict.bytes) + "-of-" + std::to_string(stream.header.length);
  }
  return "-doubtful";
}

}  // namespace

Find FindOf(const Inspection& source, std::uint32_t stream, const Verdict& verdict) {
  const InspectedStream& found = source.Streams()[stream];
  Find find;
  find.from = ShortPathOf(source, stream);
  find.offset = found.headerOffset != 0 ? found.headerOffset : found.header.firstBlock;
  find.folder = found.isFolder;
  find.bytes = verdict.bytes;
  find.hasLength = HasLength(found);
  find.length = found.header.length;
  if (found.state == RecordState::kLive) {
    find.what = found.isFolder                        ? "folder"
                : verdict.bytes < found.header.length ? "cut"
                                                      : "doubtful";
    find.why = verdict.why;
    return find;
  }
  const Kind kind = KindOf(source, found);
  find.what = kind.what;
  find.why = kind.why;
  if (!verdict.Whole()) find.why += "; " + verdict.why;
  return find;
}

std::string LostName(const Inspection& source, std::uint32_t stream, const Verdict& verdict,
                     UsedNames& used) {
  const InspectedStream& found = source.Streams()[stream];
  const std::string broken = BrokenPart(found, verdict);
  const bool isLive = found.state == RecordState::kLive;
  const std::string what = isLive ? "" : KindOf(source, found).what;
  const std::uint64_t offset =
      found.headerOffset != 0 ? found.headerOffset : found.header.firstBlock;
  std::string ending;
  if (isLive || (what == "inside" && !broken.empty())) {
    ending = broken.substr(std::min<std::size_t>(1, broken.size()));
    if (ending == "doubtful") ending += "-" + std::to_string(offset);
  } else {
    ending = what + "-" + std::to_string(offset) + broken;
  }
  const bool hasName =
      found.origin != StreamOrigin::kVacated && found.origin != StreamOrigin::kOrphanChain;
  return used.MakeUnique(hasName ? source.NameOf(stream) : "", hasName ? "~" + ending : ending,
                         aostorage::kMaxNameLength);
}

Result Spool::Open() {
  file.reset(std::tmpfile());
  return file ? Result{} : FromSystem(errno, "cannot make a temporary file");
}

Result Spool::Add(std::string_view text) {
  isEmpty = isEmpty && text.empty();
  return std::fwrite(text.data(), 1, text.size(), file.get()) == text.size() ? Result{} : Failed();
}

Result Spool::Failed() { return FromSystem(errno, "cannot keep the report in a temporary file"); }

std::string TextOf(const Find& find) {
  std::string line = find.path.empty() ? "-" : Shown(find.path);
  line += std::string(": ") + find.what + ": ";
  if (!find.from.empty()) {
    if (find.folder) line += "folder ";
    line += Shown(find.from) + " at offset " + std::to_string(find.offset);
    if (!find.folder) {
      line += ", " + std::to_string(find.bytes);
      if (find.hasLength && find.length != find.bytes) line += " of " + std::to_string(find.length);
      line += " bytes";
    }
    line += ": ";
  }
  return line + find.why + "\n";
}

Json JsonOf(const Find& find) {
  Json element = Json::Object();
  element.Set("what", find.what);
  if (find.path.empty()) {
    element.SetNull("path");
  } else {
    element.SetName("path", find.path);
  }
  if (!find.from.empty()) {
    element.SetName("from", find.from)
        .Set("offset", find.offset)
        .Set("kind", find.folder ? "folder" : "plain")
        .Set("bytes", find.folder ? std::uint64_t{0} : find.bytes);
    if (find.hasLength && !find.folder) element.Set("length", find.length);
  }
  element.Set("why", find.why);
  return element;
}

}  // namespace aotool
