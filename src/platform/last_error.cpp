#include "platform/last_error.h"

namespace aostorage {
namespace {

struct Reason {
  Error error = Error::kNone;
  int systemError = 0;
};

thread_local Reason lastReason;

}  // namespace

Error LastError() noexcept { return lastReason.error; }

int LastSystemError() noexcept { return lastReason.systemError; }

void ClearLastError() noexcept { lastReason = {}; }

const char* ErrorText(Error error) noexcept {
  switch (error) {
    case Error::kNone:
      return "no error";
    case Error::kBadArgument:
      return "unusable argument";
    case Error::kNotFound:
      return "not found";
    case Error::kExists:
      return "the name is taken";
    case Error::kRefused:
      return "refused";
    case Error::kNotAStorage:
      return "not a storage file";
    case Error::kDamaged:
      return "the file is damaged";
    case Error::kNoRoom:
      return "no room left in the storage file";
    case Error::kNoMemory:
      return "out of memory";
    case Error::kAccessDenied:
      return "access denied";
    case Error::kDiskFull:
      return "the disk is full";
    case Error::kInputOutput:
      return "input/output error";
  }
  return "unknown error";
}

namespace detail {

bool Fail(Error error, int systemError) noexcept {
  lastReason = {error, systemError};
  return false;
}

}  // namespace detail
}  // namespace aostorage
