#include "report.h"

#include <stdio_ext.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "interrupt.h"
#include "style.h"

namespace aotool {
namespace {

constexpr std::chrono::milliseconds kFirstProgress(700);
constexpr std::chrono::milliseconds kNextProgress(150);

ExitCode CodeOf(aostorage::ErrorCode code) {
  if (aostorage::IsDamage(code)) return kDamaged;
  switch (code) {
    case aostorage::ErrorCode::kNotFound:
      return kNotFound;
    case aostorage::ErrorCode::kNotAStorage:
    case aostorage::ErrorCode::kNotAFile:
      return kNotAStorage;
    case aostorage::ErrorCode::kAccessDenied:
    case aostorage::ErrorCode::kDiskFull:
    case aostorage::ErrorCode::kInputOutput:
    case aostorage::ErrorCode::kSyncFailed:
      return kInputOutput;
    default:
      return kFailure;
  }
}

std::string SystemText(int errorNumber) { return std::generic_category().message(errorNumber); }

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
  const aostorage::Error& error = aostorage::LastError();
  if (error.code == aostorage::ErrorCode::kNone) return {kFailure, "failed without a reason"};
  std::string reason = error.text;
  if (error.systemError != 0) reason += " (" + SystemText(error.systemError) + ")";
  if (error.fileOffset != aostorage::kNoFileOffset)
    reason += ", at offset " + std::to_string(error.fileOffset);
  const ExitCode code = CodeOf(error.code);
  // What the user did not ask for in these words: the call tells where it went wrong.
  if (code == kFailure) reason += std::string(" [") + error.operation + "]";
  return {code, reason};
}

Result FromShortRead() {
  if (aostorage::LastError().code != aostorage::ErrorCode::kNone) return FromLibrary();
  return {kDamaged, "the stream ends before its length"};
}

Result FromSystem(int errorNumber, const std::string& doing) {
  if (errorNumber == EINTR && Interrupted()) return Interruption();
  return {kInputOutput, doing + ": " + SystemText(errorNumber)};
}

void Print(std::string_view text) { std::fwrite(text.data(), 1, text.size(), stdout); }

Result FlushPrinted() {
  if (Interrupted() && std::ferror(stdout) != 0) {
    ::__fpurge(stdout);  // nobody reads it: the end of the program would wait again
    return Interruption();
  }
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return {};
  return FromSystem(errno, "cannot write to standard output");
}

Report::Report(std::string storePath)
    : store(std::move(storePath)), nextProgress(Clock::now() + kFirstProgress) {
  onTerminal = IsCapableTerminal(STDERR_FILENO);
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
