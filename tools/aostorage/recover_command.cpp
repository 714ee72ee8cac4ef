#include "recover_command.h"

#include <memory>

#include <aostorage/error.h>
#include <aostorage/inspect.h>
#include <aostorage/types.h>

#include "files.h"
#include "inspected.h"
#include "interrupt.h"
#include "json.h"
#include "new_file.h"
#include "recovery.h"
#include "store.h"

namespace aotool {
namespace {

using aostorage::Inspection;

bool HoldsNothing(const Inspection& source) {
  return !source.HasFileHeader() && source.Streams().empty() && source.Directories().empty();
}

class Salvage {
 public:
  Salvage(const RecoverOptions& chosen, Report& toReport)
      : options(chosen), report(toReport), file(chosen.output, chosen.force) {}

  void Run() {
    if (Result result = file.Check(FileIdentity::At(options.store)); !result.Ok())
      return report.Fail("", result);
    const std::unique_ptr<Inspection> source = Inspect(options.store, report, true);
    if (!source) return;
    if (HoldsNothing(*source))
      return report.Fail("", {kNotAStorage, "nothing in it looks like a part of a storage file"});
    Result result = Write(*source);
    if (result.Ok()) return;
    if (!Interrupted()) result.reason = "the new store cannot be made: " + result.reason;
    report.Fail("", result);
  }

 private:
  Result Write(const Inspection& source) {
    if (Result result = text.Open(); !result.Ok()) return result;
    if (Result result = json.Open(); !result.Ok()) return result;
    if (Result result = file.Make(); !result.Ok()) return result;
    aostorage::ClearLastError();
    const StoragePtr target(
        aostorage::aoStorage::Create(file.Temporary().c_str(), aostorage::kWriteFlags, 0));
    if (!target) return FromLibrary();
    Recovery recovery(source, *target, report, text, options.json ? &json : nullptr);
    if (Result result = recovery.Run(); !result.Ok()) return result;
    aostorage::ClearLastError();
    if (!target->Sync()) return FromLibrary();
    if (Result result = file.PutInPlace(); !result.Ok()) return result;
    if (recovery.Totals().missing != 0) report.AnswerNo();
    report.EndProgress();
    return options.json ? PrintDocument(recovery) : PrintText(recovery);
  }

  Result PrintText(const Recovery& recovery) {
    Result result = text.ForEach([](std::string_view piece) {
      Print(piece);
      return Result{};
    });
    Print(recovery.Summary() + "\n");
    return result;
  }

  Result PrintDocument(const Recovery& recovery) {
    const RecoverTotals& totals = recovery.Totals();
    Json head = JsonHead("recover", options.store);
    head.SetName("output", options.output)
        .Set("complete", totals.missing == 0)
        .Set("streams", totals.streams)
        .Set("folders", totals.folders)
        .Set("bytes", totals.bytes)
        .Set("lostFinds", totals.finds)
        .Set("lostBytes", totals.findBytes);
    if (recovery.LostFolder().empty()) {
      head.SetNull("lostFolder");
    } else {
      head.Set("lostFolder", recovery.LostFolder());
    }
    std::string opening = head.Set("finds", Json::Array()).Text();
    opening.resize(opening.size() - 2);  // what closes the empty list and the document
    Print(opening);
    Result result = json.ForEach([](std::string_view piece) {
      Print(piece);
      return Result{};
    });
    Print(json.IsEmpty() ? "]}\n" : "\n]}\n");
    return result;
  }

  const RecoverOptions& options;
  Report& report;
  NewFile file;
  Spool text;
  Spool json;
};

}  // namespace

void Recover(const RecoverOptions& options, Report& report) {
  if (options.output.empty())
    return report.Fail("", {kFailure, "the file for the new store is not given (-o NEW)"});
  Salvage(options, report).Run();
}

}  // namespace aotool
