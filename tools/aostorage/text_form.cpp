#include "text_form.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "shown.h"

namespace aotool {
namespace {

constexpr char kDigits[] = "0123456789abcdef";

int DigitOf(char letter) {
  if (letter >= '0' && letter <= '9') return letter - '0';
  if (letter >= 'a' && letter <= 'f') return letter - 'a' + 10;
  if (letter >= 'A' && letter <= 'F') return letter - 'A' + 10;
  return -1;
}

bool TakeHexByte(std::string_view& line, std::string& bytes) {
  if (line.size() < 2) return false;
  const int high = DigitOf(line[0]);
  const int low = DigitOf(line[1]);
  if (high < 0 || low < 0) return false;
  bytes += static_cast<char>(high * 16 + low);
  line.remove_prefix(2);
  return true;
}

// The short forms among the escapes: the letter behind the backslash and the byte.
struct ShortEscape {
  char letter, byte;
};
constexpr ShortEscape kShort[] = {{'n', '\n'}, {'t', '\t'}, {'r', '\r'}, {'\\', '\\'}, {'"', '"'}};

bool TakeEscape(std::string_view& line, std::string& bytes) {
  if (line.empty()) return false;
  const char letter = line.front();
  line.remove_prefix(1);
  if (letter == 'x') return TakeHexByte(line, bytes);
  for (const ShortEscape& escape : kShort) {
    if (escape.letter != letter) continue;
    bytes += escape.byte;
    return true;
  }
  return false;
}

bool IsContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

bool IsControl(char byte) {
  const auto value = static_cast<unsigned char>(byte);
  return value == 0x7F || (value < 0x20 && value != '\t' && value != '\n' && value != '\r');
}

// Where a line of text ends: behind a line feed, or before a character that no longer fits.
std::size_t TextLineEnd(std::string_view bytes) {
  const std::string_view most = bytes.substr(0, kTextBytesInLine);
  const std::size_t feed = most.find('\n');
  if (feed != std::string_view::npos) return feed + 1;
  std::size_t end = most.size();
  if (end == bytes.size()) return end;
  while (end > kTextBytesInLine - 4 && IsContinuation(bytes[end])) --end;
  return end;
}

bool TakePath(std::string_view& line, TextRecord& record) {
  const bool cut = TakeWord(line, kPathCut);
  record.names.clear();
  do {
    std::string name;
    if (record.names.size() == kMostPathNames || !TakeQuoted(line, name)) return false;
    record.names.push_back(std::move(name));
  } while (TakeWord(line, "/"));
  return cut ? record.names.size() < record.depth : record.names.size() == record.depth;
}

}  // namespace

std::string QuotedBytes(std::string_view bytes) {
  const std::string shown = Shown(bytes);
  std::string quoted = "\"";
  for (std::size_t i = 0; i < shown.size(); ++i) {
    std::string byte;
    std::string_view escape = std::string_view(shown).substr(i + 1);
    if (shown[i] == '"') {
      quoted += "\\\"";
    } else if (shown[i] == '\\' && TakeEscape(escape, byte)) {
      const auto* found = std::find_if(std::begin(kShort), std::end(kShort),
                                       [&](const ShortEscape& one) { return one.byte == byte[0]; });
      quoted += '\\';
      if (found != std::end(kShort)) {
        quoted += found->letter;
      } else {
        quoted.append(shown, i + 1, 3);
      }
      i += 3;
    } else {
      quoted += shown[i];
    }
  }
  return quoted + "\"";
}

std::string RecordLine(const TextRecord& record) {
  std::string line = record.folder ? "folder " : "plain ";
  line += std::to_string(record.depth) + " ";
  if (record.depth > record.names.size()) line += kPathCut;
  for (std::size_t i = 0; i < record.names.size(); ++i)
    line += (i == 0 ? "" : "/") + QuotedBytes(record.names[i]);
  line += " duration " + std::to_string(record.duration);
  if (!record.folder) line += " length " + std::to_string(record.length);
  if (record.reserved) line += " reserved";
  return line;
}

std::string EndLine(const TextTotals& totals) {
  return "end folders " + std::to_string(totals.folders) + " plain " +
         std::to_string(totals.plain) + " bytes " + std::to_string(totals.bytes);
}

std::string DataLine(std::string_view& bytes, bool text, bool last) {
  const std::size_t most = text ? kTextBytesInLine + 4 : kHexBytesInLine;
  if (bytes.empty() || (bytes.size() < most && !last)) return "";
  std::string line = "  ";
  std::size_t taken = 0;
  if (text) {
    taken = TextLineEnd(bytes);
    line += QuotedBytes(bytes.substr(0, taken));
  } else {
    taken = std::min(most, bytes.size());
    for (const char byte : bytes.substr(0, taken)) {
      const auto value = static_cast<unsigned char>(byte);
      line += kDigits[value >> 4];
      line += kDigits[value & 15];
    }
  }
  bytes.remove_prefix(taken);
  return line + "\n";
}

void TextTest::Take(std::string_view piece) {
  if (!good) return;
  good = std::none_of(piece.begin(), piece.end(), IsControl);
  const std::string bytes = held + std::string(piece);
  // The last character may go on behind the piece: from its first byte on it waits.
  std::size_t whole = bytes.size();
  for (std::size_t back = 1; back <= 4 && back <= bytes.size(); ++back) {
    const auto byte = static_cast<unsigned char>(bytes[bytes.size() - back]);
    if (IsContinuation(bytes[bytes.size() - back])) continue;
    const std::size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
    if (length > back) whole = bytes.size() - back;
    break;
  }
  good = good && IsUtf8(std::string_view(bytes).substr(0, whole));
  held = bytes.substr(whole);
}

bool TakeWord(std::string_view& line, std::string_view word) {
  if (line.substr(0, word.size()) != word) return false;
  line.remove_prefix(word.size());
  return true;
}

bool TakeNumber(std::string_view& line, std::uint64_t& number, std::uint64_t largest) {
  const auto parsed = std::from_chars(line.data(), line.data() + line.size(), number);
  if (parsed.ec != std::errc() || number > largest) return false;
  line.remove_prefix(static_cast<std::size_t>(parsed.ptr - line.data()));
  return true;
}

bool TakeQuoted(std::string_view& line, std::string& bytes) {
  if (!TakeWord(line, "\"")) return false;
  while (!line.empty()) {
    const char letter = line.front();
    line.remove_prefix(1);
    if (letter == '"') return true;
    if (letter != '\\') {
      bytes += letter;
    } else if (!TakeEscape(line, bytes)) {
      return false;
    }
  }
  return false;
}

bool TakeHex(std::string_view& line, std::string& bytes) {
  while (!line.empty()) {
    if (!TakeHexByte(line, bytes)) return false;
  }
  return true;
}

bool TakeRecord(std::string_view line, TextRecord& record) {
  record.folder = TakeWord(line, "folder ");
  if (!record.folder && !TakeWord(line, "plain ")) return false;
  if (!TakeNumber(line, record.depth, UINT32_MAX) || !TakeWord(line, " ")) return false;
  if (!TakePath(line, record)) return false;
  std::uint64_t number = 0;
  if (!TakeWord(line, " duration ") || !TakeNumber(line, number, UINT16_MAX)) return false;
  record.duration = static_cast<std::uint16_t>(number);
  record.length = 0;
  if (!record.folder) {
    if (!TakeWord(line, " length ") || !TakeNumber(line, number, UINT32_MAX)) return false;
    record.length = static_cast<std::uint32_t>(number);
  }
  record.reserved = TakeWord(line, " reserved");
  return line.empty();
}

bool TakeEnd(std::string_view line, TextTotals& totals) {
  return TakeWord(line, "end folders ") && TakeNumber(line, totals.folders, UINT64_MAX) &&
         TakeWord(line, " plain ") && TakeNumber(line, totals.plain, UINT64_MAX) &&
         TakeWord(line, " bytes ") && TakeNumber(line, totals.bytes, UINT64_MAX) && line.empty();
}

}  // namespace aotool
