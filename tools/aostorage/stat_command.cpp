// stat

#include <algorithm>
#include <cstdio>
#include <string>

#include "byte_kinds.h"
#include "inspected.h"
#include "json.h"
#include "picture_commands.h"
#include "shown.h"
#include "statistics.h"
#include "style.h"

namespace aotool {
namespace {

using aostorage::Inspection;

struct Answer {
  const Inspection& found;
  KindSums sums;
  StreamFigures streams;
  std::uint64_t compacted;

  // Negative where compaction would only add block headers.
  std::int64_t GivenBack() const {
    return static_cast<std::int64_t>(found.FileSize()) - static_cast<std::int64_t>(compacted);
  }
  double MeanFragments() const {
    const auto streamsWithBlocks = static_cast<double>(streams.WithBlocks());
    return streams.WithBlocks() == 0 ? 0
                                     : static_cast<double>(streams.fragments) / streamsWithBlocks;
  }
};

constexpr int kLabelWidth = 24;
constexpr int kNumberWidth = 14;

std::string Row(const std::string& label, const std::string& number) {
  char text[96];
  std::snprintf(text, sizeof text, "  %-*s%*s", kLabelWidth, label.c_str(), kNumberWidth,
                number.c_str());
  return text;
}

std::string Percent(std::uint64_t part, std::uint64_t whole) {
  char text[32];
  std::snprintf(text, sizeof text, "%7.1f %%",
                whole == 0 ? 0.0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole));
  return text;
}

void PrintTitle(const Style& style, const std::string& text) {
  Print(style.Paint(Tint::kBold, text) + "\n");
}

void PrintKinds(const Answer& answer, const Style& style) {
  PrintTitle(style, "Bytes by kind");
  std::uint64_t all = 0;
  for (std::size_t i = 0; i < kByteKinds; ++i) {
    const ByteKindWords& words = WordsOf(static_cast<ByteKind>(i));
    const std::string row = Row(words.title, Grouped(answer.sums[i]));
    Print((answer.sums[i] == 0 ? row : style.Paint(words.tint, row)) +
          Percent(answer.sums[i], answer.found.FileSize()) + "\n");
    all += answer.sums[i];
  }
  Print(Row("the file", Grouped(all)) + Percent(all, answer.found.FileSize()) + "\n");
}

// "3-4"
std::string StepName(std::size_t step) {
  const std::uint64_t first = std::uint64_t{1} << step;
  return step == 0 ? "1" : std::to_string(first) + "-" + std::to_string(2 * first - 1);
}

void PrintStreams(const Answer& answer, const Style& style) {
  const StreamFigures& streams = answer.streams;
  PrintTitle(style, "\nStreams");
  Print(Row("plain streams", Grouped(streams.plainStreams)) + "\n");
  Print(Row("folders", Grouped(streams.folders)) + "\n");
  Print(Row("without a block", Grouped(streams.withoutBlocks)) + "\n");
  Print(Row("blocks", Grouped(streams.blocks)) + "\n");
  PrintTitle(style, "\nFragments of a stream");
  for (std::size_t step = 0; step < streams.byFragments.size(); ++step) {
    const std::uint64_t count = streams.byFragments[step];
    Print(Row(StepName(step), Grouped(count) + (count == 1 ? " stream " : " streams")) +
          Percent(count, streams.WithBlocks()) + "\n");
  }
  char mean[32];
  std::snprintf(mean, sizeof mean, "%.2f", answer.MeanFragments());
  Print(Row("on average", mean) + "\n");
}

void PrintList(const Answer& answer, const Style& style, const char* title,
               const std::vector<Ranked>& list) {
  if (list.empty()) return;
  PrintTitle(style, title);
  for (const Ranked& entry : list) {
    char number[32];
    std::snprintf(number, sizeof number, "%*s  ", kNumberWidth, Grouped(entry.value).c_str());
    const std::string path = Shown(ShortPathOf(answer.found, entry.stream));
    const bool isFolder = answer.found.Streams()[entry.stream].isFolder;
    Print(number + (isFolder ? style.Paint(Tint::kFolder, path + "/") : path) + "\n");
  }
}

void PrintTable(const Answer& answer, const Style& style) {
  PrintKinds(answer, style);
  PrintStreams(answer, style);
  PrintList(answer, style, "\nMost fragments", answer.streams.mostFragmented);
  PrintList(answer, style, "\nLongest chains, in blocks", answer.streams.longestChains);
  PrintList(answer, style, "\nLargest, in bytes", answer.streams.largest);
  PrintTitle(style, "\nCompaction");
  Print(Row("the file would have", Grouped(answer.compacted)) + "\n");
  const std::int64_t back = answer.GivenBack();
  const auto difference = static_cast<std::uint64_t>(back < 0 ? -back : back);
  Print(Row(back < 0 ? "that is more, by" : "given back", Grouped(difference)) +
        Percent(difference, answer.found.FileSize()) + "\n");
}

Json ListOf(const Inspection& found, const char* key, const std::vector<Ranked>& list) {
  Json array = Json::Array();
  for (const Ranked& entry : list) {
    Json element = Json::Object();
    element.SetName("path", ShortPathOf(found, entry.stream))
        .Set("kind", found.Streams()[entry.stream].isFolder ? "folder" : "plain")
        .Set(key, entry.value);
    array.Add(std::move(element));
  }
  return array;
}

void PrintDocument(const StatOptions& options, const Answer& answer) {
  Json kinds = Json::Object();
  for (std::size_t i = 0; i < kByteKinds; ++i)
    kinds.Set(WordsOf(static_cast<ByteKind>(i)).key, answer.sums[i]);
  const StreamFigures& figures = answer.streams;
  Json distribution = Json::Array();
  for (std::size_t step = 0; step < figures.byFragments.size(); ++step) {
    Json element = Json::Object();
    const std::uint64_t first = std::uint64_t{1} << step;
    element.Set("from", first).Set("to", 2 * first - 1).Set("streams", figures.byFragments[step]);
    distribution.Add(std::move(element));
  }
  Json streams = Json::Object();
  streams.Set("plain", figures.plainStreams)
      .Set("folders", figures.folders)
      .Set("withoutBlocks", figures.withoutBlocks)
      .Set("blocks", figures.blocks);
  Json fragments = Json::Object();
  fragments.Set("total", figures.fragments)
      .Set("most", figures.mostFragments)
      .Set("mean", answer.MeanFragments())
      .Set("distribution", std::move(distribution));
  Json compact = Json::Object();
  compact.Set("fileSize", answer.compacted).Set("givenBack", answer.GivenBack());
  const Inspection& found = answer.found;
  Json document = JsonHead("stat", options.store);
  document.Set("fileSize", found.FileSize())
      .Set("bytes", std::move(kinds))
      .Set("streams", std::move(streams))
      .Set("fragments", std::move(fragments))
      .Set("mostFragmented", ListOf(found, "fragments", figures.mostFragmented))
      .Set("longestChains", ListOf(found, "blocks", figures.longestChains))
      .Set("largest", ListOf(found, "length", figures.largest))
      .Set("compact", std::move(compact));
  PrintJson(document);
}

}  // namespace

void Stat(const StatOptions& options, Report& report) {
  const auto found = Inspect(options.store, report);
  if (found == nullptr) return;
  Answer answer{*found, {}, {}, 0};
  if (!SumByKind(*found, answer.sums)) return ReportStop(report);
  answer.streams = CountStreams(*found, options.top);
  answer.compacted = CompactedSize(*found);
  if (options.json) {
    PrintDocument(options, answer);
  } else {
    PrintTable(answer, Style(options.color));
  }
  ReportDamage(*found, report);
}

}  // namespace aotool
