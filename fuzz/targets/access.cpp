// Any bytes as a file, used through paths and through the facade.
#include <aostorage/aostorage.h>

#include "support/budget.h"
#include "support/handles.h"
#include "support/input.h"
#include "support/record_scan.h"
#include "support/scratch.h"
#include "targets/targets.h"

namespace aostorage::fuzz {
namespace {

using testing::Storage;
using testing::Stream;

class Access {
 public:
  Access(const std::string& filePath, const FileAndScript& input)
      : path(filePath),
        names(ScanNames(input.file)),
        script(input.script.data(), input.script.size()),
        measured({path}) {}

  void Run() {
    while (script.Left() && ++rounds < 8) {
      if (script.Below(2) == 0) {
        Paths();
      } else {
        Facade();
      }
    }
  }

 private:
  std::string Path() {
    std::string text = script.Name(names);
    for (std::uint32_t more = script.Below(5); more != 0; --more) text += "/" + script.Name(names);
    return text;
  }

  void Paths() {
    const Storage storage(
        measured("open", [&] { return aoStorage::Open(path.c_str(), kWriteFlags, 0); }));
    if (!storage) return;
    CPathLoader loader;
    Stream start(storage->OpenStream(script.Name(names).c_str(), kWriteFlags));
    for (int i = 0; i < 8 && script.Left(); ++i) {
      const std::string text = Path();
      const std::int32_t form = static_cast<std::int32_t>(script.Below(8));
      if (form == 7) loader.CloseOpenStorages();
      if (form == 6) {
        loader.CloseOpenStorages();
        measured("delete", [&] { return loader.DeleteStreamByPath(storage.get(), text); });
      }
      if (form >= 6) continue;
      aoStream* const got = measured("path", [&] {
        return start && form > 3 ? loader.GetSubStreamByPath(start.get(), text, form & 1, form & 2)
                                 : loader.GetStreamByPath(storage.get(), text, form & 1, form & 2);
      });
      if (got == nullptr) continue;
      std::uint8_t room[100];
      measured("read", [&] { return got->Read(room, sizeof(room)); });
      if ((form & 1) != 0) measured("write", [&] { return got->Write("text", 4); });
    }
    loader.CloseOpenStorages();
  }

  void Facade() {
    CCompStgFile file;
    const auto mode = static_cast<std::int32_t>(script.Below(4));
    if (measured("open", [&] { return file.Open(path.c_str(), mode); }) == 0) return;
    aoStream* child = nullptr;
    for (int i = 0; i < 20 && script.Left(); ++i) {
      const std::uint32_t choice = script.Below(32);
      if (choice == 31) {
        CCompStgFile other(file);
        FacadeStep(other, script.Below(16), child);
        // The other one ends with all that it shares, the streams of walks included.
        if (child != nullptr) child->Release();
        child = nullptr;
        continue;
      }
      FacadeStep(file, choice % 19, child);
    }
    if (child != nullptr) child->Release();
    file.Close();
  }

  void FacadeStep(CCompStgFile& file, std::uint32_t choice, aoStream*& child) {
    const std::string text = script.Name(names), childText = script.Name(names);
    const char *name = text.c_str(), *childName = childText.c_str();
    const Bytes data = script.Data();
    const auto size = static_cast<std::int32_t>(data.size());
    const std::int32_t form = static_cast<std::int32_t>(script.Below(4));
    const bool ends = choice < 3 || (choice > 5 && choice < 8) || (choice > 8 && choice < 12);
    if (ends && child != nullptr) {  // before the stream around it
      child->Release();
      child = nullptr;
    }
    std::uint8_t room[200];
    const auto run = [&](const char* label, auto operation) { measured(label, operation); };
    switch (choice) {
      case 0:
        return run("select", [&] { return file.OpenGenericStream(name); });
      case 1:
        return run("select", [&] { return file.OpenGenericStreams(name, childName); });
      case 2:
        return run("obtain", [&] {
          return file.OpenOrCreateGenericStream(name, form & 1, PackKind(form > 1));
        });
      case 3:
        return run("write", [&] { return file.WriteGenericStream(data.data(), size); });
      case 4:
        return run("write child", [&] {
          return file.WriteGenericChildStream(childName, data.data(), size, form & 1, form & 2);
        });
      case 5:
        return run("write child",
                   [&] { return file.WriteGenericChildOpenedStream(data.data(), size, form & 1); });
      case 6:
        return run("step", [&] { return file.OpenNextGenericStream(); });
      case 7:
        return run("step", [&] { return file.OpenNextStream(); });
      case 8:
        return run("child walk", [&] { return file.GetNextChildStreamName(child); });
      case 9:
        return run("child", [&] { return file.RemoveGenericChildStream("none", childName); });
      case 10:
        return run("remove child", [&] { return file.RemoveGenericChildStream(name, childName); });
      case 11:
        return run("remove", [&] { return file.RemoveGenericStream(name); });
      case 12:
        return run("read", [&] { return file.ReadGenericStream(room, 200); });
      case 13:
        return run("read child", [&] { return file.ReadGenericChildStream(room, 200); });
      case 14:
        return run("tag", [&] { return file.ReadTagSeekBack(room, size % 200); });
      case 15:
        return run("skip", [&] { return file.SeekForward(static_cast<std::uint32_t>(size)); });
      case 16:
        return run("begin", [&] { return file.GoToBeginningOfGenericStream(); });
      case 17:
        return run("end", [&] { return file.GoToEndOfGenericChildStream(); });
      default:
        return run("size", [&] { return file.GetStreamSize(); });
    }
  }

  const std::string path;
  const std::vector<std::string> names;
  Script script;
  testing::Budget measured;
  int rounds = 0;
};

}  // namespace

void UseAccess(const std::uint8_t* data, std::size_t size) {
  const FileAndScript input(data, size);
  Access(ScratchFile("file", input.file), input).Run();
}

}  // namespace aostorage::fuzz
