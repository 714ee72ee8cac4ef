// The reason of a failure, kept for the thread that met it.
#ifndef AOSTORAGE_PLATFORM_LAST_ERROR_H_
#define AOSTORAGE_PLATFORM_LAST_ERROR_H_

#include <cstdint>
#include <new>
#include <utility>

#include <aostorage/error.h>

namespace aostorage::detail {

// Notes the reason, unless the operation on its way has noted one already, and gives false, so that
// a failing step reads `return Fail(ErrorCode::kBadMagic, offset);`.
bool Fail(ErrorCode code, std::uint64_t fileOffset = kNoFileOffset, int systemError = 0) noexcept;

// Stands in every public operation in which anything can fail. Operations that are called from
// within belong to the outermost one.
class Operation {
 public:
  explicit Operation(const char* name) noexcept;
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;
  ~Operation();

 private:
  bool outermost;
};

// A step whose failure another way may make good.
class Attempt {
 public:
  Attempt() noexcept;
  Attempt(const Attempt&) = delete;
  Attempt& operator=(const Attempt&) = delete;
  // A cause that was noted before the attempt stands above the attempt's own.
  ~Attempt();

  // The first reason noted since the attempt began, kNone for none.
  ErrorCode Code() const noexcept;
  // Another way is taken: all is as it was before the attempt, which ends here.
  void Forget() noexcept;

 private:
  Error before;
  bool notedBefore;
  bool ended = false;
};

// Stands around a call of the caller's own code in the middle of an operation: what that calls are
// operations of their own.
class Callback {
 public:
  Callback() noexcept;
  Callback(const Callback&) = delete;
  Callback& operator=(const Callback&) = delete;
  ~Callback();

 private:
  Error before;
  const char* operation;
  bool notedBefore;
};

// Runs a body in which memory can run out: the one place where that becomes a result.
template <typename Result, typename Body>
Result Guarded(Result failure, Body body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    Fail(ErrorCode::kNoMemory);
  } catch (...) {  // length_error of a container is the only other one that the standard library
                   // can throw
    Fail(ErrorCode::kBadArgument);
  }
  return failure;
}

// The same as the whole of a public operation.
template <typename Result, typename Body>
Result Guarded(const char* operationName, Result failure, Body body) noexcept {
  const Operation operation(operationName);
  return Guarded(std::move(failure), std::move(body));
}

}  // namespace aostorage::detail

#endif  // AOSTORAGE_PLATFORM_LAST_ERROR_H_
