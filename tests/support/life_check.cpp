// What a file may hold in the middle of a life.
#include <algorithm>

#include <aostorage/inspect.h>

#include "support/life.h"

namespace aostorage::testing {
namespace {

// Where a final write has lowered `used` and not yet `length`, the stream goes on behind its new
// end with what lies in the blocks behind, which may be older than `before`: nothing can be said of
// these bytes but that they are no more than there were.
bool MayBeBetween(const Bytes& value, const Bytes& before, const Bytes& after, Midway midway) {
  if (midway != Midway::kBetween && value.size() > after.size() && value.size() <= before.size()) {
    return MayBeBetween(Slice(value, 0, after.size()), Slice(before, 0, after.size()), after,
                        midway);
  }
  if (midway != Midway::kEmptied && value.size() < std::min(before.size(), after.size()))
    return false;
  if (value.size() > std::max(before.size(), after.size())) return false;
  for (std::size_t i = 0; i < value.size(); ++i) {
    const bool old = i < before.size() && value[i] == before[i];
    if (!old && !(i < after.size() && value[i] == after[i])) return false;
  }
  return true;
}

// The streams of a file that is open for reading alone, found from the root down.
class Reader {
 public:
  explicit Reader(const std::string& path)
      : storage(aoStorage::Open(path.c_str(), kStreamRead, 0)) {}
  bool IsOpen() const { return storage != nullptr; }
  aoStream* At(const std::string& path) {
    const auto known = held.find(path);
    if (known != held.end()) return known->second.get();
    const std::size_t slash = path.rfind('/');
    aoStream* const folder = slash == std::string::npos ? nullptr : At(path.substr(0, slash));
    aoStream* stream = nullptr;
    if (folder != nullptr) stream = folder->OpenStream(path.c_str() + slash + 1, kReadFlags);
    if (slash == std::string::npos) stream = storage->OpenStream(path.c_str(), kReadFlags);
    held[path].reset(stream);
    return stream;
  }
  // All bytes up to the length. @return false when that fails
  static bool Read(aoStream& stream, Bytes& value) {
    value.resize(std::min(stream.GetLength(), 1U << 20));
    const std::uint32_t got = stream.Read(value.data(), static_cast<std::uint32_t>(value.size()));
    value.resize(got == kFailed ? 0 : got);
    return got != kFailed;
  }
  ~Reader() {
    while (!held.empty()) held.erase(std::prev(held.end()));
  }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

 private:
  Storage storage;
  std::map<std::string, Stream> held;
};

const Bytes& ValueIn(const Values& values, const std::string& name) {
  static const Bytes none;
  const auto found = values.find(name);
  return found == values.end() ? none : found->second;
}

}  // namespace

std::string CheckBetween(const std::string& path, const Values& before, const Values& after,
                         Midway midway, Rules rules) {
  std::vector<std::string> names;
  std::string wrong = CheckFile(path, rules, &names);
  for (const std::string& name : names) {
    if (before.count(name) + after.count(name) == 0) wrong += name + " came from nowhere\n";
  }
  if (names.size() < std::min(before.size(), after.size())) wrong += "one is lost\n";
  Reader reader(path);
  if (!reader.IsOpen()) return wrong + "does not open";
  Values all = before;
  all.insert(after.begin(), after.end());
  Bytes value;
  for (const auto& [name, some] : all) {
    aoStream* const stream = reader.At(name);
    if (stream == nullptr && before.count(name) + after.count(name) == 2)
      wrong += name + " is gone\n";
    if (stream == nullptr || stream->IsFolder() != 0) continue;
    if (!Reader::Read(*stream, value)) return wrong + name + " cannot be read";
    if (!MayBeBetween(value, ValueIn(before, name), ValueIn(after, name), midway))
      wrong += name + " holds " + std::to_string(value.size()) +
               " bytes that it never had, between " + std::to_string(ValueIn(before, name).size()) +
               " and " + std::to_string(ValueIn(after, name).size()) + "\n";
  }
  return wrong;
}

std::string CheckOthers(const std::string& path, const Values& before,
                        const std::vector<const Step*>& steps) {
  std::vector<std::string> names;
  std::string wrong;
  const std::string broken = CheckFile(path, Rules::kAfterFault, &names);
  const auto inspection = Inspection::Of(path.c_str());
  const bool hidden = inspection && inspection->CountOf(Rule::kHiddenName) != 0;
  Reader reader(path);
  if (!reader.IsOpen()) return "does not open";
  Bytes value;
  for (const std::string& name : names) {
    aoStream* const stream = reader.At(name);
    if (broken.empty() && (stream == nullptr || !Reader::Read(*stream, value)))
      wrong += name + " cannot be read, and nothing tells why\n";
  }
  for (const auto& [streamName, expected] : before) {
    const std::string& name = streamName;  // the lambdas cannot hold what is bound
    const auto isOf = [&](const auto& which) {
      return std::any_of(steps.begin(), steps.end(), which);
    };
    if (isOf([&](const Step* step) { return step->Changes(name); })) continue;
    aoStream* const stream = reader.At(name);
    const bool beside = isOf([&](const Step* step) { return step->ChangesFolderAround(name); });
    if (beside && hidden) continue;
    if (stream == nullptr) {
      if (!beside || broken.empty()) wrong += name + " is gone\n";
    } else if (stream->IsFolder() == 0) {
      stream->Seek(0, 0);
      if (!Reader::Read(*stream, value) || value != expected) wrong += name + " differs\n";
    }
  }
  return wrong.empty() ? wrong : wrong + broken;
}

}  // namespace aostorage::testing
