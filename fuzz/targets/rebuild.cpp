// Any bytes as a file, rebuilt in both ways: all or nothing.
#include <sys/stat.h>

#include <aostorage/aostorage.h>

#include "support/check_file.h"
#include "support/handles.h"
#include "support/input.h"
#include "support/meter.h"
#include "support/scratch.h"
#include "targets/targets.h"

namespace aostorage::fuzz {
namespace {

using testing::Storage;
using testing::Stream;

using Lines = std::vector<std::string>;
constexpr std::size_t kMostLines = 500;

void AddStream(aoStream& stream, const std::string& path, int depth, Lines& lines) {
  if (lines.size() >= kMostLines) return;
  lines.push_back(path + stream.GetName());
  if (stream.IsFolder() == 0) {
    Bytes value(std::min<std::uint32_t>(stream.GetLength(), 5000));
    value.resize(std::min<std::uint32_t>(
        stream.Read(value.data(), static_cast<std::uint32_t>(value.size())), 5000));
    lines.back() += " " + std::to_string(stream.GetLength());
    lines.back().append(value.begin(), value.end());
    return;
  }
  std::uint32_t cookie = 0;
  const std::string below = lines.back() + "/";
  Stream child(stream.OpenStreamFirst(cookie, kReadFlags));
  while (child && depth < 50 && lines.size() < kMostLines) {
    AddStream(*child, below, depth + 1, lines);
    child.reset(stream.OpenStreamNext(cookie, kReadFlags));
  }
}

// What the public interface shows of the file, sorted by the names at the root.
Lines Contents(aoStorage& storage) {
  Lines lines;
  storage.EnableSorting(1, 0);
  StreamCookie cookie = -1;
  Stream at(storage.OpenStreamFirst(cookie, kReadFlags));
  while (at && lines.size() < kMostLines) {
    AddStream(*at, "", 0, lines);
    at.reset(storage.OpenStreamNext(cookie, kReadFlags));
  }
  return lines;
}

void Rebuild(const Bytes& bytes, bool byPath) {
  const std::string path = ScratchFile("file", bytes), temporary = path + "_tmp";
  Meter measured({path, temporary});
  Storage storage(aoStorage::Open(path.c_str(), kReadFlags, 0));
  const Lines before = storage ? Contents(*storage) : Lines();
  bool done = false;
  if (byPath) {
    storage.reset();
    done = measured("rebuild", [&] { return aoStorage::Recreate(path.c_str()) == 1; });
  } else if (storage) {
    aoStorage* const old = storage.release();
    storage.reset(measured("rebuild", [&] { return aoStorage::Recreate(old, path.c_str()); }));
    Require(storage != nullptr, "a rebuild that replaced nothing gives no storage");
    done = testing::ReadFile(path) != bytes;
  }
  storage.reset();
  struct stat state {};
  Require(stat(temporary.c_str(), &state) != 0, "the temporary file is left");
  const Bytes after = testing::ReadFile(path);
  if (!done) return Require(after == bytes, "a failed rebuild changes the file");
  Require(after.size() <= bytes.size() + bytes.size() / 4 + 65536, "the output is too large:",
          std::to_string(bytes.size()) + " to " + std::to_string(after.size()));
  const std::string wrong = testing::CheckFile(path);
  Require(wrong.empty(), "the rebuilt file is not sound:", wrong);
  storage.reset(aoStorage::Open(path.c_str(), kReadFlags, 0));
  Require(storage != nullptr, "the rebuilt file does not open");
  Require(Contents(*storage) == before, "the rebuilt file holds something else");
}

}  // namespace

void RebuildFile(const std::uint8_t* data, std::size_t size) {
  const Bytes bytes(data, data + size);
  Rebuild(bytes, true);
  Rebuild(bytes, false);
}

}  // namespace aostorage::fuzz
