// dump

#include <fcntl.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <aostorage/error.h>

#include "files.h"
#include "interrupt.h"
#include "json.h"
#include "named_tree.h"
#include "text_form.h"
#include "text_verbs.h"

namespace aotool {
namespace {

using aostorage::InspectedStream;
using aostorage::kNoIndex;

// Where the records go.
class DumpSink {
 public:
  virtual ~DumpSink() = default;
  virtual Result Put(const TextRecord& record) = 0;
  // The bytes of the plain stream just put, one piece after the other.
  virtual Result PutData(std::string_view bytes, bool text, bool last) = 0;
  // Something that is not dumped, and why.
  virtual Result PutLeftOut(const TextRecord& record, const std::string& why) = 0;
  virtual Result Finish(const TextTotals& totals) = 0;
};

class TextSink : public DumpSink {
 public:
  explicit TextSink(const DumpOptions& options)
      : output(AT_FDCWD, options.file, OutputFile::IfThere::kOverwrite,
               FileIdentity::At(options.store)) {
    buffer = std::string(kTextFirstLine) + "\n";
  }

  Result Put(const TextRecord& record) override { return Add(RecordLine(record) + "\n"); }

  Result PutData(std::string_view bytes, bool text, bool last) override {
    held += bytes;
    std::string_view rest = held;
    for (;;) {
      const std::string line = DataLine(rest, text, last);
      if (line.empty()) break;
      if (Result result = Add(line); !result.Ok()) return result;
    }
    held.erase(0, held.size() - rest.size());
    return {};
  }

  Result PutLeftOut(const TextRecord& record, const std::string& why) override {
    return Add("# " + why + ": " + RecordLine(record) + "\n");
  }

  Result Finish(const TextTotals& totals) override {
    if (Result result = Add(EndLine(totals) + "\n"); !result.Ok()) return result;
    if (Result result = Flush(); !result.Ok()) return result;
    return output.Finish();
  }

 private:
  Result Add(std::string_view text) {
    buffer += text;
    return buffer.size() < kBuffered ? Result{} : Flush();
  }
  Result Flush() {
    Result result =
        output.Write(reinterpret_cast<const std::uint8_t*>(buffer.data()), buffer.size());
    buffer.clear();
    return result;
  }

  static constexpr std::size_t kBuffered = 65536;
  OutputFile output;
  std::string buffer;
  std::string held;  // of a stream: what does not fill a line yet
};

class JsonSink : public DumpSink {
 public:
  explicit JsonSink(const std::string& store) : listing(JsonHead("dump", store), "records") {}

  Result Put(const TextRecord& record) override {
    listing.Add(Form(record));
    return {};
  }

  Result PutData(std::string_view bytes, bool text, bool last) override {
    constexpr std::size_t kPiece = 4096;
    held += bytes;
    std::size_t done = 0;
    while (done < held.size() && (held.size() - done >= kPiece || last)) {
      const std::string_view piece =
          std::string_view(held).substr(done, Fitting(done, kPiece, text));
      Json element = Json::Object();
      element.Set("kind", "data");
      if (text) {
        element.Set("text", piece);
      } else {
        element.SetHex("hex", piece);
      }
      listing.Add(element);
      done += piece.size();
    }
    held.erase(0, done);
    return {};
  }

  Result PutLeftOut(const TextRecord& record, const std::string& why) override {
    listing.Add(std::move(Form(record).Set("leftOut", why)));
    return {};
  }

  Result Finish(const TextTotals& totals) override {
    listing.Add(Json::Object()
                    .Set("kind", "end")
                    .Set("folders", totals.folders)
                    .Set("plain", totals.plain)
                    .Set("bytes", totals.bytes));
    return {};
  }

 private:
  static Json Form(const TextRecord& record) {
    Json form = Json::Object();
    form.Set("kind", record.folder ? "folder" : "plain")
        .Set("depth", record.depth)
        .SetName("name", record.names.back())
        .Set("duration", record.duration)
        .Set("reserved", record.reserved);
    if (!record.folder) form.Set("length", record.length);
    return form;
  }

  // So many bytes that no character is cut.
  std::size_t Fitting(std::size_t from, std::size_t most, bool text) const {
    std::size_t count = std::min(most, held.size() - from);
    while (text && from + count < held.size() &&
           (static_cast<unsigned char>(held[from + count]) & 0xC0) == 0x80) {
      --count;
    }
    return count;
  }

  JsonListing listing;
  std::string held;
};

// Depth first, without recursion.
class Dumping {
 public:
  Dumping(const NamedTree& dumped, DumpSink& to, Report& toReport)
      : tree(dumped), sink(to), report(toReport) {}

