#include "platform/last_error.h"

namespace aostorage {
namespace {

struct CodeTexts {
  const char* name;
  const char* text;
};

// By the number of the code.
constexpr CodeTexts kTexts[] = {
    {"none", "no error"},
    {"bad-argument", "unusable argument"},
    {"name-unusable", "unusable name or path"},
    {"not-found", "not found"},
    {"exists", "the name is taken"},
    {"shared", "open elsewhere and not shared"},
    {"not-writable", "not opened for writing"},
    {"wrong-kind", "not possible with this kind of stream or file"},
    {"out-of-step", "the stream object has lost its place"},
    {"changed", "changed by somebody else meanwhile"},
    {"cancelled", "cancelled"},
    {"not-a-storage", "not a storage file"},
    {"not-a-file", "not a regular file"},
    {"truncated", "the file is damaged: a record is cut off"},
    {"bad-magic", "the file is damaged: a record lacks its magic word"},
    {"contradiction", "the file is damaged: a record contradicts itself or the file"},
    {"out-of-range", "the file is damaged: an offset leads behind its end"},
    {"cycle", "the file is damaged: its records go round in a circle"},
    {"full", "no free slot"},
    {"too-large", "the limit of 2 GiB is reached"},
    {"no-memory", "out of memory"},
    {"access-denied", "access denied"},
    {"disk-full", "the disk is full"},
    {"input-output", "input/output error"},
    {"sync-failed", "an earlier write did not reach the disk"},
    {"behind-end", "behind the end of the stream"},
    {"not-open", "nothing is open"},
    {"incomplete-map", "not all streams of the file are known"},
};
constexpr CodeTexts kUnknown{"unknown", "unknown error"};

constexpr const CodeTexts& TextsOf(ErrorCode code) {
  const auto number = static_cast<std::uint32_t>(code);
  return number < sizeof(kTexts) / sizeof(kTexts[0]) ? kTexts[number] : kUnknown;
}

constexpr Error kNoError{ErrorCode::kNone, 0, kNoFileOffset, "", kTexts[0].text};

// All that a thread keeps. Nothing in it is made or ended at run time.
struct Reasons {
  Error last = kNoError;
  const char* operation = nullptr;  // the one on its way
  bool noted = false;               // and whether it has noted its first cause
};

thread_local Reasons reasons;

}  // namespace

const Error& LastError() noexcept { return reasons.last; }

void ClearLastError() noexcept {
  reasons.last = kNoError;
  reasons.noted = false;
}

const char* ErrorText(ErrorCode code) noexcept { return TextsOf(code).text; }

const char* ErrorName(ErrorCode code) noexcept { return TextsOf(code).name; }

bool IsDamage(ErrorCode code) noexcept {
  return code >= ErrorCode::kTruncated && code <= ErrorCode::kCycle;
}

namespace detail {

bool Fail(ErrorCode code, std::uint64_t fileOffset, int systemError) noexcept {
  Reasons& mine = reasons;
  if (mine.noted) return false;
  mine.noted = mine.operation != nullptr;
  mine.last = {code, systemError, fileOffset, mine.noted ? mine.operation : "", ErrorText(code)};
  return false;
}

Operation::Operation(const char* name) noexcept {
  Reasons& mine = reasons;
  outermost = mine.operation == nullptr;
  if (!outermost) return;
  mine.operation = name;
  mine.noted = false;
}

Operation::~Operation() {
  if (!outermost) return;
  reasons.operation = nullptr;
  reasons.noted = false;
}

Attempt::Attempt() noexcept : before(reasons.last), notedBefore(reasons.noted) {
  reasons.noted = false;
}

Attempt::~Attempt() {
  if (!ended && notedBefore) Forget();
}

ErrorCode Attempt::Code() const noexcept {
  return reasons.noted ? reasons.last.code : ErrorCode::kNone;
}

void Attempt::Forget() noexcept {
  reasons.last = before;
  reasons.noted = notedBefore;
  ended = true;
}

Callback::Callback() noexcept
    : before(reasons.last), operation(reasons.operation), notedBefore(reasons.noted) {
  reasons.operation = nullptr;
  reasons.noted = false;
}

Callback::~Callback() {
  if (notedBefore) reasons.last = before;
  reasons.noted = notedBefore;
  reasons.operation = operation;
}

}  // namespace detail
}  // namespace aostorage
