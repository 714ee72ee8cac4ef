#include "hex_output.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <optional>
#include <utility>

#include "report.h"

namespace aotool {
namespace {

using aostorage::RecordKind;
using aostorage::RecordState;

constexpr std::size_t kRow = 16;

const char* KindWord(RecordKind kind) {
  static constexpr const char* kWords[] = {"fileHeader",  "directoryBlock", "slot", "blockHeader",
                                           "folderCount", "childRecord",    "data", "behindLength",
                                           "reserve",     "unknown"};
  return kWords[static_cast<std::size_t>(kind)];
}

// Which part of a field lies in a piece.
struct FieldPart {
  std::size_t at, size;  // in the piece
  bool whole;
};

std::optional<FieldPart> PartOf(const Field& field, const HexPiece& piece) {
  const std::uint64_t end = piece.skipped + piece.bytes.size();
  const std::uint64_t first = std::max<std::uint64_t>(field.offset, piece.skipped);
  const std::uint64_t last = std::min<std::uint64_t>(field.offset + field.size, end);
  if (first >= last) return std::nullopt;
  const std::uint64_t size = last - first;
  return FieldPart{static_cast<std::size_t>(first - piece.skipped), static_cast<std::size_t>(size),
                   size == field.size};
}

class TextHex : public HexSink {
 public:
  explicit TextHex(ColorRule color) : style(color) {}

  void Put(const HexPiece& piece) override {
    if (!piece.title.empty()) Print("\n" + style.Paint(Tint::kBold, "# " + piece.title) + "\n");
    if (piece.layout == nullptr) return PutData(piece);
    if (IsBlank(piece))
      return PutField(piece.record.offset, piece.bytes.data(), piece.bytes.size(),
                      "no stream, no chain");
    for (const Field& field : piece.layout->fields) {
      const auto part = PartOf(field, piece);
      if (!part) continue;
      const std::uint8_t* const bytes = piece.bytes.data() + part->at;
      const std::string meaning =
          part->whole ? Meaning(*piece.layout, field, bytes) : std::string("part of ") + field.name;
      PutField(piece.record.offset + part->at, bytes, part->size, meaning);
    }
  }

  void PutSame(std::uint64_t count, std::uint64_t lastOffset) override {
    char last[32];
    std::snprintf(last, sizeof last, "%08" PRIx64, lastOffset);
    Print("          ... " + std::to_string(count) +
          (count == 1 ? " slot more is" : " slots more are") + " the same, the last at " + last +
          "\n");
  }

 private:
  // A slot that holds zeros, and perhaps a magic word, has no fields to speak of.
  static bool IsBlank(const HexPiece& piece) {
    constexpr std::ptrdiff_t kMagicSize = 4;
    return piece.record.kind == RecordKind::kSlot && piece.record.state == RecordState::kUnused &&
           std::all_of(piece.bytes.begin() + kMagicSize, piece.bytes.end(),
                       [](std::uint8_t byte) { return byte == 0; });
  }

  void PutField(std::uint64_t offset, const std::uint8_t* bytes, std::size_t size,
                std::string meaning) {
    for (std::size_t at = 0; at < size; at += kRow) {
      const auto isZero = [](std::uint8_t byte) { return byte == 0; };
      if (at != 0 && std::all_of(bytes + at, bytes + size, isZero))
        return Print("          ... " + std::to_string(size - at) + " zeros\n");
      PutRow(offset + at, bytes + at, std::min(kRow, size - at), meaning);
      meaning.clear();
    }
  }

  void PutData(const HexPiece& piece) {
    std::uint64_t same = 0;
    for (std::size_t at = 0; at < piece.bytes.size(); at += kRow) {
      const std::uint8_t* const row = piece.bytes.data() + at;
      const std::size_t size = std::min(kRow, piece.bytes.size() - at);
      if (at != 0 && size == kRow && std::equal(row, row + kRow, row - kRow)) {
        ++same;
        continue;
      }
      PutSameRows(same);
      PutRow(piece.record.offset + at, row, size, Printable(row, size));
    }
    PutSameRows(same);
    if (piece.bytes.size() < piece.record.size) {
      Print("          ... " + std::to_string(piece.record.size - piece.bytes.size()) +
            " bytes more\n");
    }
  }

  static void PutSameRows(std::uint64_t& count) {
    if (count != 0)
      Print("          ... " + std::to_string(count * kRow) + " bytes more of the same\n");
    count = 0;
  }

  static std::string Printable(const std::uint8_t* bytes, std::size_t size) {
    std::string text = "|";
    for (std::size_t i = 0; i < size; ++i)
      text += bytes[i] >= 0x20 && bytes[i] < 0x7F ? static_cast<char>(bytes[i]) : '.';
    return text + "|";
  }

  void PutRow(std::uint64_t offset, const std::uint8_t* bytes, std::size_t size,
              const std::string& meaning) const {
    char word[32];
    std::snprintf(word, sizeof word, "%08" PRIx64, offset);
    std::string line = style.Paint(Tint::kDim, word) + " ";
    for (std::size_t i = 0; i < size; ++i) {
      std::snprintf(word, sizeof word, " %02x", bytes[i]);
      line += word;
    }
    if (!meaning.empty()) line += std::string(3 * (kRow - size) + 2, ' ') + meaning;
    Print(line + "\n");
  }

  const Style style;
};

class JsonHex : public HexSink {
 public:
  explicit JsonHex(Json head) : listing(std::move(head), "records") {}

  void Put(const HexPiece& piece) override {
    Json element = Json::Object();
    element.Set("offset", piece.record.offset)
        .Set("size", piece.record.size)
        .Set("kind", KindWord(piece.record.kind))
        .Set("state", StateWord(piece.record.state));
    if (!piece.title.empty()) element.SetName("title", piece.title);
    element.SetHex("hex", std::string_view(reinterpret_cast<const char*>(piece.bytes.data()),
                                           piece.bytes.size()));
    if (piece.layout != nullptr) element.Set("fields", Fields(piece));
    listing.Add(element);
  }

  void PutSame(std::uint64_t count, std::uint64_t lastOffset) override {
    listing.Add(
        Json::Object().Set("kind", "same").Set("count", count).Set("lastOffset", lastOffset));
  }

 private:
  static Json Fields(const HexPiece& piece) {
    Json fields = Json::Array();
    for (const Field& field : piece.layout->fields) {
      const auto part = PartOf(field, piece);
      if (!part) continue;
      const std::uint8_t* const bytes = piece.bytes.data() + part->at;
      Json form = Json::Object();
      form.Set("name", field.name)
          .Set("offset", piece.record.offset + part->at)
          .Set("size", part->size);
      if (part->whole) form.Set("meaning", Meaning(*piece.layout, field, bytes));
      fields.Add(std::move(form));
    }
    return fields;
  }

  JsonListing listing;
};

}  // namespace

const char* StateWord(RecordState state) {
  static constexpr const char* kWords[] = {"live",        "unused", "vacated",
                                           "unreachable", "orphan", "overlapping"};
  return kWords[static_cast<std::size_t>(state)];
}

std::unique_ptr<HexSink> MakeTextHex(ColorRule color) { return std::make_unique<TextHex>(color); }

std::unique_ptr<HexSink> MakeJsonHex(Json head) {
  return std::make_unique<JsonHex>(std::move(head));
}

}  // namespace aotool
