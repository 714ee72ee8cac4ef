// diff

#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <aostorage/error.h>

#include "interrupt.h"
#include "json.h"
#include "named_tree.h"
#include "style.h"
#include "text_verbs.h"

namespace aotool {
namespace {

using aostorage::InspectedStream;
using aostorage::kNoIndex;

// One of the two stores.
class Side {
 public:
  Result Open(const std::string& storePath) {
    path = storePath;
    if (Result result = Inspect(path, inspection); !result.Ok()) return result;
    tree = std::make_unique<NamedTree>(*inspection);
    return FirstDamage(*inspection);
  }

  bool IsOpen() const { return tree != nullptr; }
  const NamedTree& Tree() const { return *tree; }
  const std::string& Path() const { return path; }

  // The bytes from a position on, up to 64 KiB; none at the end.
  Result ReadPiece(std::uint32_t stream, std::uint64_t position) {
    piece.clear();
    aostorage::ClearLastError();
    inspection->ReadStream(
        stream,
        [this](const void* bytes, std::size_t count) {
          piece.assign(static_cast<const char*>(bytes), count);
          return false;
        },
        position);
    const bool failed = aostorage::LastError().code != aostorage::ErrorCode::kNone;
    return failed ? FromLibrary() : Result{};
  }
  std::string_view Piece() const { return piece; }

 private:
  std::string path;
  InspectionPtr inspection;
  std::unique_ptr<NamedTree> tree;
  std::string piece;
};

// Prints what differs.
class Differences {
 public:
  Differences(const DiffOptions& chosen, Report& toReport)
      : options(chosen), report(toReport), style(options.color) {
    if (options.quiet || !options.json) return;
    Json head = JsonHead("diff", options.store);
    head.SetName("other", options.other);
    listing = std::make_unique<JsonListing>(std::move(head), "differences");
  }

  bool Any() const { return any; }

  void OnlyIn(const std::string& path, const Side& side, bool first, bool folder) {
    if (!Note()) return;
    if (listing) {
      listing->Add(Form(path, "only")
                       .Set("in", first ? "store" : "other")
                       .Set("stream", folder ? "folder" : "plain"));
      return;
    }
    Print(style.Paint(first ? Tint::kRed : Tint::kGreen, "only in " + Shown(side.Path())) + ": " +
          Shown(path) + (folder ? "/" : "") + "\n");
  }

  // Of a pair: what of it differs, and how it is on both sides.
  void Pair(const std::string& path, const char* what, const std::string& left,
            const std::string& right, const char* unit) {
    if (!Note()) return;
    if (listing) {
      listing->Add(Form(path, what).Set("inStore", left).Set("inOther", right));
      return;
    }
    Print(Shown(path) + ": " + style.Paint(Tint::kYellow, what) + " " + left + " and " + right +
          unit + "\n");
  }

  void Bytes(const std::string& path, std::uint64_t position) {
    if (!Note()) return;
    if (listing) {
      listing->Add(Form(path, "bytes").Set("position", position));
      return;
    }
    Print(Shown(path) + ": " + style.Paint(Tint::kYellow, "differs") + " at byte " +
          std::to_string(position) + "\n");
  }

 private:
  bool Note() {
    any = true;
    report.AnswerNo();
    if (!options.quiet) report.EndProgress();
    return !options.quiet;
  }

  static Json Form(const std::string& path, const char* kind) {
    Json form = Json::Object();
    form.SetName("path", path).Set("kind", kind);
    return form;
  }

  const DiffOptions& options;
  Report& report;
  const Style style;
  std::unique_ptr<JsonListing> listing;
  bool any = false;
};

// Both trees at once, depth first, in the order of the names, without recursion.
class Comparison {
 public:
  Comparison(Side& leftSide, Side& rightSide, const DiffOptions& chosen, Report& toReport)
      : left(leftSide),
        right(rightSide),
        options(chosen),
        report(toReport),
        found(chosen, toReport) {}

  Result Run() {
    Enter(kNoIndex, kNoIndex);
    while (!levels.empty() && !(options.quiet && found.Any())) {
      if (Interrupted()) return Interruption();
      Level& level = levels.back();
      const bool leftIsLeft = level.nextLeft < level.left.size();
      const bool rightIsLeft = level.nextRight < level.right.size();
      if (!leftIsLeft && !rightIsLeft) {
        levels.pop_back();
        continue;
      }
      int order = leftIsLeft ? -1 : 1;
      if (leftIsLeft && rightIsLeft) {
        order = NameIn(left.Tree().At(level.left[level.nextLeft]))
                    .compare(NameIn(right.Tree().At(level.right[level.nextRight])));
      }
      const std::uint32_t inLeft = order <= 0 ? level.left[level.nextLeft++] : kNoIndex;
      const std::uint32_t inRight = order >= 0 ? level.right[level.nextRight++] : kNoIndex;
      if (Result result = Take(inLeft, inRight); !result.Ok()) return result;
    }
    return {};
  }