  Result Run() {
    if (Result result = Enter(kNoIndex); !result.Ok()) return result;
    while (!levels.empty()) {
      if (Interrupted()) return Interruption();
      Level& level = levels.back();
      if (level.next == level.children.size()) {
        levels.pop_back();
        if (!names.empty()) names.pop_back();
        continue;
      }
      if (Result result = Take(level.children[level.next++]); !result.Ok()) return result;
    }
    return sink.Finish(totals);
  }

 private:
  struct Level {
    std::vector<std::uint32_t> children;
    std::size_t next = 0;
  };

  Result Enter(std::uint32_t folder) {
    levels.push_back({tree.Children(folder)});
    for (const std::uint32_t hidden : tree.Hidden(folder)) {
      Tell(hidden, {kDone, "is hidden by another stream of its name and left out"});
      if (Result result = sink.PutLeftOut(RecordOf(hidden), "hidden"); !result.Ok()) return result;
    }
    return {};
  }

  Result Take(std::uint32_t stream) {
    const InspectedStream& found = tree.At(stream);
    Result whole = CheckWhole(found);
    if (!whole.Ok()) Tell(stream, whole);
    report.Progress("dumping", totals.folders + totals.plain, totals.bytes);
    if (found.isFolder) {
      ++totals.folders;
      if (Result result = sink.Put(RecordOf(stream)); !result.Ok()) return result;
      names.emplace_back(NameIn(found));
      return Enter(stream);
    }
    TextTest test;
    if (whole.Ok()) whole = ReadAll(stream, [&test](std::string_view piece) { test.Take(piece); });
    if (whole.Ok()) return TakeData(stream, test.IsText());
    if (Interrupted()) return Interruption();
    if (CheckWhole(found).Ok()) Tell(stream, whole);
    return sink.PutLeftOut(RecordOf(stream), "damaged");
  }

  Result TakeData(std::uint32_t stream, bool isText) {
    const std::uint32_t length = tree.At(stream).header.length;
    ++totals.plain;
    totals.bytes += length;
    Result result = sink.Put(RecordOf(stream));
    std::uint64_t done = 0;
    if (length == 0 || !result.Ok()) return result;
    const Result read = ReadAll(stream, [&](std::string_view piece) {
      done += piece.size();
      if (result.Ok()) result = sink.PutData(piece, isText, done == length);
    });
    return result.Ok() ? read : result;
  }

  // All bytes of a plain stream, or why they are not to be had.
  template <typename Take>
  Result ReadAll(std::uint32_t stream, const Take& take) {
    aostorage::ClearLastError();
    const std::uint64_t got =
        tree.Store().ReadStream(stream, [&](const void* bytes, std::size_t count) {
          take(std::string_view(static_cast<const char*>(bytes), count));
          return !Interrupted();
        });
    if (Interrupted()) return Interruption();
    if (aostorage::LastError().code != aostorage::ErrorCode::kNone) return FromLibrary();
    return got == tree.At(stream).header.length ? Result{} : FromShortRead();
  }

  TextRecord RecordOf(std::uint32_t stream) const {
    const InspectedStream& found = tree.At(stream);
    TextRecord record;
    record.folder = found.isFolder;
    record.depth = names.size() + 1;
    const std::size_t above = std::min(names.size(), kMostPathNames - 1);
    record.names.assign(names.end() - static_cast<std::ptrdiff_t>(above), names.end());
    record.names.emplace_back(NameIn(found));
    record.duration = found.header.duration;
    record.length = found.header.length;
    record.reserved = tree.IsReserved(stream);
    return record;
  }

  // Of very many only the first are told.
  void Tell(std::uint32_t stream, const Result& what) {
    constexpr std::size_t kMostTold = 1000;
    if (told++ >= kMostTold && (what.Ok() || report.Code() != kDone)) return;
    const std::string path = ShortPathOf(tree.Store(), stream);
    if (what.Ok()) return report.Note(path, what.reason);
    report.Fail(path, what);
  }

  const NamedTree& tree;
  DumpSink& sink;
  Report& report;
  std::vector<Level> levels;
  std::vector<std::string> names;
  TextTotals totals;
  std::size_t told = 0;
};

}  // namespace

void Dump(const DumpOptions& options, Report& report) {
  if (options.json && !options.file.empty() && options.file != "-")
    return report.Fail("", {kFailure, "--json goes to standard output"});
  report.LeaveTerminalToResults();
  InspectionPtr inspection;
  if (Result result = Inspect(options.store, inspection); !result.Ok())
    return report.Fail("", result);
  if (Result damage = FirstDamage(*inspection); !damage.Ok()) {
    damage.reason += "; what is sound is dumped";
    report.Fail("", damage);
  }
  const NamedTree tree(*inspection);
  std::unique_ptr<DumpSink> sink;
  if (options.json) {
    sink = std::make_unique<JsonSink>(options.store);
  } else {
    sink = std::make_unique<TextSink>(options);
  }
  if (Result result = Dumping(tree, *sink, report).Run(); !result.Ok()) report.Fail("", result);
}

}  // namespace aotool
