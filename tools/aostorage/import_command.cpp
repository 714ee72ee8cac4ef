// import

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include <aostorage/error.h>
#include <aostorage/types.h>

#include "directories.h"
#include "interrupt.h"
#include "names.h"
#include "paths.h"
#include "store.h"
#include "stream_writer.h"
#include "transfer.h"
#include "verbs.h"

namespace aotool {
namespace {

// What becomes of one file or directory.
enum class Verdict { kGoOn, kGiveUp };

// Stores a directory tree, without recursion. What cannot be stored is reported and left out; only
// a store that takes nothing more ends the work.
class Import {
 public:
  Import(const ImportOptions& chosen, aostorage::aoStorage& storage, Report& target)
      : options(chosen),
        report(target),
        store(FileIdentity::At(chosen.store)),
        trail({&storage, nullptr}),
        transfer([this](std::uint64_t size) { ShowProgress(size); }) {}

  void Run() {
    if (Result result = directories.Start(options.directory, false); !result.Ok()) {
      return report.Fail("", result);
    }
    if (Result result = EnterPath(options.into, trail); !result.Ok()) {
      return report.Fail(options.into, result);
    }
    if (!EnterLevel()) return;
    while (!levels.empty()) {
      if (Interrupted()) return report.Fail("", Interruption());
      Level& level = levels.back();
      if (level.next == level.names.size()) {
        if (!LeaveLevel()) return;
      } else if (StoreNext(level) == Verdict::kGiveUp) {
        return;
      }
    }
  }

 private:
  // One directory on the way down to the one that is read.
  struct Level {
    std::vector<std::string> names;
    std::size_t next = 0;
    UsedNames used;  // stream names taken by the names of this directory
    std::size_t parentPathLength = 0;
  };

  void ShowProgress(std::uint64_t size) {
    bytes += size;
    report.Progress("importing", items, bytes);
  }

  // The directory at the bottom of the stack. False when it cannot be listed.
  bool EnterLevel(const std::string& name = "") {
    Level level;
    level.parentPathLength = directoryPath.size();
    if (!name.empty()) directoryPath += name + "/";
    Result result = ListDirectory(directories.Bottom(), level.names);
    if (!result.Ok()) report.Fail(directoryPath, result);
    for (const std::string& used : level.names) {
      if (options.cut && CheckName(used).Ok()) level.used.Add(used);
    }
    levels.push_back(std::move(level));
    return result.Ok() || levels.size() > 1;
  }

  bool LeaveLevel() {
    directoryPath.resize(levels.back().parentPathLength);
    levels.pop_back();
    if (levels.empty()) return true;
    trail.Pop();
    Result result = directories.Leave();
    if (!result.Ok()) report.Fail(directoryPath, result);
    return result.Ok();
  }

  Verdict StoreNext(Level& level) {
    const std::string fileName = level.names[level.next++];
    const std::string path = directoryPath + fileName;
    struct stat state {};
    if (::fstatat(directories.Bottom(), fileName.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0) {
      return Skip(path, FromSystem(errno, "cannot look at it"));
    }
    if (!S_ISREG(state.st_mode) && !S_ISDIR(state.st_mode)) {
      report.Note(path, S_ISLNK(state.st_mode) ? "skipped: a symbolic link"
                                               : "skipped: neither a file nor a directory");
      return Verdict::kGoOn;
    }
    if (FileIdentity{state.st_dev, state.st_ino} == store) {
      report.Note(path, "skipped: it is the store itself");
      return Verdict::kGoOn;
    }
    std::string streamName;
    if (Result result = ChooseName(level, fileName, path, streamName); !result.Ok()) {
      return Skip(path, result);
    }
    ++items;
    return S_ISDIR(state.st_mode) ? StoreDirectory(fileName, path, streamName)
                                  : StoreFile(fileName, path, streamName);
  }

  Result ChooseName(Level& level, const std::string& fileName, const std::string& path,
                    std::string& streamName) {
    Result usable = CheckName(fileName);
    if (usable.Ok()) {
      streamName = fileName;
    } else if (options.cut) {
      streamName = level.used.MakeUnique(fileName, aostorage::kMaxNameLength);
      report.Note(path, "stored as '" + Shown(streamName) + "'");
      return {};
    }
    return usable;
  }

  Verdict StoreDirectory(const std::string& fileName, const std::string& path,
                         const std::string& streamName) {
    if (Result result = directories.Enter(fileName); !result.Ok()) return Skip(path, result);
    if (Result result = EnterFolder(trail, streamName); !result.Ok()) {
      Result back = directories.Leave();
      if (!back.Ok()) report.Fail(path, back);
      return back.Ok() ? StoreFailed(path, result) : Verdict::kGiveUp;
    }
    ShowProgress(0);
    EnterLevel(fileName);
    return Verdict::kGoOn;
  }

  Verdict StoreFile(const std::string& fileName, const std::string& path,
                    const std::string& streamName) {
    // Without waiting, should a pipe have taken the place of the file.
    const Descriptor input(::openat(directories.Bottom(), fileName.c_str(),
                                    O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!input) return Skip(path, FromSystem(errno, "cannot open it"));
    if (!IsRegularFile(input.Number())) return Skip(path, {kFailure, "no file any more"});
    if (Result result = CheckInput(input.Number()); !result.Ok()) return Skip(path, result);
    const Place place = trail.Bottom();
    aostorage::ClearLastError();
    StreamPtr stream = place.Open(streamName, aostorage::kWriteFlags);
    if (!stream && !NameIsMissing()) return StoreFailed(path, FromLibrary());
    if (stream && stream->IsFolder() == 1) {
      return Skip(path, {kFailure, "a folder of that name is in the way"});
    }
    if (stream && !options.force) {
      return Skip(path, {kFailure, "the store has such a stream already (--force replaces it)"});
    }
    const std::uint16_t duration = stream ? stream->GetDuration() : 0;
    aostorage::ClearLastError();
    Result result =
        writer.Write(place, streamName, aostorage::PackKind(false, duration), std::move(stream),
                     [&](aostorage::aoStream& made, const std::string&) {
                       return transfer.CopyIn(input.Number(), made);
                     });
    return result.Ok() ? Verdict::kGoOn : StoreFailed(path, result);
  }

  Verdict Skip(const std::string& path, Result result) {
    result.reason = "skipped: " + result.reason;
    report.Fail(path, result);
    return Verdict::kGoOn;
  }

  // When the store itself failed, nothing that comes later would fare better.
  Verdict StoreFailed(const std::string& path, const Result& result) {
    if (Interrupted()) {
      report.Fail(path, result);
      return Verdict::kGiveUp;
    }
    switch (aostorage::LastError().code) {
      case aostorage::ErrorCode::kNone:
      case aostorage::ErrorCode::kNotFound:
        return Skip(path, result);
      default:
        report.Fail(path, {result.code, result.reason + "; the import ends here"});
        return Verdict::kGiveUp;
    }
  }

  const ImportOptions& options;
  Report& report;
  const FileIdentity store;
  DirectoryStack directories;
  std::vector<Level> levels;
  std::string directoryPath;  // from the imported directory, with a slash at its end
  Trail trail;
  Transfer transfer;
  StreamWriter writer;
  std::uint64_t items = 0;
  std::uint64_t bytes = 0;
};

}  // namespace

void ImportTree(const ImportOptions& options, Report& report) {
  const StoragePtr storage = OpenForWriting(options.store, options.reserve, report);
  if (storage) Import(options, *storage, report).Run();
}

}  // namespace aotool
