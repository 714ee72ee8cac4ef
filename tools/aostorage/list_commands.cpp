// ls, tree

#include <algorithm>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <aostorage/error.h>
#include <aostorage/types.h>

#include "interrupt.h"
#include "json.h"
#include "paths.h"
#include "store.h"
#include "verbs.h"
#include "walk.h"

namespace aotool {
namespace {

struct Line {
  std::string name;
  bool isFolder = false;
  std::uint32_t length = 0;
  std::uint32_t seconds = 0;
};

Line LineOf(const aostorage::aoStream& stream) {
  return {stream.GetName(), stream.IsFolder() == 1, stream.GetLength(), stream.GetDuration() * 60U};
}

// Prints streams as the options ask for: lines, or one document.
class Listing {
 public:
  explicit Listing(const ListOptions& chosen) : options(chosen), style(chosen.color) {
    if (!options.json) return;
    Json head = JsonHead("ls", options.store);
    head.SetName("path", options.path);
    document.emplace(std::move(head), "streams");
  }

  void Print(const Line& line) {
    if (document) {
      PrintElement(line);
    } else {
      PrintText(line);
    }
  }

 private:
  void PrintElement(const Line& line) {
    Json element = Json::Object();
    element.SetName("name", line.name)
        .Set("kind", line.isFolder ? "folder" : "plain")
        .Set("length", line.length);
    if (options.durations) element.Set("durationSeconds", line.seconds);
    document->Add(element);
  }

  void PrintText(const Line& line) {
    char column[32];
    std::string text;
    if (options.details) {
      std::snprintf(column, sizeof column, "%c %10u ", line.isFolder ? 'd' : '-', line.length);
      text += column;
    }
    if (options.durations) {
      std::snprintf(column, sizeof column, "%8us ", line.seconds);
      text += column;
    }
    const std::string name = Shown(line.name);
    aotool::Print(text + (line.isFolder ? style.Paint(Tint::kFolder, name) : name) + "\n");
  }

  const ListOptions& options;
  const Style style;
  std::optional<JsonListing> document;
};

// Takes streams as a walk gives them.
class Lines {
 public:
  explicit Lines(Report& target) : report(target) {}

  void Add(StreamPtr stream, const std::string& name = "") {
    if (stream) {
      lines.push_back(LineOf(*stream));
      report.Progress("listing", lines.size(), 0);
    } else if (!name.empty() || !NameIsMissing()) {  // else it is the end of a walk
      report.Fail(name, FromLibrary());
    }
    aostorage::ClearLastError();
  }

  std::vector<Line>& All() { return lines; }

 private:
  Report& report;
  std::vector<Line> lines;
};

void PrintAll(const ListOptions& options, Lines& lines, Report& report) {
  Listing listing(options);
  for (const Line& line : lines.All()) {
    if (Interrupted()) return report.Fail("", Interruption());
    listing.Print(line);
  }
}

// The order in which the store keeps the names in memory.
void WalkUnsorted(aostorage::aoStorage& storage, Lines& lines) {
  aostorage::StreamCookie cookie = 0;  // 0 is also the mark of the end
  storage.EnableSorting(0, 0);
  lines.Add(StreamPtr(storage.OpenStreamFirst(cookie, aostorage::kReadFlags)));
  while (cookie != 0 && !Interrupted()) {
    const aostorage::StreamCookie before = cookie;
    StreamPtr stream(storage.OpenStreamNext(cookie, aostorage::kReadFlags));
    const bool stuck = !stream && cookie == before;
    lines.Add(std::move(stream));
    if (stuck) break;
  }
}

// The order of the slots in the file.
void WalkSlots(aostorage::aoStorage& storage, Lines& lines) {
  int position = -1;
  lines.Add(StreamPtr(storage.OpenStreamFirst2(position, aostorage::kReadFlags)));
  while (position >= 0 && !Interrupted()) {
    const int before = position;
    lines.Add(StreamPtr(storage.OpenStreamNext2(position, aostorage::kReadFlags)));
    if (position == before) break;
  }
}

void WalkChildren(aostorage::aoStream& folder, Lines& lines) {
  std::uint32_t cookie = 0;
  StreamPtr child(folder.OpenStreamFirst(cookie, aostorage::kReadFlags));
  while (child && !Interrupted()) {
    lines.Add(std::move(child));
    child.reset(folder.OpenStreamNext(cookie, aostorage::kReadFlags));
  }
  lines.Add(nullptr);  // the end, or a failure
}

// Stored durations, and estimates where a stream has none and the names tell times.
std::map<std::string, std::uint32_t> RootDurations(aostorage::aoStorage& storage) {
  std::map<std::string, std::uint32_t> durations;
  aostorage::CIterateSortedStreams scan;
  while (storage.IterateSortedStreamsNoOPENS(&scan) == 1) {
    durations[scan.streamName] = scan.streamOffset.durationSeconds;
  }
  return durations;
}

void ListRoot(const ListOptions& options, aostorage::aoStorage& storage, Report& report) {
  const bool namesAlone = !options.details && !options.durations && !options.json;
  if (options.order == "name" && namesAlone) {
    for (const std::string& name : RootNames(storage)) {
      if (Interrupted()) return report.Fail("", Interruption());
      Print(Shown(name) + "\n");
    }
    return;
  }
  Lines lines(report);
  aostorage::ClearLastError();
  if (options.order == "slot") {
    WalkSlots(storage, lines);
  } else if (options.order == "none") {
    WalkUnsorted(storage, lines);
  } else {
    for (const std::string& name : RootNames(storage)) {
      if (Interrupted()) break;
      lines.Add(StreamPtr(storage.OpenStream(name.c_str(), aostorage::kReadFlags)), name);
    }
  }
  if (Interrupted()) return report.Fail("", Interruption());
  std::map<std::string, std::uint32_t> durations;
  if (options.durations) durations = RootDurations(storage);
  for (Line& line : lines.All()) {
    if (options.durations) line.seconds = durations[line.name];
  }
  PrintAll(options, lines, report);
}

void ListFolder(const ListOptions& options, aostorage::aoStream& folder, Report& report) {
  Lines lines(report);
  aostorage::ClearLastError();
  WalkChildren(folder, lines);
  if (Interrupted()) return report.Fail("", Interruption());
  if (options.order == "name") {
    std::stable_sort(lines.All().begin(), lines.All().end(),
                     [](const Line& left, const Line& right) { return left.name < right.name; });
  }
  PrintAll(options, lines, report);
}

// Prints what a walk meets: indented lines, or one document.
class TreePrinter {
 public:
  TreePrinter(const CommonOptions& chosen, std::string above)
      : style(chosen.color), start(std::move(above)) {
    if (!chosen.json) return;
    Json head = JsonHead("tree", chosen.store);
    head.SetName("path", chosen.path);
    document.emplace(std::move(head), "entries");
  }