 private:
  struct Level {
    std::vector<std::uint32_t> left, right;
    std::size_t nextLeft = 0, nextRight = 0;
  };

  void Enter(std::uint32_t inLeft, std::uint32_t inRight) {
    Level level;
    level.left = left.Tree().Children(inLeft);
    level.right = right.Tree().Children(inRight);
    levels.push_back(std::move(level));
  }

  Result Take(std::uint32_t inLeft, std::uint32_t inRight) {
    report.Progress("comparing", ++items, bytes);
    const bool onlyLeft = inRight == kNoIndex;
    if (onlyLeft || inLeft == kNoIndex) {
      const Side& side = onlyLeft ? left : right;
      const std::uint32_t stream = onlyLeft ? inLeft : inRight;
      found.OnlyIn(ShortPathOf(side.Tree().Store(), stream), side, onlyLeft,
                   side.Tree().At(stream).isFolder);
      return {};
    }
    const InspectedStream& one = left.Tree().At(inLeft);
    const InspectedStream& other = right.Tree().At(inRight);
    if (one.isFolder != other.isFolder) {
      found.Pair(PathOf(inLeft), "kind", KindOf(one), KindOf(other), "");
      return {};
    }
    if (one.header.duration != other.header.duration && !options.ignoreDurations) {
      found.Pair(PathOf(inLeft), "duration", std::to_string(one.header.duration),
                 std::to_string(other.header.duration), " minutes");
    }
    if (one.isFolder) {
      Enter(inLeft, inRight);
      return {};
    }
    return TakePlain(inLeft, inRight);
  }

  Result TakePlain(std::uint32_t inLeft, std::uint32_t inRight) {
    const bool leftWhole = IsWhole(left, inLeft);  // both are to be told
    const bool whole = IsWhole(right, inRight) && leftWhole;
    if (!whole) return {};
    const std::uint32_t oneLength = left.Tree().At(inLeft).header.length;
    const std::uint32_t otherLength = right.Tree().At(inRight).header.length;
    if (oneLength != otherLength) {
      found.Pair(PathOf(inLeft), "length", std::to_string(oneLength), std::to_string(otherLength),
                 " bytes");
    }
    const std::uint64_t common = std::min(oneLength, otherLength);
    for (std::uint64_t position = 0; position < common;) {
      if (Interrupted()) return Interruption();
      Result result = left.ReadPiece(inLeft, position);
      if (result.Ok()) result = right.ReadPiece(inRight, position);
      const std::size_t count = std::min(left.Piece().size(), right.Piece().size());
      if (result.Ok() && count == 0) result = FromShortRead();
      if (!result.Ok()) {
        report.Fail(PathOf(inLeft), {kFailure, result.reason});
        return {};
      }
      if (const auto at = FirstDifference(count)) {
        if (position + *at < common) found.Bytes(PathOf(inLeft), position + *at);
        return {};
      }
      position += count;
      bytes += count;
      report.Progress("comparing", items, bytes);
    }
    return {};
  }

  std::optional<std::size_t> FirstDifference(std::size_t count) const {
    const char* const one = left.Piece().data();
    const auto at = std::mismatch(one, one + count, right.Piece().data());
    if (at.first == one + count) return std::nullopt;
    return static_cast<std::size_t>(at.first - one);
  }

  bool IsWhole(const Side& side, std::uint32_t stream) {
    const Result result = CheckWhole(side.Tree().At(stream));
    if (result.Ok()) return true;
    constexpr std::uint64_t kMostTold = 1000;  // of a store that is damaged all over
    if (told++ >= kMostTold) return false;
    report.SpeakOf(side.Path());
    report.Fail(ShortPathOf(side.Tree().Store(), stream), {kFailure, result.reason});
    report.SpeakOf("");
    return false;
  }

  static const char* KindOf(const InspectedStream& stream) {
    return stream.isFolder ? "folder" : "plain";
  }
  std::string PathOf(std::uint32_t inLeft) const {
    return ShortPathOf(left.Tree().Store(), inLeft);
  }

  Side &left, &right;
  const DiffOptions& options;
  Report& report;
  Differences found;
  std::vector<Level> levels;
  std::uint64_t items = 0, bytes = 0, told = 0;
};

void OpenSide(Side& side, const std::string& path, Report& report) {
  const Result result = side.Open(path);
  if (result.Ok()) return;
  report.SpeakOf(path);
  report.Fail("", {kFailure, result.reason});
}

}  // namespace

void Diff(const DiffOptions& options, Report& report) {
  report.LeaveTerminalToResults();
  Side left, right;
  OpenSide(left, options.store, report);
  OpenSide(right, options.other, report);
  report.SpeakOf("");
  if (!left.IsOpen() || !right.IsOpen()) return;
  {
    Comparison comparison(left, right, options, report);
    if (Result result = comparison.Run(); !result.Ok()) report.Fail("", result);
  }
  if (Result result = FlushPrinted(); !result.Ok()) {
    report.Fail("", {kFailure, result.reason});
    std::clearerr(stdout);  // told, and with the code that this verb has for it
  }
}

}  // namespace aotool
