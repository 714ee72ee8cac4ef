// compact, upgrade

#include <sys/stat.h>

#include <optional>
#include <string>

#include <aostorage/error.h>
#include <aostorage/types.h>

#include "files.h"
#include "interrupt.h"
#include "paths.h"
#include "store.h"
#include "transfer.h"
#include "verbs.h"
#include "walk.h"

namespace aotool {
namespace {

std::string Counted(std::uint64_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::uint64_t SizeOf(const std::string& path) {
  struct stat state {};
  return ::stat(path.c_str(), &state) == 0 ? static_cast<std::uint64_t>(state.st_size) : 0;
}

// What keeps the output from taking a store.
Result CheckOutput(const RebuildOptions& options) {
  if (options.output == "-") return {kFailure, "a store cannot go to standard output"};
  struct stat state {};
  if (!options.output || ::stat(options.output->c_str(), &state) != 0) return {};
  const std::string output = "'" + Shown(*options.output) + "'";
  if (FileIdentity{state.st_dev, state.st_ino} == FileIdentity::At(options.store)) {
    return {kFailure, output + " is the store itself"};
  }
  if (!S_ISREG(state.st_mode)) return {kFailure, output + " exists and is no file"};
  if (!options.force) return {kFailure, output + " exists already (--force replaces it)"};
  return {};
}

// Rebuilds a store, into its own place or into another file.
class Rebuilding {
 public:
  Rebuilding(const RebuildOptions& chosen, Report& toReport)
      : options(chosen),
        report(toReport),
        path(chosen.output.value_or(chosen.store)),
        temporary(path + "_tmp") {}

  // False after a failure, which is reported.
  bool Run() {
    storage = options.output ? OpenWhole(options.store, report)
                             : OpenForWriting(options.store, 0, report);
    if (!storage) return false;
    sizeBefore = SizeOf(options.store);
    Result result = CheckOutput(options);
    if (result.Ok() && TemporaryIsThere()) {
      result = {kFailure, "'" + Shown(temporary) + "' is in the way: if an earlier rebuild broke " +
                              "off it is the only whole store, else remove it"};
    }
    if (result.Ok() && !Rebuild()) result = WhatFailed();
    if (!result.Ok()) report.Fail("", result);
    return result.Ok();
  }

  void PrintOutcome(const std::string& before) {
    std::string line = before + Counted(sizeBefore, "byte", "bytes") + " before, " +
                       Counted(SizeOf(path), "byte", "bytes") + " after, " +
                       Counted(carried.streams, "stream", "streams") + " carried";
    if (carried.durations != 0) {
      line += ", " + Counted(carried.durations, "duration", "durations") + " became 0";
    }
    if (carried.reserved != 0) {
      line += ", " + Counted(carried.reserved, "stream of a reserved slot became an ordinary one",
                             "streams of reserved slots became ordinary ones");
    }
    if (carried.hidden != 0) {
      line += ", " + Counted(carried.hidden, "hidden stream", "hidden streams") + " left behind";
    }
    report.EndProgress();
    Print(line + "\n");
  }

 private:
  bool TemporaryIsThere() const {
    struct stat state {};
    return ::lstat(temporary.c_str(), &state) == 0;
  }

  bool Rebuild() {
    const auto follow = [this](const aostorage::RebuildReport& soFar) {
      carried = soFar;
      report.Progress("rebuilding", soFar.streams, soFar.bytes);
      gaveUp = Interrupted();
      return !gaveUp && (soFar.hidden == 0 || options.dropHidden);
    };
    aostorage::ClearLastError();
    // In its own place by the path, with nothing open here: the library copies over no file that a
    // further object has open.
    if (!options.output) {
      storage.reset();
      return aostorage::aoStorage::Recreate(path.c_str(), follow) == 1;
    }
    storage.reset(aostorage::aoStorage::Recreate(storage.release(), path.c_str(), follow));
    return storage && storage->GetPath() == path;
  }

  Result WhatFailed() {
    if (gaveUp) return {kFailure, Interruption().reason + "; nothing was changed"};
    if (carried.hidden != 0 && !options.dropHidden) return HiddenStreams();
    Result failure = FromLibrary();
    if (TemporaryIsThere()) {
      failure.reason = "putting the new file in place broke off: " + failure.reason +
                       "; the whole new store stands at '" + Shown(temporary) + "'";
      return failure;
    }
    if (options.output && !storage) {
      failure.reason = "the new store is in place, but does not open: " + failure.reason;
      return failure;
    }
    if (failure.code == kNotFound) {  // not the store
      failure = {kInputOutput, "cannot make '" + Shown(path) + "': " + failure.reason};
    } else if (failure.code == kDamaged) {
      if (Result found = FindDamage(); !found.Ok()) failure = found;
    }
    failure.reason += "; nothing was changed";
    return failure;
  }

  Result HiddenStreams() const {
    return {kFailure, Counted(carried.hidden, "stream is", "streams are") +
                          " hidden behind a later one of the same name and would be lost" +
                          " (--drop-hidden accepts that)"};
  }

  // The library tells what is wrong, this tells where: the first stream that cannot be read.
  Result FindDamage() {
    if (!storage) storage.reset(aostorage::aoStorage::Open(path.c_str(), aostorage::kReadFlags, 0));
    if (!storage) return {};
    std::uint64_t items = 0;
    std::uint64_t bytes = 0;
    Transfer transfer([&](std::uint64_t size) {
      bytes += size;
      report.Progress("looking for the damage", items, bytes);
    });
    TreeWalk walk({storage.get(), nullptr});
    for (;;) {
      Result result;
      switch (walk.Next()) {
        case TreeWalk::Event::kStream:
          result = transfer.ReadThrough(walk.Stream());
          break;
        case TreeWalk::Event::kFailed:
          result = walk.Failure();
          break;
        case TreeWalk::Event::kFolder:
        case TreeWalk::Event::kLeave:
          break;
        case TreeWalk::Event::kEnd:
          return {};
      }
      if (!result.Ok()) return {result.code, "'" + Shown(walk.Path()) + "': " + result.reason};
      ++items;
    }
  }

  const RebuildOptions& options;
  Report& report;
  const std::string path;
  const std::string temporary;
  StoragePtr storage;
  std::uint64_t sizeBefore = 0;
  aostorage::RebuildReport carried;
  bool gaveUp = false;  // because of an interrupt
};

}  // namespace

void Compact(const RebuildOptions& options, Report& report) {
  Rebuilding work(options, report);
  if (work.Run()) work.PrintOutcome("");
}

void Upgrade(const RebuildOptions& options, Report& report) {
  StoragePtr storage = OpenWhole(options.store, report);
  if (!storage) return;
  storage.reset();
  const std::optional<FileHeader> header = ReadHeader(options.store);
  if (!header) return report.Fail("", {kInputOutput, "cannot read the file header"});
  if (!header->older) return Print("the store is in the current form already\n");
  Rebuilding work(options, report);
  if (work.Run()) work.PrintOutcome("from the older form to the current one: ");
}

}  // namespace aotool
