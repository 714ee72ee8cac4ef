// The text form of a store: its words, for those who write it and those who read it. The whole is
// described in docs/text-format.md.
#ifndef AOSTORAGE_TOOLS_TEXT_FORM_H_
#define AOSTORAGE_TOOLS_TEXT_FORM_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace aotool {

inline constexpr std::string_view kTextFirstLine = "aostorage text 1";
// Of a longer path only so many names at its end are written, behind kPathCut, so that the lines of
// a deep tree do not grow with its depth.
inline constexpr std::size_t kMostPathNames = 8;
inline constexpr std::string_view kPathCut = ".../";
inline constexpr std::size_t kHexBytesInLine = 64;
inline constexpr std::size_t kTextBytesInLine = 1024;
// More than any line that is written here.
inline constexpr std::size_t kLongestLine = 65536;

// One line about a stream.
struct TextRecord {
  bool folder = false;
  std::uint64_t depth = 0;         // 1 at the root
  std::vector<std::string> names;  // the last kMostPathNames of the path at most
  std::uint16_t duration = 0;      // minutes
  std::uint32_t length = 0;        // of a plain stream
  bool reserved = false;           // in a reserved slot
};

struct TextTotals {
  std::uint64_t folders = 0, plain = 0, bytes = 0;
};

// Without the line feed.
std::string RecordLine(const TextRecord& record);
std::string EndLine(const TextTotals& totals);

// The next piece of a plain stream that is `text` or not, with its line feed. `bytes` begins where
// the piece does and is shortened by it; where it is not the stream's `last` and too short to tell
// where the line ends, it stays and the line is empty.
std::string DataLine(std::string_view& bytes, bool text, bool last);

// Whether the bytes of a stream, given one piece after the other, are written as text: UTF-8
// without control characters other than tab, line feed and carriage return.
class TextTest {
 public:
  void Take(std::string_view piece);
  // After the last piece.
  bool IsText() const { return good && held.empty(); }

 private:
  bool good = true;
  std::string held;  // a character that goes on in the next piece
};

// Printable, in quotation marks, with escapes that carry any bytes.
std::string QuotedBytes(std::string_view bytes);

// What stands in a line, taken from its front. Each tells whether it was there; after a false the
// line is of no more use.
bool TakeWord(std::string_view& line, std::string_view word);
bool TakeNumber(std::string_view& line, std::uint64_t& number, std::uint64_t largest);
bool TakeQuoted(std::string_view& line, std::string& bytes);
bool TakeHex(std::string_view& line, std::string& bytes);
bool TakeRecord(std::string_view line, TextRecord& record);
bool TakeEnd(std::string_view line, TextTotals& totals);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_TEXT_FORM_H_
