#include "support/life.h"

#include <algorithm>

#include "support/tree_text.h"

namespace aostorage::testing {
namespace {

using Change = std::function<bool(Stream& stream)>;

// Goes back over what a failed write took, within the block if that is possible: what the object
// remembers of the block is not read anew then. Without a block there is nowhere to go, and a write
// begins at the start all the same.
bool GoTo(aoStream& stream, std::uint32_t position) {
  const std::uint32_t here = stream.GetCurDataPos();
  if (here > position && stream.Seek(here - position, 2, false) == 0) return true;
  ClearLastError();
  return stream.Seek(position, 0) == 0 || (position == 0 && LastSystemError() == 0);
}

Stream OpenAt(aoStorage& storage, const std::string& path, bool retry) {
  Stream stream = OpenPath(storage, path);
  return stream || !retry ? std::move(stream) : OpenPath(storage, path);
}

Step OnStream(const std::string& label, const std::string& path, const Change& change,
              const std::function<void(Values&)>& expect, bool flushing = false) {
  return {label + " " + path,
          path,
          [=](aoStorage& storage, bool retry) {
            Stream stream = OpenAt(storage, path, retry);
            return stream && (change(stream) || (retry && change(stream)));
          },
          expect,
          flushing,
          false};
}

// Runs `change` on the folder around the path, with the child's name.
Step InFolder(const std::string& path,
              const std::function<bool(aoStream& folder, const char* name)>& change,
              const Bytes& value) {
  return {"make " + path,
          path,
          [=](aoStorage& storage, bool retry) {
            const Stream folder = OpenAt(storage, path.substr(0, path.rfind('/')), retry);
            return folder && change(*folder, path.substr(path.rfind('/') + 1).c_str());
          },
          [=](Values& values) { values[path] = value; },
          false,
          true};
}

Step Create(const std::string& path, bool folder = false, bool fast = false) {
  if (path.find('/') != std::string::npos) {
    const auto create = [=](aoStream& parent, const char* name) {
      return Stream(parent.OpenOrCreateStream(name, PackKind(folder), kWriteFlags)) != nullptr;
    };
    return InFolder(path, create, {});
  }
  return {
      "create " + path,
      path,
      [=](aoStorage& storage, bool retry) {
        const auto create = [&] {
          return Stream(fast ? storage.CreateStreamFast(path.c_str(), kWriteFlags)
                             : storage.CreateStream(path.c_str(), PackKind(folder), kWriteFlags));
        };
        return create() != nullptr || (retry && create() != nullptr);
      },
      [=](Values& values) { values[path]; },
      false,
      folder};
}

Step Write(const std::string& path, std::uint32_t position, const Bytes& data, bool final = false) {
  const auto write = [=](Stream& stream) {
    const auto count = static_cast<std::uint32_t>(data.size());
    return GoTo(*stream, position) && stream->Write(data.data(), count, final) == count;
  };
  const auto expect = [=](Values& values) {
    Bytes& value = values[path];
    const std::size_t end = position + data.size();
    if (value.size() < end || final) value.resize(end);
    std::copy(data.begin(), data.end(), value.begin() + position);
  };
  return OnStream("write", path, write, expect, final);
}

Step Write(const std::string& path, std::uint32_t position, std::size_t count, bool final = false) {
  return Write(path, position, Pattern(count, position + static_cast<unsigned>(count)), final);
}

Step Shorten(const std::string& path, std::uint32_t length) {
  const auto shorten = [=](Stream& stream) {
    return length == 0 ? stream->Erase() : stream->SetLength(length);
  };
  return OnStream("shorten", path, shorten, [=](Values& values) { values[path].resize(length); });
}

Step RemoveAt(const std::string& path) {
  const auto expect = [=](Values& values) {
    for (auto it = values.lower_bound(path);
         it != values.end() && it->first.compare(0, path.size(), path) == 0;) {
      it = values.erase(it);
    }
  };
  return OnStream(
      "remove", path, [](Stream& stream) { return Remove(stream); }, expect);
}

Step Rename(const std::string& path, const std::string& name) {
  const auto rename = [=](Stream& stream) { return stream->Rename(name.c_str()); };
  const auto expect = [=](Values& values) {
    values[path.substr(0, path.rfind('/') + 1) + name] = values.extract(path).mapped();
  };
  return OnStream("rename", path, rename, expect);
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
  const Bytes ghost = StreamRecord("ghost", false, 0, 0);
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
      Shorten("a", 700),
      Shorten("c", 0),
      Write("c", 0, 3),
      RemoveAt("a"),
      Create("d"),         // takes the slot and the chain of a
      Write("d", 0, 900),  // runs through the old chain and beyond
      Create("e", false, true),
      Write("e", 0, 120),
      Rename("d", "dd"),

      Create("g"),
      Write("g", 0, FolderPayload({ghost, ghost})),
      RemoveAt("g"),
      Create("f", true),  // over the chain of g, which looks like child records
      Create("f/a"),
      Write("f/a", 0, 30),
      Create("f/b"),
      Write("f/b", 0, 200),
      Create("f/sub", true),
      Create("f/sub/x"),
      Write("f/sub/x", 0, 90),
      Write("f/a", 30, 300),  // beyond its first block
      Rename("f/b", "bb"),
      InFolder("f/entry",
               [](aoStream& folder, const char* name) {
                 return folder.SetEntry(name, std::int32_t{1}) == 1 &&
                        folder.GetEntry(name, std::int32_t{0}) == 1;
               },
               {1, 0, 0, 0}),
      InFolder(
          "f/log",
          [](aoStream& folder, const char* name) { return folder.SetEntry(name, "value", 5) == 1; },
          {4, 0, 0, 0, 'v', 'a', 'l', 'u', 'e'}),
      RemoveAt("f/a"),
      Create("f/c"),  // in the slot and the chain of a
      Write("f/c", 0, 350),
      RemoveAt("f/sub"),
      Create("f/next", true),  // over the chain of sub
      Create("f/next/y"),
      Write("f/next/y", 0, 40),
  };
}

std::string CheckBetween(const std::string& path, const Values& before, const Values& after,
                         bool flushing) {
  std::string wrong = CheckFile(path, Rules::kAfterFault);
  const RawImage image = ReadImage(ReadFile(path), Rules::kAfterFault);
  for (const RawStream& stream : image.streams) {
    if (before.count(stream.path) + after.count(stream.path) == 0)
      wrong += stream.path + " came from nowhere\n";
  }
  if (image.streams.size() < std::min(before.size(), after.size())) wrong += "one is lost\n";
  const Storage storage(aoStorage::Open(path.c_str(), kStreamRead, 0));
  if (!storage) return wrong + "does not open";
  Values all = before;
  all.insert(after.begin(), after.end());
  for (const auto& [name, some] : all) {
    const auto old = before.find(name), updated = after.find(name);
    const Stream stream = OpenPath(*storage, name);
    if (!stream && old != before.end() && updated != after.end()) wrong += name + " is gone\n";
    if (!stream || stream->IsFolder() != 0) continue;
    Bytes value(stream->GetLength());
    const std::uint32_t got = stream->Read(value.data(), stream->GetLength());
    if (got == kFailed) return wrong + name + " cannot be read";
    value.resize(got);
    const Bytes& from = old == before.end() ? Bytes() : old->second;
    const Bytes& to = updated == after.end() ? Bytes() : updated->second;
    if (!MayBeBetween(value, from, to, flushing))
      wrong += name + " holds " + std::to_string(got) + " bytes that it never had\n";
  }
  return wrong;
}

}  // namespace aostorage::testing
