#include "report.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>

namespace aotool {
namespace {

constexpr std::chrono::milliseconds kFirstProgress(700);
constexpr std::chrono::milliseconds kNextProgress(150);

ExitCode CodeOf(aostorage::Error error) {
  switch (error) {
    case aostorage::Error::kNotFound:
      return kNotFound;
    case aostorage::Error::kDamaged:
      return kDamaged;
    case aostorage::Error::kNotAStorage:
      return kNotAStorage;
    case aostorage::Error::kAccessDenied:
    case aostorage::Error::kDiskFull:
    case aostorage::Error::kInputOutput:
      return kInputOutput;
    default:
      return kFailure;
  }
}

std::string SystemText(int errorNumber) { return std::generic_category().message(errorNumber); }

unsigned char ByteAt(std::string_view text, std::size_t index) {
  return static_cast<unsigned char>(text[index]);
}

// Bytes of the printable character that begins at `start`; 0 when none does.
std::size_t PrintableLength(std::string_view text, std::size_t start) {
  const unsigned char lead = ByteAt(text, start);
  if (lead < 0x80) return lead >= 0x20 && lead != 0x7F && lead != '\\' ? 1 : 0;
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || start + length > text.size()) return 0;
  unsigned codePoint = lead & (0xFFU >> (length + 1));
  for (std::size_t i = start + 1; i < start + length; ++i) {
    if ((ByteAt(text, i) & 0xC0U) != 0x80) return 0;
    codePoint = codePoint << 6 | (ByteAt(text, i) & 0x3FU);
  }
  constexpr unsigned kSmallest[] = {0, 0, 0xA0, 0x800,
                                    0x10000};  // by length; below 0xA0 are controls
  const bool inRange = codePoint >= kSmallest[length] && codePoint <= 0x10FFFF;
  const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
  const bool turnsDirection = (codePoint >= 0x202A && codePoint <= 0x202E) ||
                              (codePoint >= 0x2066 && codePoint <= 0x2069) || codePoint == 0x2028 ||
                              codePoint == 0x2029;
  return inRange && !surrogate && !turnsDirection ? length : 0;
}

std::string Size(std::uint64_t bytes) {
  char text[32];
  if (bytes < 1000000) {
    std::snprintf(text, sizeof text, "%llu bytes", static_cast<unsigned long long>(bytes));
  } else {
    std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / 1e6);
  }
  return text;
}

}  // namespace

Result FromLibrary() {
  const aostorage::Error error = aostorage::LastError();
  if (error == aostorage::Error::kNone) return {kFailure, "failed without a reason"};
  std::string reason = aostorage::ErrorText(error);
  if (const int systemError = aostorage::LastSystemError(); systemError != 0) {
    reason += " (" + SystemText(systemError) + ")";
  }
  return {CodeOf(error), reason};
}

Result FromShortRead() {
  if (aostorage::LastError() != aostorage::Error::kNone) return FromLibrary();
  return {kDamaged, "the stream ends before its length"};
}

Result FromSystem(int errorNumber, const std::string& doing) {
  return {kInputOutput, doing + ": " + SystemText(errorNumber)};
}

std::string Shown(std::string_view name) {
  std::string shown;
  for (std::size_t i = 0; i < name.size();) {
    const std::size_t length = PrintableLength(name, i);
    if (length != 0) {
      shown.append(name.substr(i, length));
    } else {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", ByteAt(name, i));
      shown += escaped;
    }
    i += length != 0 ? length : 1;
  }
  return shown;
}

void Print(std::string_view text) { std::fwrite(text.data(), 1, text.size(), stdout); }

Result FlushPrinted() {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return {};
  return FromSystem(errno, "cannot write to standard output");
}

Report::Report(std::string storePath)
    : store(std::move(storePath)), nextProgress(Clock::now() + kFirstProgress) {
  const char* terminal = std::getenv("TERM");
  onTerminal =
      ::isatty(STDERR_FILENO) == 1 && terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
}

Report::~Report() { EndProgress(); }

void Report::Fail(std::string_view subject, const Result& result) {
  if (code == kDone || code == kFailure) code = result.code;
  PrintLine(subject, result.reason);
}

void Report::Note(std::string_view subject, std::string_view text) { PrintLine(subject, text); }

void Report::Progress(std::string_view doing, std::uint64_t items, std::uint64_t bytes) {
  if (!onTerminal || Clock::now() < nextProgress) return;
  ShowProgress(std::string(doing) + ": " + std::to_string(items) +
               (items == 1 ? " item, " : " items, ") + Size(bytes));
}

void Report::LeaveTerminalToResults() {
  if (::isatty(STDOUT_FILENO) == 1) onTerminal = false;
}

void Report::Working(std::string_view doing) {
  if (onTerminal) ShowProgress(std::string(doing) + " ...");
}

void Report::PrintLine(std::string_view subject, std::string_view text) {
  EndProgress();
  std::string line = "aostorage: ";
  if (!store.empty()) line += Shown(store) + ": ";
  if (!subject.empty()) line += Shown(subject) + ": ";
  line.append(text);
  line += '\n';
  std::fwrite(line.data(), 1, line.size(), stderr);
}

void Report::ShowProgress(const std::string& text) {
  std::fprintf(stderr, "\r\033[K%s", text.c_str());
  std::fflush(stderr);
  progressShown = true;
  nextProgress = Clock::now() + kNextProgress;
}

void Report::EndProgress() {
  if (!progressShown) return;
  std::fputs("\r\033[K", stderr);
  progressShown = false;
}

}  // namespace aotool
