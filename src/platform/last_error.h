// The reason of a failure, kept for the thread that met it.
#ifndef AOSTORAGE_PLATFORM_LAST_ERROR_H_
#define AOSTORAGE_PLATFORM_LAST_ERROR_H_

#include <new>

#include <aostorage/error.h>

namespace aostorage::detail {

// Notes the reason and gives false, so that a failing step reads `return Fail(Error::kDamaged);`.
bool Fail(Error error, int systemError = 0) noexcept;

// Runs the body of a public operation: the one place where running out of memory becomes a result.
template <typename Result, typename Body>
Result Guarded(Result failure, Body body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    Fail(Error::kNoMemory);
  } catch (...) {  // length_error of a container is the only other one that the standard library
                   // can throw
    Fail(Error::kBadArgument);
  }
  return failure;
}

}  // namespace aostorage::detail

#endif  // AOSTORAGE_PLATFORM_LAST_ERROR_H_