  void Print(TreeWalk& walk, bool isFolder) {
    if (document) return PrintElement(walk, isFolder);
    std::string text = std::string(2 * walk.Depth(), ' ');
    const std::string name = Shown(walk.Name());
    text += isFolder ? style.Paint(Tint::kFolder, name) + "/"
                     : name + "  " + std::to_string(walk.Stream().GetLength());
    aotool::Print(text + "\n");
  }

 private:
  void PrintElement(TreeWalk& walk, bool isFolder) {
    Json element = Json::Object();
    element.SetName("path", start + walk.Path())
        .SetName("name", walk.Name())
        .Set("depth", walk.Depth())
        .Set("kind", isFolder ? "folder" : "plain");
    if (!isFolder) element.Set("length", walk.Stream().GetLength());
    document->Add(element);
  }

  const Style style;
  const std::string start;  // the path of the folder that is walked, with a slash at its end
  std::optional<JsonListing> document;
};

void PrintTree(TreeWalk& walk, TreePrinter& printer, Report& report) {
  std::uint64_t streams = 0;
  for (;;) {
    const TreeWalk::Event event = walk.Next();
    switch (event) {
      case TreeWalk::Event::kStream:
      case TreeWalk::Event::kFolder:
        printer.Print(walk, event == TreeWalk::Event::kFolder);
        break;
      case TreeWalk::Event::kFailed:
        report.Fail(walk.Path(), walk.Failure());
        break;
      case TreeWalk::Event::kLeave:
        break;
      case TreeWalk::Event::kEnd:
        return;
    }
    report.Progress("walking", ++streams, 0);
  }
}

}  // namespace

void List(const ListOptions& options, Report& report) {
  report.LeaveTerminalToResults();
  const StoragePtr storage = OpenForReading(options.store, report);
  if (!storage) return;
  if (IsRoot(options.path)) return ListRoot(options, *storage, report);
  Target target(*storage);
  if (Result result = Locate(options.path, aostorage::kReadFlags, target); !result.Ok()) {
    return report.Fail(options.path, result);
  }
  if (target.stream->IsFolder() == 1) return ListFolder(options, *target.stream, report);
  Listing(options).Print(LineOf(*target.stream));
}

void Tree(const CommonOptions& options, Report& report) {
  report.LeaveTerminalToResults();
  const StoragePtr storage = OpenForReading(options.store, report);
  if (!storage) return;
  Target target(*storage);
  if (!IsRoot(options.path)) {
    Result result = Locate(options.path, aostorage::kReadFlags, target);
    if (result.Ok() && target.stream->IsFolder() != 1) result = {kFailure, "is no folder"};
    if (!result.Ok()) return report.Fail(options.path, result);
  }
  TreeWalk walk({storage.get(), target.stream.get()});
  TreePrinter printer(options, target.stream ? PathOf(target) + "/" : "");
  PrintTree(walk, printer, report);
}

}  // namespace aotool
