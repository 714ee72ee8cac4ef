// Paths, looked up in what the inspection found.
#include <charconv>
#include <cstdlib>

#include <aostorage/types.h>

#include "named_tree.h"
#include "shown.h"
#include "trail.h"

namespace aotool {
namespace {

using aostorage::InspectedStream;
using aostorage::kNoIndex;

constexpr std::uint64_t kHeaderSize = 80;

// Decimal, or hexadecimal behind 0x.
bool ParseOffset(std::string_view text, std::uint64_t& offset) {
  const bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  if (hexadecimal) text.remove_prefix(2);
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, offset, hexadecimal ? 16 : 10);
  return parsed.ec == std::errc() && parsed.ptr == end;
}

std::string_view Trimmed(std::string_view path) {
  if (!path.empty() && path.front() == '/') path.remove_prefix(1);
  if (!path.empty() && path.back() == '/') path.remove_suffix(1);
  return path;
}

}  // namespace

Result NamedTree::Find(const std::string& path, std::uint32_t& stream) const {
  if (path.empty()) return {kFailure, "the path is empty"};
  const std::string_view trimmed = Trimmed(path);
  stream = FindOrdinary(trimmed);
  if (stream != kNoIndex) return {};
  // First as it stands: a root stream's name may begin or end with a slash.
  Result result = Descend(path, stream);
  if (result.code == kNotFound && trimmed.size() != path.size()) result = Descend(trimmed, stream);
  if (result.code == kNotFound && path[0] == '@')
    return FindAt(std::string_view(path).substr(1), stream);
  return result;
}

std::uint32_t NamedTree::FindOrdinary(std::string_view path) const {
  std::uint32_t at = kNoIndex;
  for (const std::string& name : SplitPath(path)) {
    if (at != kNoIndex && !At(at).isFolder) return kNoIndex;
    at = Child(at, name);
    if (at == kNoIndex) return kNoIndex;
  }
  return at;
}

// Takes the longest run of names that is a name, at each level.
Result NamedTree::Descend(std::string_view rest, std::uint32_t& stream) const {
  for (std::uint32_t folder = kNoIndex;;) {
    std::string_view plainInTheWay;
    std::uint32_t child = kNoIndex;
    std::size_t used = rest.size();
    for (; used != std::string_view::npos && used != 0; used = rest.rfind('/', used - 1)) {
      if (used > aostorage::kMaxNameLength) continue;
      child = Child(folder, rest.substr(0, used));
      if (child != kNoIndex && (used == rest.size() || At(child).isFolder)) break;
      if (child != kNoIndex) plainInTheWay = rest.substr(0, used);
      child = kNoIndex;
    }
    if (child == kNoIndex && !plainInTheWay.empty())
      return {kFailure, "'" + Shown(plainInTheWay) + "' on the way is no folder"};
    if (child == kNoIndex) return {kNotFound, "there is no such stream"};
    if (used == rest.size()) {
      stream = child;
      return {};
    }
    folder = child;
    rest.remove_prefix(used + 1);
  }
}

Result NamedTree::FindAt(std::string_view text, std::uint32_t& stream) const {
  std::uint64_t offset = 0;
  if (!ParseOffset(text, offset)) return {kFailure, "'@' has to be followed by a file offset"};
  const std::vector<InspectedStream>& streams = inspection.Streams();
  // A block can hold the headers of a folder's children: what is smaller comes first.
  for (std::uint32_t i = 0; i < streams.size(); ++i) {
    const std::uint64_t header = streams[i].headerOffset;
    if (header == 0 || offset < header || offset >= header + kHeaderSize) continue;
    stream = i;
    if (offset == header) return {};
  }
  if (stream != kNoIndex) return {};
  for (const aostorage::InspectedBlock& block : inspection.Blocks()) {
    if (offset < block.offset || offset - block.offset >= block.present) continue;
    stream = block.stream;
    return {};
  }
  return {kNotFound, "no stream has a header or a block there"};
}

}  // namespace aotool
