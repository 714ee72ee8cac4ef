// Any bytes as a file, and operations on it. A file without fault must stay so.
#include <sstream>

#include <aostorage/aostorage.h>

#include "support/budget.h"
#include "support/check_file.h"
#include "support/handles.h"
#include "support/input.h"
#include "support/record_scan.h"
#include "support/require.h"
#include "support/scratch.h"
#include "targets/targets.h"

namespace aostorage::fuzz {
namespace {

using testing::Rules;
using testing::Storage;
using testing::Stream;

class Session {
 public:
  Session(const std::string& filePath, const FileAndScript& input)
      : path(filePath),
        names(ScanNames(input.file)),
        script(input.script.data(), input.script.size()),
        measured({path, path + "_tmp"}) {}

  /// Whether each step kept to what is told not to break a file.
  bool Run() {
    for (int step = 0; step < 60 && script.Left(); ++step) {
      if (!storage && !Open()) return tame;
      Step();
    }
    objects.clear();
    storage.reset();
    return tame;
  }

 private:
  struct Object {
    std::shared_ptr<Object> parent;  // outlives the child
    Stream stream;
  };
  using ObjectPtr = std::shared_ptr<Object>;

  bool Open() {
    objects.clear();
    storage.reset();
    const std::uint32_t reserve = script.Below(200), form = script.Below(4);
    const auto open = form == 0 ? aoStorage::OpenFast : aoStorage::Open;
    storage.reset(measured("open", [&] { return open(path.c_str(), kWriteFlags, reserve); }));
    return storage != nullptr;
  }
  void Keep(aoStream* got, const ObjectPtr& parent = nullptr) {
    if (got == nullptr) return;
    objects.push_back(ObjectPtr(new Object{parent, Stream(got)}));
    if (objects.size() > 12) objects.erase(objects.begin());
  }
  std::uint32_t Flags() {
    constexpr std::uint32_t flags[] = {kWriteFlags, kWriteFlags, kReadFlags,
                                       kStreamWrite | kShareRead, kStreamWrite | kExclusive};
    return flags[script.Below(5)];
  }
  std::uint32_t Kind() {
    return PackKind(script.Below(2) != 0, static_cast<std::uint16_t>(script.Below(3)));
  }

  void Step() {
    const std::uint32_t choice = script.Below(64);
    if (choice < 22 || objects.empty()) return OnStorage(choice);
    const ObjectPtr object = objects[script.Below(static_cast<std::uint32_t>(objects.size()))];
    if (choice < 42) return OnBytes(*object->stream, choice);
    OnFolder(object, choice);
  }

  void OnStorage(std::uint32_t choice) {
    const std::string text = script.Name(names);
    const char* name = text.c_str();
    const std::uint32_t flags = Flags();
    aoStorage& s = *storage;
    const auto keep = [&](const char* label, auto open) { Keep(measured(label, open)); };
    const auto run = [&](const char* label, auto operation) { measured(label, operation); };
    switch (choice) {
      case 0:
      case 1:
      case 2:
      case 3:
      case 4:
        return keep("open", [&] { return s.OpenStream(name, flags); });
      case 5:
      case 6:
      case 7: {
        const std::uint32_t kind = Kind();
        return keep("create", [&] { return s.CreateStream(name, kind, flags); });
      }
      case 8: {
        const std::uint32_t kind = Kind();
        return keep("create fast", [&] { return s.CreateStreamFast(name, kind, flags); });
      }
      case 9:
        return keep("open fast", [&] { return s.OpenStreamFast(name, flags); });
      case 10: {
        const std::uint32_t kind = Kind();
        return keep("obtain", [&] { return s.OpenOrCreateStream(name, kind); });
      }
      case 11:
        return keep("obtain fast", [&] { return s.OpenOrCreateStreamFast(name, 1); });
      case 12:
        return run("entry", [&] { return s.SetEntry(name, "some text"); });
      case 13:
        return run("fast entry", [&] { return s.SetEntryFast(name, 0.5); });
      case 14: {
        const Bytes data = script.Data();
        const auto count = static_cast<std::uint32_t>(data.size());
        return run("erasing entry", [&] { return s.SetEntryEraseOld(name, data.data(), count); });
      }
      case 15:
        return run("drop", [&] { return s.RemoveStream(name); });
      case 16: {
        StreamCookie cookie = static_cast<StreamCookie>(script.Word());
        return keep("odd cookie", [&] { return s.OpenStreamNext(cookie, flags); });
      }
      case 17: {
        const tag_aoStreamOffset place{script.Word(), script.Word(), script.Word(), 0};
        tame = false;  // the caller says where a stream is
        return keep("by offset", [&] { return s.OpenStreamByOffset(place, name, flags); });
      }
      case 18:
        return keep("first slot", [&] { return s.OpenStreamFirst(flags); });
      case 19:
        return run("count", [&] { return s.GetSubfolderCount(name); });
      case 20:
        return Rebuild();
      default:
        static_cast<void>(Open());
    }
  }
  void Rebuild() {
    objects.clear();
    if (script.Below(2) == 0) {
      storage.reset();
      measured("rebuild", [&] { return aoStorage::Recreate(path.c_str()); });
      return;
    }
    aoStorage* const old = storage.release();
    storage.reset(measured("rebuild", [&] { return aoStorage::Recreate(old, path.c_str()); }));
  }

