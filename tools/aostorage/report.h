// What the tool tells its caller: results, exit codes, messages and progress.
#ifndef AOSTORAGE_TOOLS_REPORT_H_
#define AOSTORAGE_TOOLS_REPORT_H_

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include <aostorage/error.h>

#include "shown.h"

namespace aotool {

// The exit codes of the tool.
enum ExitCode : int {
  kDone = 0,
  kNotFound = 1,  // or another answer that is no, see Report::AnswerNo
  kFailure = 2,   // wrong usage and whatever has no code of its own
  kDamaged = 3,
  kNotAStorage = 4,
  kInputOutput = 5,
};

// The outcome of a step. Whoever meets a failure returns it; the verb prints it.
struct [[nodiscard]] Result {
  ExitCode code = kDone;
  std::string reason;  // one line; empty when done

  bool Ok() const { return code == kDone; }
};

// The library's last failure on this thread.
Result FromLibrary();
// As FromLibrary, after a read that gave less than the stream's length promises: that alone is
// damage.
Result FromShortRead();
// A failed call of the system: `doing` and the text of the error number.
Result FromSystem(int errorNumber, const std::string& doing);

// Writes to standard output, through its buffer.
void Print(std::string_view text);
// Writes out what Print buffered.
Result FlushPrinted();

// Messages and progress of one verb on standard error, and the exit code that comes of them.
class Report {
 public:
  // The store is named in every message.
  explicit Report(std::string store);
  Report(const Report&) = delete;
  Report& operator=(const Report&) = delete;
  ~Report();

  // From now on messages name this store; an empty one is not named.
  void SpeakOf(const std::string& otherStore) { store = otherStore; }

  // Prints the failure and remembers its code. Any code stands above kFailure, and the first
  // stands. `subject` is the stream or file that it is about, empty for the store itself.
  void Fail(std::string_view subject, const Result& result);
  // A message that does not change the exit code.
  void Note(std::string_view subject, std::string_view text);
  // The verb did its work and its answer is no: differences, findings. Exit code 1 unless
  // something fails.
  void AnswerNo() { answerIsNo = true; }

  // Where standard error is a terminal, shows what is going on: now and then, after the first
  // moment.
  void Progress(std::string_view doing, std::uint64_t items, std::uint64_t bytes);
  // Takes the progress away: before results are printed.
  void EndProgress();
  // For verbs with results on standard output: no progress where that is a terminal as well.
  void LeaveTerminalToResults();
  // As Progress, at once: before a single call that can take long.
  void Working(std::string_view doing);

  ExitCode Code() const { return code == kDone && answerIsNo ? kNotFound : code; }

 private:
  using Clock = std::chrono::steady_clock;

  void PrintLine(std::string_view subject, std::string_view text);
  void ShowProgress(const std::string& text);

  std::string store;
  ExitCode code = kDone;
  bool answerIsNo = false;
  bool onTerminal = false;
  bool progressShown = false;
  Clock::time_point nextProgress;
};

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_REPORT_H_
