// create, put, get, cat, rm

#include <string>
#include <utility>

#include <aostorage/error.h>
#include <aostorage/types.h>

#include "files.h"
#include "paths.h"
#include "store.h"
#include "stream_writer.h"
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

Result Store(Target& target, int input, Report& report) {
  const std::uint16_t duration = target.stream ? target.stream->GetDuration() : 0;
  return StreamWriter().Write(target.parents.Bottom(), target.name,
                              aostorage::PackKind(false, duration), std::move(target.stream),
                              [&](aostorage::aoStream& stream, const std::string&) {
                                return ShowingTransfer(report, "storing").CopyIn(input, stream);
                              });
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
  if (result.Ok()) result = Store(target, input.Number(), report);
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
