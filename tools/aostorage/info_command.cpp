// info

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include <aostorage/types.h>

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

void PrintRow(const char* label, const std::string& value) {
  char column[32];
  std::snprintf(column, sizeof column, "%-16s", label);
  Print(column + value + "\n");
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
  Totals totals = Count(*storage, report);
  totals.rootStreams = RootNames(*storage).size();
  const auto fileSize = static_cast<std::uint64_t>(state.st_size);

  report.EndProgress();
  PrintRow("path", Shown(storage->GetPath()));
  PrintRow("file size", std::to_string(fileSize) + " bytes");
  PrintRow("header form", header->older ? "older" : "current");
  PrintRow("root streams", std::to_string(totals.rootStreams));
  PrintRow("reserved slots", std::to_string(ReservedInUse(*storage, *header)) + " of " +
                                 std::to_string(header->reservedSlots) + " in use");
  PrintRow("folders",
           std::to_string(totals.folders) + ", " + std::to_string(totals.depth) + " deep");
  PrintRow("plain streams", std::to_string(totals.plainStreams));
  PrintRow("stream bytes", std::to_string(totals.bytes));
}

}  // namespace aotool
