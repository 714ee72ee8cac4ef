// hexdump

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <aostorage/error.h>

#include "hex_output.h"
#include "interrupt.h"
#include "json.h"
#include "named_tree.h"
#include "record_fields.h"
#include "text_verbs.h"

namespace aotool {
namespace {

using aostorage::InspectedStream;
using aostorage::kNoIndex;
using aostorage::Record;
using aostorage::RecordKind;
using aostorage::RecordState;

constexpr std::uint64_t kShownData = 256;  // of the data of one record, without --all
constexpr std::uint64_t kFolderCountSize = 4;

// Goes through the records and shows those that are asked for.
class HexDumper {
 public:
  HexDumper(const NamedTree& dumped, const HexdumpOptions& chosen, std::uint32_t onlyStream,
            HexSink& to)
      : tree(dumped), options(chosen), only(onlyStream), sink(to) {}

  Result Run() {
    aostorage::ClearLastError();
    const bool done = tree.Store().ForEachRecord([this](const Record& record) {
      if (record.kind == RecordKind::kDirectoryBlock) directory = record.offset;
      if (IsAskedFor(record)) Take(record);
      return failure.Ok() && !Interrupted();
    });
    EndSame();
    if (Interrupted()) return Interruption();
    if (!failure.Ok()) return failure;
    return done ? Result{} : FromLibrary();
  }

 private:
  bool IsAskedFor(const Record& record) const {
    const std::uint64_t end = std::uint64_t{options.offset} + options.length;
    if (record.offset >= end || record.offset + record.size <= options.offset) return false;
    if (only == kNoIndex) return true;
    const bool isHeader =
        record.kind == RecordKind::kSlot || record.kind == RecordKind::kChildRecord;
    if (isHeader && record.stream == only) return true;
    return record.block != kNoIndex && tree.Store().Blocks()[record.block].stream == only;
  }

  void Take(const Record& record) {
    HexPiece piece;
    piece.record = record;
    SetLayout(piece);
    std::uint64_t count = record.size;
    if (piece.layout == nullptr) {
      Clip(piece.record);
      count = options.all ? piece.record.size : std::min(piece.record.size, kShownData);
    }
    if (options.all && piece.layout == nullptr) return TakeInPieces(piece);
    if (!Read(piece, count) || FoldsIntoLast(piece)) return;
    EndSame();
    SetTitle(piece);
    sink.Put(piece);
    last = std::move(piece);
  }

  // Whatever a block's size, memory is bounded.
  void TakeInPieces(const HexPiece& whole) {
    constexpr std::uint64_t kPiece = 65536;
    EndSame();
    for (std::uint64_t done = 0; done < whole.record.size && !Interrupted(); done += kPiece) {
      HexPiece piece;
      piece.record = whole.record;
      piece.record.offset += done;
      piece.record.position += done;
      piece.record.size = std::min(kPiece, whole.record.size - done);
      if (!Read(piece, piece.record.size)) return;
      if (done == 0) SetTitle(piece);
      sink.Put(piece);
    }
    last.record.kind = RecordKind::kUnknown;
  }

  // Records are shown whole; of data only what was asked for.
  void Clip(Record& record) const {
    const std::uint64_t end = std::uint64_t{options.offset} + options.length;
    const std::uint64_t begin = std::max<std::uint64_t>(record.offset, options.offset);
    record.size = std::min(record.offset + record.size, end) - begin;
    record.position += begin - record.offset;
    record.offset = begin;
  }

  bool Read(HexPiece& piece, std::uint64_t count) {
    piece.bytes.resize(static_cast<std::size_t>(count));
    aostorage::ClearLastError();
    const std::size_t got =
        tree.Store().Read(piece.record.offset, piece.bytes.data(), piece.bytes.size());
    if (got == count && aostorage::LastError().code == aostorage::ErrorCode::kNone) return true;
    failure = FromShortRead();
    return false;
  }

  void SetLayout(HexPiece& piece) const {
    const Record& record = piece.record;
    switch (record.kind) {
      case RecordKind::kFileHeader:
        piece.layout = tree.Store().IsOlderForm() ? &kOlderFileHeaderLayout : &kFileHeaderLayout;
        break;
      case RecordKind::kDirectoryBlock:
        piece.layout = &kDirectoryHeadLayout;
        break;
      case RecordKind::kSlot:
        piece.layout = &kStreamHeaderLayout;
        break;
      case RecordKind::kBlockHeader:
        piece.layout = &kBlockHeaderLayout;
        break;
      case RecordKind::kFolderCount:
        piece.layout = &kFolderCountLayout;
        piece.skipped = record.position;
        break;
      case RecordKind::kChildRecord: {
        const bool headless = tree.At(tree.Store().Blocks()[record.block].stream).headless;
        piece.layout = &kStreamHeaderLayout;
        piece.skipped =
            (record.position - (headless ? 0 : kFolderCountSize)) % kStreamHeaderLayout.size;
        break;
      }
      default:
        break;
    }
  }

