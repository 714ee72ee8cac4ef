#include "terminal_map.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "byte_kinds.h"
#include "inspected.h"
#include "interrupt.h"
#include "report.h"

namespace aotool {
namespace {

constexpr std::uint64_t kColumns = 64;
constexpr std::uint64_t kMostRows = 30;

// 1, 2 or 5 with zeros behind it, so that the offsets at the left are round.
std::uint64_t BytesPerCell(std::uint64_t fileSize) {
  const std::uint64_t least =
      std::max<std::uint64_t>(1, (fileSize + kColumns * kMostRows - 1) / (kColumns * kMostRows));
  for (std::uint64_t power = 1;; power *= 10) {
    for (const std::uint64_t digit : {1U, 2U, 5U}) {
      if (digit * power >= least) return digit * power;
    }
  }
}

// For each cell the kind that most of its bytes are of; of several the first.
class Cells {
 public:
  Cells(std::uint64_t fileSize, std::uint64_t size)
      : bytesPerCell(size), kinds((fileSize + size - 1) / size) {}

  void Add(std::uint64_t offset, std::uint64_t size, ByteKind kind) {
    for (const std::uint64_t end = offset + size; offset < end;) {
      const std::uint64_t cellEnd = (cell + 1) * bytesPerCell;
      const std::uint64_t piece = std::min(end, cellEnd) - offset;
      sums[static_cast<std::size_t>(kind)] += piece;
      offset += piece;
      if (offset == cellEnd) Close();
    }
  }
  const std::vector<ByteKind>& Finish() {
    if (cell < kinds.size()) Close();
    return kinds;
  }

 private:
  void Close() {
    const auto most = std::max_element(sums.begin(), sums.end()) - sums.begin();
    kinds[cell++] = static_cast<ByteKind>(most);
    sums.fill(0);
  }

  std::uint64_t bytesPerCell;
  std::vector<ByteKind> kinds;
  std::uint64_t cell = 0;
  KindSums sums{};
};

void PrintRow(const std::vector<ByteKind>& kinds, std::size_t first, const Style& style) {
  const std::size_t end = std::min<std::size_t>(first + kColumns, kinds.size());
  std::string row;
  for (std::size_t at = first; at < end;) {
    std::size_t next = at;
    while (next < end && kinds[next] == kinds[at]) ++next;
    const ByteKindWords& words = WordsOf(kinds[at]);
    row += style.Paint(words.tint, std::string(next - at, words.letter));
    at = next;
  }
  Print(row + "\n");
}

void PrintLegend(const KindSums& sums, const Style& style) {
  constexpr int kTitleWidth = 20;
  constexpr int kInRow = 2;
  int column = 0;
  for (std::size_t i = 0; i < kByteKinds; ++i) {
    if (sums[i] == 0) continue;
    const ByteKindWords& words = WordsOf(static_cast<ByteKind>(i));
    char text[64];
    std::snprintf(text, sizeof text, "%-*s%13s", kTitleWidth, words.title,
                  Grouped(sums[i]).c_str());
    Print((column == 0 ? "  " : "    ") + style.Paint(words.tint, std::string(1, words.letter)) +
          "  " + text);
    if (++column == kInRow) Print("\n"), column = 0;
  }
  if (column != 0) Print("\n");
}

}  // namespace

bool PrintTerminalMap(const aostorage::Inspection& found, const Style& style) {
  const std::uint64_t bytesPerCell = BytesPerCell(found.FileSize());
  Cells cells(found.FileSize(), bytesPerCell);
  KindSums sums{};
  ByteSorter sorter(found);
  const bool whole = found.ForEachRecord([&](const aostorage::Record& record) {
    if (const auto kind = sorter.KindOf(record)) {
      cells.Add(record.offset, record.size, *kind);
      sums[static_cast<std::size_t>(*kind)] += record.size;
    }
    return !Interrupted();
  });
  if (!whole) return false;
  const std::vector<ByteKind>& kinds = cells.Finish();
  const auto width = static_cast<int>(Grouped(found.FileSize()).size());
  for (std::size_t first = 0; first < kinds.size(); first += kColumns) {
    char offset[32];
    std::snprintf(offset, sizeof offset, "%*s  ", width, Grouped(first * bytesPerCell).c_str());
    Print(style.Paint(Tint::kDim, offset));
    PrintRow(kinds, first, style);
  }
  Print("\n" + Grouped(found.FileSize()) + " bytes, " + Grouped(bytesPerCell * kColumns) +
        " in a row. A letter stands for " +
        (bytesPerCell == 1 ? std::string("one of them.\n\n")
                           : Grouped(bytesPerCell) + ",\nby what most of them are.\n\n"));
  PrintLegend(sums, style);
  return true;
}

}  // namespace aotool
