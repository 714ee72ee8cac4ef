// create, put, get, cat, rm

#include <string>

#include <aostorage/error.h>
#include <aostorage/types.h>

#include "files.h"
#include "paths.h"
#include "store.h"
#include "transfer.h"
#include "verbs.h"

namespace aotool {
namespace {

Transfer ShowingTransfer(Report& report, const char* doing) {
  return Transfer([&report, doing, total = std::uint64_t{0}](std::uint64_t bytes) mutable {
    total += bytes;
    report.Progress(doing, 1, total);
  });
}

// Fills the new or the old stream. A new one that could not be filled is removed again.
Result Fill(Target& target, int input, Report& report) {
  const bool isNew = !target.stream;
  if (isNew) {
    aostorage::ClearLastError();
    target.stream = target.parents.Bottom().Create(target.name, aostorage::PackKind(false));
    if (!target.stream) return FromLibrary();
  }
  Result result = ShowingTransfer(report, "storing").CopyIn(input, *target.stream);
  if (result.Ok()) return result;
  if (isNew) {
    result.reason +=
        Remove(target.stream).Ok() ? "; nothing was stored" : "; what was stored stays";
  } else if (const std::uint32_t position = target.stream->GetCurDataPos(); position != 0) {
    result.reason += "; its first " + std::to_string(position) + " bytes are already the new ones";
  }
  return result;
}

}  // namespace

void Create(const CreateOptions& options, Report& report) {
  if (Result result = CreateStore(options.store, options.force); !result.Ok()) {
    report.Fail("", result);
  }
}

void Put(const CopyOptions& options, Report& report) {
  Descriptor input;  // opened first: without it nothing is to happen
  Result result = OpenInput(options.file, FileIdentity::At(options.store), input);
  if (!result.Ok()) return report.Fail(options.path, result);
  const StoragePtr storage = OpenForWriting(options.store, options.reserve, report);
  if (!storage) return;
  Target target(*storage);
  result = LocateForCreation(options.path, target);
  if (result.Ok() && target.stream && target.stream->IsFolder() == 1) {
    result = {kFailure, "is a folder"};
  }
  if (result.Ok()) result = Fill(target, input.Number(), report);
  if (!result.Ok()) report.Fail(options.path, result);
}

void Get(const CopyOptions& options, Report& report) {
  if (options.file.empty() || options.file == "-") report.LeaveTerminalToResults();
  const StoragePtr storage = OpenForReading(options.store, report);
  if (!storage) return;
  Target target(*storage);
  Result result = LocatePlain(options.path, target);
  if (result.Ok()) {
    OutputFile output(AT_FDCWD, options.file, OutputFile::IfThere::kOverwrite,
                      FileIdentity::At(options.store));
    result = ShowingTransfer(report, "fetching").CopyOut(*target.stream, output);
    if (result.Ok()) result = output.Finish();
  }
  if (!result.Ok()) report.Fail(options.path, result);
}

void Rm(const CommonOptions& options, Report& report) {
  const StoragePtr storage = OpenForWriting(options.store, 0, report);
  if (!storage) return;
  report.Working("removing");
  if (RemoveAt(options.path, *storage)) return;
  Target target(*storage);  // a slash is part of a name, or this tells what is wrong
  Result result = Locate(options.path, aostorage::kWriteFlags, target);
  if (result.Ok()) result = Remove(target.stream);
  if (!result.Ok()) report.Fail(options.path, result);
}

}  // namespace aotool
