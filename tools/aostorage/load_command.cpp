// load

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>

#include <aostorage/error.h>
#include <aostorage/types.h>

#include "files.h"
#include "text_loader.h"
#include "text_verbs.h"

namespace aotool {
namespace {

// The new store, beside the place that it is for until it is whole.
class NewStore {
 public:
  NewStore(const std::string& path, bool mayReplace) : goal(path), replace(mayReplace) {}
  NewStore(const NewStore&) = delete;
  NewStore& operator=(const NewStore&) = delete;
  ~NewStore() {
    storage.reset();
    if (made) ::unlink(temporary.c_str());
  }

  Result Make() {
    if (Result result = LookAtGoal(); !result.Ok()) return result;
    temporary = goal + ".loading-" + std::to_string(::getpid());
    if (Result result = CreateStore(temporary, false); !result.Ok()) {
      result.reason = "cannot make '" + Shown(temporary) + "': " + result.reason;
      return result;
    }
    made = true;
    // Nobody sees more of it meanwhile than of the old one.
    if (mode != 0 && !SetMode(mode | S_IRUSR | S_IWUSR)) return ModeFailure();
    aostorage::ClearLastError();
    storage.reset(aostorage::aoStorage::Open(temporary.c_str(), aostorage::kWriteFlags, 0));
    return storage ? Result{} : FromLibrary();
  }

  aostorage::aoStorage& Storage() { return *storage; }

  // All streams are released.
  Result PutInPlace() {
    aostorage::ClearLastError();
    if (!storage->Sync()) return FromLibrary();
    storage.reset();
    if (mode != 0 && !SetMode(mode)) return ModeFailure();
    if (!Rename()) {
      if (errno == EEXIST) return {kFailure, "a file has been put there meanwhile"};
      return FromSystem(errno, "cannot put the new store in place");
    }
    made = false;
    return {};
  }

 private:
  // A link stays, and what it leads to is replaced.
  Result LookAtGoal() {
    struct stat state {};
    if (::lstat(goal.c_str(), &state) != 0) return {};
    if (!replace) return {kFailure, "exists already (--force replaces it)"};
    const std::unique_ptr<char, void (*)(void*)> real(::realpath(goal.c_str(), nullptr), std::free);
    if (!real || ::stat(real.get(), &state) != 0)
      return FromSystem(errno, "cannot look at what is there");
    if (!S_ISREG(state.st_mode)) return {kFailure, "exists and is no file"};
    goal = real.get();
    mode = state.st_mode & 07777;
    return {};
  }

  bool SetMode(mode_t wanted) const { return ::chmod(temporary.c_str(), wanted) == 0; }
  static Result ModeFailure() {
    return FromSystem(errno, "cannot give the new store the old one's mode");
  }

  bool Rename() const {
    if (replace) return ::rename(temporary.c_str(), goal.c_str()) == 0;
    if (::renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, goal.c_str(), RENAME_NOREPLACE) == 0)
      return true;
    if (errno != EINVAL && errno != ENOSYS) return false;
    // A file system that cannot do it in one step.
    struct stat state {};
    if (::lstat(goal.c_str(), &state) == 0) {
      errno = EEXIST;
      return false;
    }
    return ::rename(temporary.c_str(), goal.c_str()) == 0;
  }

  std::string goal, temporary;
  const bool replace;
  bool made = false;
  mode_t mode = 0;  // of the file that is replaced
  StoragePtr storage;
};

Result LoadLines(int input, aostorage::aoStorage& storage, Report& report) {
  LineReader lines(input);
  TextLoader loader(storage);
  const auto at = [&lines](Result result) {
    if (!result.Ok())
      result.reason = "line " + std::to_string(lines.Number()) + ": " + result.reason;
    return result;
  };
  for (;;) {
    std::string_view line;
    bool got = false;
    if (Result result = lines.Next(line, got); !result.Ok()) return at(result);
    if (!got) return at(loader.Finish());
    if (Result result = loader.Take(line); !result.Ok()) return at(result);
    report.Progress("loading", loader.Made().folders + loader.Made().plain, loader.Made().bytes);
  }
}

}  // namespace

void Load(const LoadOptions& options, Report& report) {
  Descriptor input;  // opened first: without it nothing is to happen
  Result result = OpenInput(options.file, FileIdentity::At(options.store), input, false);
  if (result.Ok()) {
    NewStore store(options.store, options.force);
    result = store.Make();
    if (result.Ok()) result = LoadLines(input.Number(), store.Storage(), report);
    if (result.Ok()) result = store.PutInPlace();
  }
  if (!result.Ok()) report.Fail("", {result.code, result.reason + "; nothing was made"});
}

}  // namespace aotool