  void OnBytes(aoStream& s, std::uint32_t choice) {
    std::uint8_t room[300];
    const std::uint32_t word = script.Word();
    const auto run = [&](const char* label, auto operation) { measured(label, operation); };
    const auto write = [&](const char* label, auto operation) {
      tame = tame && s.IsFolder() == 0;  // the records of children, overwritten
      measured(label, operation);
    };
    switch (choice - 22) {
      case 0:
      case 1:
      case 2:
      case 3: {
        const Bytes data = script.Data();
        const bool final = script.Below(4) == 0;
        const auto count = static_cast<std::uint32_t>(data.size());
        return write("write", [&] { return s.Write(data.data(), count, final); });
      }
      case 4:
      case 5:
        return run("read", [&] { return s.Read(room, std::min<std::uint32_t>(word, 300)); });
      case 6:
      case 7:
        return run("seek", [&] { return s.Seek(word, 0); });
      case 8:
        return run("seek", [&] { return s.Seek(word, 1); });
      case 9:
        return run("seek", [&] { return s.Seek(word, 2, true); });
      case 10:
        return run("seek", [&] { return s.Seek(word, 2, false); });
      case 11:
        return run("seek 2", [&] { return s.Seek2(static_cast<std::int32_t>(word), 0); });
      case 12:
        return run("seek 2", [&] { return s.Seek2(static_cast<std::int32_t>(word), 1); });
      case 13:
        return write("shorten", [&] { return s.SetLength(word); });
      case 14:
        return write("erase", [&] { return s.Erase(); });
      case 15:
        return write("value", [&] { return &(s << "text"); });
      case 16:
        return run("next slot", [&] { return s.GoNext(); });
      case 17: {
        std::string text;
        return run("value", [&] { return &(s >> text); });
      }
      default: {
        aoStream& to = *objects[word % objects.size()]->stream;
        tame = tame && to.IsFolder() == 0;
        measured("copy", [&] { return s.CopyStream(&to); });
      }
    }
  }

  void OnFolder(const ObjectPtr& object, std::uint32_t choice) {
    aoStream& s = *object->stream;
    const std::string text = script.Name(names);
    const char* name = text.c_str();
    const std::uint32_t flags = Flags();
    const auto keep = [&](const char* label, auto open) { Keep(measured(label, open), object); };
    const auto run = [&](const char* label, auto operation) { measured(label, operation); };
    switch (choice - 42) {
      case 0:
      case 1:
      case 2:
      case 3: {
        const std::uint32_t kind = Kind();
        return keep("create child", [&] { return s.CreateStream(name, kind, flags); });
      }
      case 4:
      case 5:
      case 6:
        return keep("open child", [&] { return s.OpenStream(name, flags); });
      case 7: {
        std::uint32_t cookie = script.Word();
        return keep("child walk", [&] { return s.OpenStreamNext(cookie, flags); });
      }
      case 8:
        return run("entry", [&] { return s.SetEntry(name, std::int32_t{7}); });
      case 9:
        return run("entry", [&] { return s.SetEntry(name, "some text"); });
      case 10: {
        const Bytes data = script.Data();
        const auto count = static_cast<std::uint32_t>(data.size());
        return run("log entry", [&] { return s.SetEntry(name, data.data(), count); });
      }
      case 11:
        return run("entry", [&] { return s.GetEntry(name, "none"); });
      case 12: {
        std::vector<std::string> listed;
        return run("list", [&] { return s.EnumStreams(listed); });
      }
      case 13:
      case 14:
        return run("rename", [&] { return s.Rename(name); });
      case 15:
      case 16:
        return Remove(object);
      case 17:
        return run("clear", [&] { return s.ClearFolder(); });
      case 18: {
        aoStream& to = *objects[script.Below(static_cast<std::uint32_t>(objects.size()))]->stream;
        tame = tame && s.IsFolder() != 0;
        return run("copy folder", [&] { return s.CopyFolder(&to); });
      }
      case 19: {
        tag_aoStream header;
        tag_aoStreamOffset place;
        return run("add header", [&] { return s.AddStreamHeader(name, 0, header, place); });
      }
      default:
        objects.erase(std::find(objects.begin(), objects.end(), object));
    }
  }
  static bool IsBelow(const Object* object, const Object* other) {
    for (; object != nullptr; object = object->parent.get()) {
      if (object == other) return true;
    }
    return false;
  }
  void Remove(const ObjectPtr& object) {
    objects.erase(std::remove_if(objects.begin(), objects.end(),
                                 [&](const ObjectPtr& each) {
                                   return each != object && IsBelow(each.get(), object.get());
                                 }),
                  objects.end());
    if (!measured("remove", [&] { return testing::Remove(object->stream); })) return;
    objects.erase(std::find(objects.begin(), objects.end(), object));
  }

  const std::string path;
  const std::vector<std::string> names;
  Script script;
  testing::Budget measured;
  bool tame = true;
  Storage storage;
  std::vector<ObjectPtr> objects;
};

// Without the lines on a word that a new stream takes over from the slot of a removed one, whatever
// that was.
std::string WhatIsWrong(const std::string& path) {
  std::istringstream all(testing::CheckFile(path, Rules::kAfterFault));
  std::string kept;
  for (std::string line; std::getline(all, line);) {
    if (line.find(": lastBlock ") == std::string::npos) kept += line + "\n";
  }
  return kept;
}

}  // namespace

void RunScript(const std::uint8_t* data, std::size_t size) {
  const FileAndScript input(data, size);
  const std::string path = ScratchFile("file", input.file);
  const bool sound = testing::CheckFile(path).empty();
  const bool tame = Session(path, input).Run();
  if (!sound || !tame) return;
  const std::string wrong = WhatIsWrong(path);
  Require(wrong.empty(), "a sound file is damaged:", wrong);
}

}  // namespace aostorage::fuzz
