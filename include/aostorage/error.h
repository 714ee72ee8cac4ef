/// @file
/// Why an operation failed. The operations tell failure by their results; this tells the reason.
#ifndef AOSTORAGE_ERROR_H_
#define AOSTORAGE_ERROR_H_

#include <aostorage/export.h>

namespace aostorage {

/// The reason of a failure.
enum class Error {
  kNone,         ///< nothing failed since ClearLastError
  kBadArgument,  ///< unusable name, null pointer, value out of range
  kNotFound,     ///< no file or no stream of that name
  kExists,       ///< the name is taken
  kRefused,      ///< a sharing rule, a missing kStreamWrite, or an operation that the kind does not
                 ///< have
  kNotAStorage,  ///< the file is no storage file, or no regular file
  kDamaged,      ///< a record is short, lacks its magic word or contradicts another
  kNoRoom,       ///< no slot is free, or the file would pass the reachable size of 2 GiB
  kNoMemory,     ///< an allocation failed
  kAccessDenied,  ///< the operating system refused access to the file
  kDiskFull,      ///< disk, quota or file-size limit is exhausted
  kInputOutput,   ///< any other failed call on the file
};

/// The reason of the most recent failure of an operation on this thread. Look at it right after an
/// operation has failed: one that succeeds may have tried another way first and leaves anything
/// here.
AOSTORAGE_API Error LastError() noexcept;

/// The operating system's error number (`errno`) behind LastError, 0 when the system had no part in
/// it.
AOSTORAGE_API int LastSystemError() noexcept;

/// Forgets the last failure of this thread.
AOSTORAGE_API void ClearLastError() noexcept;

/// A short English text for `error`, without a trailing full stop. Never null.
AOSTORAGE_API const char* ErrorText(Error error) noexcept;

}  // namespace aostorage

#endif  // AOSTORAGE_ERROR_H_
