// export

#include <climits>
#include <string>
#include <utility>
#include <vector>

#include <aostorage/error.h>
#include <aostorage/types.h>

#include "directories.h"
#include "files.h"
#include "interrupt.h"
#include "names.h"
#include "paths.h"
#include "store.h"
#include "transfer.h"
#include "verbs.h"
#include "walk.h"

namespace aotool {
namespace {

// Writes streams as files and folders as directories. Every name is one step down from an open
// directory and no link is followed, so nothing is written outside the directory to export to.
class Export {
 public:
  Export(const ExportOptions& chosen, Report& target)
      : options(chosen),
        report(target),
        store(FileIdentity::At(chosen.store)),
        transfer([this](std::uint64_t size) { ShowProgress(size); }) {}

  Result Start() {
    used.emplace_back();
    return directories.Start(options.directory, true);
  }

  // False when the directory takes nothing more.
  bool WriteStream(aostorage::aoStream& stream, const std::string& path) {
    const std::string fileName = ChooseName(stream.GetName(), path);
    OutputFile output(directories.Bottom(), fileName,
                      options.force ? OutputFile::IfThere::kReplace : OutputFile::IfThere::kRefuse,
                      store);
    aostorage::ClearLastError();
    const std::uint64_t size = SizeOfFile(options.store);
    Result result = bytes + stream.GetLength() > size ? Result{kDamaged, kTooMuch}
                                                      : transfer.CopyOut(stream, output);
    if (result.Ok()) result = output.Finish();
    ++items;
    ShowProgress(0);
    if (result.Ok()) return true;
    if (Interrupted()) {
      report.Fail(path, result);
      return false;
    }
    // Had the store failed, the library would know why.
    const bool outputFailed =
        result.code == kInputOutput && aostorage::LastError().code == aostorage::ErrorCode::kNone;
    if (outputFailed) result.reason += "; the export ends here";
    report.Fail(path, result);
    return !outputFailed;
  }

  // False when the directory cannot be made.
  bool EnterFolder(const std::string& name, const std::string& path) {
    Result result = directories.MakeAndEnter(ChooseName(name, path));
    if (!result.Ok()) {
      report.Fail(path, result);
      return false;
    }
    used.emplace_back();
    ++items;
    ShowProgress(0);
    return true;
  }

  bool LeaveFolder(const std::string& path) {
    used.pop_back();
    Result result = directories.Leave();
    if (!result.Ok()) report.Fail(path, result);
    return result.Ok();
  }

 private:
  std::string ChooseName(const std::string& streamName, const std::string& path) {
    std::string fileName = used.back().MakeUnique(SafeFileName(streamName), NAME_MAX);
    if (fileName != streamName) report.Note(path, "written as '" + Shown(fileName) + "'");
    return fileName;
  }

  void ShowProgress(std::uint64_t size) {
    bytes += size;
    report.Progress("exporting", items, bytes);
  }

  const ExportOptions& options;
  Report& report;
  const FileIdentity store;
  DirectoryStack directories;
  std::vector<UsedNames> used;  // file names given, for each directory on the way down
  Transfer transfer;
  std::uint64_t items = 0;
  std::uint64_t bytes = 0;
};

void ExportAll(TreeWalk& walk, Export& work, Report& report) {
  for (;;) {
    switch (walk.Next()) {
      case TreeWalk::Event::kStream:
        if (!work.WriteStream(walk.Stream(), walk.Path())) return;
        break;
      case TreeWalk::Event::kFolder:
        if (!work.EnterFolder(walk.Name(), walk.Path())) walk.Skip();
        break;
      case TreeWalk::Event::kLeave:
        if (!work.LeaveFolder(walk.Path())) return;
        break;
      case TreeWalk::Event::kFailed:
        report.Fail(walk.Path(), walk.Failure());
        break;
      case TreeWalk::Event::kEnd:
        return;
    }
  }
}

}  // namespace

void ExportTree(const ExportOptions& options, Report& report) {
  const StoragePtr storage = OpenForReading(options.store, report);
  if (!storage) return;
  Target target(*storage);
  if (!IsRoot(options.path)) {
    Result result = Locate(options.path, aostorage::kReadFlags, target);
    if (!result.Ok()) return report.Fail(options.path, result);
  }
  Export work(options, report);
  if (Result result = work.Start(); !result.Ok()) return report.Fail("", result);
  if (target.stream && target.stream->IsFolder() != 1) {
    work.WriteStream(*target.stream, options.path);
    return;
  }
  TreeWalk walk({storage.get(), target.stream.get()});
  ExportAll(walk, work, report);
}

}  // namespace aotool