  void SetTitle(HexPiece& piece) const {
    const Record& record = piece.record;
    const std::string size = std::to_string(record.size) + " bytes";
    const std::string path = record.stream == kNoIndex
                                 ? ""
                                 : " \"" + Shown(ShortPathOf(tree.Store(), record.stream)) + "\"";
    const std::string state =
        record.state == RecordState::kLive ? "" : std::string(", ") + StateWord(record.state);
    switch (record.kind) {
      case RecordKind::kFileHeader:
        piece.title = "file header" + std::string(tree.Store().IsOlderForm() ? ", older form" : "");
        break;
      case RecordKind::kDirectoryBlock:
        piece.title = "directory block" + state;
        break;
      case RecordKind::kSlot:
        piece.title = SlotTitle(record) + path + state;
        break;
      case RecordKind::kBlockHeader:
        piece.title = "block of" + path + state;
        break;
      case RecordKind::kChildRecord:
        piece.title = "slot " + std::to_string(tree.At(record.stream).slotIndex) +
                      " of its folder:" + path + state;
        if (record.size != kStreamHeaderLayout.size) piece.title += ", a part";
        break;
      case RecordKind::kBehindLength:
        piece.title = size + " behind the length";
        break;
      case RecordKind::kReserve:
        piece.title = size + " of reserve";
        break;
      case RecordKind::kUnknown:
        piece.title = size + " that belong to nobody";
        break;
      case RecordKind::kFolderCount:
      case RecordKind::kData:
        break;
    }
  }

  std::string SlotTitle(const Record& record) const {
    if (record.stream != kNoIndex && !InDirectory(record)) return "a stream header on its own:";
    const std::uint64_t index =
        (record.offset - directory - kDirectoryHeadLayout.size) / kStreamHeaderLayout.size;
    return "slot " + std::to_string(index) + (record.stream == kNoIndex ? "" : ":");
  }

  bool InDirectory(const Record& record) const {
    constexpr std::uint64_t kSlots = 64;
    const std::uint64_t first = directory + kDirectoryHeadLayout.size;
    return directory != 0 && record.offset < first + kSlots * kStreamHeaderLayout.size;
  }

  bool FoldsIntoLast(const HexPiece& piece) {
    const auto isUnused = [](const HexPiece& one) {
      return one.record.kind == RecordKind::kSlot && one.record.state == RecordState::kUnused;
    };
    if (!isUnused(piece) || !isUnused(last) || piece.bytes != last.bytes ||
        last.record.offset + (same + 1) * piece.record.size != piece.record.offset) {
      return false;
    }
    ++same;
    return true;
  }

  void EndSame() {
    if (same != 0) sink.PutSame(same, last.record.offset + same * last.record.size);
    same = 0;
  }

  const NamedTree& tree;
  const HexdumpOptions& options;
  const std::uint32_t only;
  HexSink& sink;
  std::uint64_t directory = 0;  // the last directory block that was met
  HexPiece last;
  std::uint64_t same = 0;  // slots like `last` that are not shown
  Result failure;
};

}  // namespace

void Hexdump(const HexdumpOptions& options, Report& report) {
  InspectionPtr inspection;
  Result result = Inspect(options.store, inspection);
  if (!result.Ok()) return report.Fail("", result);
  const NamedTree tree(*inspection);
  std::uint32_t stream = kNoIndex;
  if (!options.path.empty()) result = tree.Find(options.path, stream);
  if (!result.Ok()) return report.Fail(options.path, result);
  std::unique_ptr<HexSink> sink;
  if (options.json) {
    Json head = JsonHead("hexdump", options.store);
    head.SetName("path", options.path);
    sink = MakeJsonHex(std::move(head));
  } else {
    sink = MakeTextHex(options.color);
  }
  result = HexDumper(tree, options, stream, *sink).Run();
  if (!result.Ok()) report.Fail(options.path, result);
}

}  // namespace aotool
