#include "support/life.h"

#include <algorithm>
#include <set>

namespace aostorage::testing {
namespace {

template <class Open>
Stream Obtain(bool retry, Open open) {
  Stream stream(open());
  if (!stream && retry) stream.reset(open());
  return stream;
}

// Goes back over what a failed write took, within the block if that is possible: what the object
// remembers of the block is not read anew then. Without a block there is nowhere to go, and a write
// begins at the start all the same.
bool GoTo(aoStream& stream, std::uint32_t position) {
  const std::uint32_t here = stream.GetCurDataPos();
  if (here > position && stream.Seek(here - position, 2, false) == 0) return true;
  ClearLastError();
  return stream.Seek(position, 0) == 0 || (position == 0 && LastSystemError() == 0);
}

Step Create(const std::string& name, bool fast = false) {
  return {"create " + name,
          [=](aoStorage& storage, bool retry) {
            return Obtain(retry, [&] {
                     return fast ? storage.CreateStreamFast(name.c_str(), kWriteFlags)
                                 : storage.CreateStream(name.c_str(), kWriteFlags);
                   }) != nullptr;
          },
          [=](Values& values) { values[name]; }, false};
}

Step Write(const std::string& name, std::uint32_t position, std::size_t count, bool final = false) {
  const Bytes data = Pattern(count, position + static_cast<unsigned>(count));
  return {"write " + name + " at " + std::to_string(position),
          [=](aoStorage& storage, bool retry) {
            const Stream stream =
                Obtain(retry, [&] { return storage.OpenStream(name.c_str(), kWriteFlags); });
            if (!stream) return false;
            for (int attempt = 0; attempt < (retry ? 2 : 1); ++attempt) {
              if (GoTo(*stream, position) &&
                  stream->Write(data.data(), static_cast<std::uint32_t>(count), final) == count) {
                return true;
              }
            }
            return false;
          },
          [=](Values& values) {
            Bytes& value = values[name];
            if (value.size() < position + count || final) value.resize(position + count);
            std::copy(data.begin(), data.end(), value.begin() + position);
          },
          final};
}

Step Change(const std::string& label, const std::string& name,
            const std::function<bool(Stream&)>& change,
            const std::function<void(Values&)>& expect) {
  return {label + " " + name,
          [=](aoStorage& storage, bool retry) {
            Stream stream =
                Obtain(retry, [&] { return storage.OpenStream(name.c_str(), kWriteFlags); });
            return stream && (change(stream) || (retry && change(stream)));
          },
          expect, false};
}

bool MayBeBetween(const Bytes& value, const Bytes& before, const Bytes& after, bool flushing) {
  if (flushing && value.size() > after.size()) {
    const std::size_t rest = value.size() - after.size();
    if (rest <= before.size() &&
        std::equal(before.end() - static_cast<std::ptrdiff_t>(rest), before.end(),
                   value.end() - static_cast<std::ptrdiff_t>(rest))) {
      return MayBeBetween(Slice(value, 0, after.size()), Slice(before, 0, after.size()), after,
                          true);
    }
  }
  if (!flushing && value.size() < std::min(before.size(), after.size())) return false;
  if (value.size() > std::max(before.size(), after.size())) return false;
  for (std::size_t i = 0; i < value.size(); ++i) {
    const bool old = i < before.size() && value[i] == before[i];
    if (!old && !(i < after.size() && value[i] == after[i])) return false;
  }
  return true;
}

}  // namespace

Bytes LifeStart() { return FileBuilder(FileBuilder::Form::kCurrent, 62).bytes; }

std::vector<Step> ScriptedLife() {
  return {
      Create("a"),
      Write("a", 0, 10),    // first block, with a reserve
      Write("a", 10, 50),   // in the reserve
      Write("a", 60, 500),  // the tail grows past its capacity
      Create("b"),
      Write("b", 0, 30),
      Write("a", 560, 300),  // full, no longer the tail: a next block
      Write("b", 30, 200),   // the rest of the block, then a next one
      Create("c"),           // the directory grows
      Write("c", 0, 5),
      Write("a", 555, 20),       // overwrites, across blocks
      Write("b", 90, 30, true),  // the value ends here, in the second block
      Write("b", 0, 7, true),    // and here, in the first
      Change(
          "shorten", "a", [](Stream& stream) { return stream->SetLength(700); },
          [](Values& values) { values["a"].resize(700); }),
      Change(
          "erase", "c", [](Stream& stream) { return stream->Erase(); },
          [](Values& values) { values["c"].clear(); }),
      Write("c", 0, 3),
      Change(
          "remove", "a", [](Stream& stream) { return Remove(stream); },
          [](Values& values) { values.erase("a"); }),
      Create("d"),         // takes the slot and the chain of a
      Write("d", 0, 900),  // runs through the old chain and beyond
      Create("f", true),
      Write("f", 0, 120),
  };
}

std::string CheckBetween(const std::string& path, const Values& before, const Values& after,
                         bool flushing) {
  const Storage storage(aoStorage::Open(path.c_str(), kStreamRead, 0));
  if (!storage) return "does not open";
  std::set<std::string> names;
  for (const auto& [name, value] : before) names.insert(name);
  for (const auto& [name, value] : after) names.insert(name);
  for (const std::string& name : names) {
    const auto old = before.find(name), updated = after.find(name);
    const Stream stream(storage->OpenStream(name.c_str(), kReadFlags));
    if (!stream) {
      if (old != before.end() && updated != after.end()) return name + " is gone";
      continue;
    }
    Bytes value(stream->GetLength());
    const std::uint32_t got = stream->Read(value.data(), stream->GetLength());
    if (got == kFailed) return name + " cannot be read";
    value.resize(got);
    const Bytes& from = old == before.end() ? Bytes() : old->second;
    const Bytes& to = updated == after.end() ? Bytes() : updated->second;
    if (!MayBeBetween(value, from, to, flushing)) {
      return name + " holds " + std::to_string(value.size()) + " bytes that it never had";
    }
  }
  return "";
}

}  // namespace aostorage::testing
