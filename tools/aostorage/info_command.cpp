// info

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include <aostorage/types.h>

#include "interrupt.h"
#include "json.h"
#include "paths.h"
#include "store.h"
#include "verbs.h"
#include "walk.h"

namespace aotool {
namespace {

struct Totals {
  std::uint64_t rootStreams = 0;
  std::uint64_t folders = 0;
  std::uint64_t plainStreams = 0;
  std::uint64_t bytes = 0;
  std::size_t depth = 0;
};

// Reserved slots are the first ones of the directory, so their streams have the lowest headers.
unsigned ReservedInUse(aostorage::aoStorage& storage, const FileHeader& header) {
  std::vector<std::pair<std::uint32_t, std::string>> streams;
  aostorage::CIterateSortedStreams scan;
  while (storage.IterateSortedStreamsNoOPENS(&scan) == 1) {
    streams.emplace_back(scan.streamOffset.headerOffset, scan.streamName);
  }
  std::sort(streams.begin(), streams.end());
  unsigned inUse = 0;
  while (inUse < header.reservedSlots && inUse < streams.size()) {
    const std::string& name = streams[inUse].second;
    if (!StreamPtr(storage.OpenStreamFast(name.c_str(), aostorage::kReadFlags))) break;
    ++inUse;
  }
  return inUse;
}

Totals Count(aostorage::aoStorage& storage, Report& report) {
  Totals totals;
  TreeWalk walk({&storage, nullptr});
  for (;;) {
    switch (walk.Next()) {
      case TreeWalk::Event::kStream:
        ++totals.plainStreams;
        totals.bytes += walk.Stream().GetLength();
        break;
      case TreeWalk::Event::kFolder:
        ++totals.folders;
        totals.depth = std::max(totals.depth, walk.Depth() + 1);
        break;
      case TreeWalk::Event::kFailed:
        report.Fail(walk.Path(), walk.Failure());
        break;
      case TreeWalk::Event::kLeave:
        break;
      case TreeWalk::Event::kEnd:
        return totals;
    }
    report.Progress("counting", totals.plainStreams + totals.folders, totals.bytes);
  }
}

struct Overview {
  std::string path;
  std::uint64_t fileSize = 0;
  FileHeader header;
  unsigned reservedInUse = 0;
  Totals totals;
};

void PrintRow(const char* label, const std::string& value) {
  char column[32];
  std::snprintf(column, sizeof column, "%-16s", label);
  Print(column + value + "\n");
}

void PrintRows(const Overview& store) {
  PrintRow("path", Shown(store.path));
  PrintRow("file size", std::to_string(store.fileSize) + " bytes");
  PrintRow("header form", store.header.older ? "older" : "current");
  PrintRow("root streams", std::to_string(store.totals.rootStreams));
  PrintRow("reserved slots", std::to_string(store.reservedInUse) + " of " +
                                 std::to_string(store.header.reservedSlots) + " in use");
  PrintRow("folders", std::to_string(store.totals.folders) + ", " +
                          std::to_string(store.totals.depth) + " deep");
  PrintRow("plain streams", std::to_string(store.totals.plainStreams));
  PrintRow("stream bytes", std::to_string(store.totals.bytes));
}

void PrintDocument(const CommonOptions& options, const Overview& store) {
  Json document = JsonHead("info", options.store);
  document.SetName("path", store.path)
      .Set("fileSize", store.fileSize)
      .Set("headerForm", store.header.older ? "older" : "current")
      .Set("rootStreams", store.totals.rootStreams)
      .Set("reservedSlots", store.header.reservedSlots)
      .Set("reservedSlotsInUse", store.reservedInUse)
      .Set("folders", store.totals.folders)
      .Set("depth", store.totals.depth)
      .Set("plainStreams", store.totals.plainStreams)
      .Set("streamBytes", store.totals.bytes);
  PrintJson(document);
}

}  // namespace

void Info(const CommonOptions& options, Report& report) {
  const StoragePtr storage = OpenForReading(options.store, report);
  if (!storage) return;
  const std::optional<FileHeader> header = ReadHeader(options.store);
  struct stat state {};
  if (!header || ::stat(options.store.c_str(), &state) != 0) {
    return report.Fail("", {kInputOutput, "cannot read the file header"});
  }
  Overview store;
  store.path = storage->GetPath();
  store.fileSize = static_cast<std::uint64_t>(state.st_size);
  store.header = *header;
  store.totals = Count(*storage, report);
  if (Interrupted()) return;  // it is reported
  store.totals.rootStreams = RootNames(*storage).size();
  store.reservedInUse = ReservedInUse(*storage, *header);

  report.EndProgress();
  if (options.json) return PrintDocument(options, store);
  PrintRows(store);
}

}  // namespace aotool
