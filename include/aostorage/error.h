/// @file
/// Why an operation failed. The operations tell failure by their results; this tells the reason.
#ifndef AOSTORAGE_ERROR_H_
#define AOSTORAGE_ERROR_H_

#include <cstdint>

#include <aostorage/export.h>

namespace aostorage {

/// The reason of a failure. The numbers are stable: none is ever given another meaning.
enum class ErrorCode : std::int32_t {
  kNone = 0,            ///< nothing failed since ClearLastError
  kBadArgument = 1,     ///< a null pointer, a value out of range, a copy onto itself
  kNameUnusable = 2,    ///< a name or path that is null, empty, too long or has an empty component
  kNotFound = 3,        ///< nothing of that name; the end of a walk; nothing there to give
  kExists = 4,          ///< the name is taken
  kShared = 5,          ///< a sharing rule: somebody else has it open
  kNotWritable = 6,     ///< the stream or the storage was not opened for writing
  kWrongKind = 7,       ///< an operation that this kind of stream or file does not have
  kOutOfStep = 8,       ///< the object has lost its place: seek from the start or the end first
  kChanged = 9,         ///< the file or the stream was changed by somebody else meanwhile
  kCancelled = 10,      ///< the caller's progress function gave up
  kNotAStorage = 11,    ///< the file does not begin as a storage file does
  kNotAFile = 12,       ///< a folder, a pipe or a device stands at the path
  kTruncated = 13,      ///< damage: a record reaches behind the end of the file or of its chain
  kBadMagic = 14,       ///< damage: a record lacks its magic word
  kContradiction = 15,  ///< damage: the words of a record contradict each other or the file
  kOutOfRange = 16,     ///< damage: an offset leads behind the end of the file
  kCycle = 17,          ///< damage: a chain or the folders go round in a circle
  kFull = 18,           ///< no slot is free
  kTooLarge = 19,       ///< the file, or a stream in memory, would pass its limit of 2 GiB
  kNoMemory = 20,       ///< an allocation failed
  kAccessDenied = 21,   ///< the operating system refused access to the file
  kDiskFull = 22,       ///< disk, quota or file-size limit is exhausted
  kInputOutput = 23,    ///< any other failed call on the file; bytes that came back changed
  kSyncFailed = 24,     ///< an earlier Sync of this storage failed: open it anew
  kBehindEnd = 25,      ///< a place, or bytes of a value, behind the end of the stream
  kNotOpen = 26,        ///< no storage or no stream is open here
  kIncompleteMap = 27,  ///< the storage object does not know all streams of its file
};

/// The value of Error::fileOffset for failures that have no place in the file.
inline constexpr std::uint64_t kNoFileOffset = ~std::uint64_t{0};

/// What is known of a failure. The texts are constants of the library and never null.
struct Error {
  ErrorCode code;            ///< why
  int systemError;           ///< the `errno` behind it, 0 when the system had no part in it
  std::uint64_t fileOffset;  ///< first byte of the record at fault, or where the failed read or
                             ///< write was to begin; kNoFileOffset for none
  const char* operation;     ///< the public operation that was called: "aoStream::Write"
  const char* text;          ///< ErrorText of the code
};

/// The last failure on this thread.
///
/// - Every operation in which something failed leaves the reason here, also where its result does
///   not tell: `operator<<`, the 1 of a SetEntry whose write failed, ClearFolder.
/// - The first cause of one operation stands; what fails later in the same call, as a clean-up
///   may, does not replace it. An operation that calls others is one operation: the outermost.
/// - An ordinary no is kNotFound: the end of a walk, an absent name, an entry whose default is
///   given.
/// - A read that ends where the stream ends has succeeded, also with 0 bytes. A value or an entry
///   that the stream has too few bytes for has failed: kBehindEnd.
/// - Success neither sets nor clears it: look at it when an operation has failed, or call
///   ClearLastError before. A try that failed inside an operation and was made good by another way
///   leaves nothing.
///
/// The reference stays valid for the life of the thread; the next failure on it changes what it
/// refers to. Takes no memory.
AOSTORAGE_API const Error& LastError() noexcept;

/// Forgets the last failure of this thread: the code is then kNone.
AOSTORAGE_API void ClearLastError() noexcept;

/// A short English text for `code`, without a trailing full stop. Never null.
AOSTORAGE_API const char* ErrorText(ErrorCode code) noexcept;

/// A short name for `code` that never changes, for programs to read: "not-a-storage". Never null.
AOSTORAGE_API const char* ErrorName(ErrorCode code) noexcept;

/// Whether the code says that the storage file is damaged: kTruncated to kCycle.
AOSTORAGE_API bool IsDamage(ErrorCode code) noexcept;

}  // namespace aostorage

#endif  // AOSTORAGE_ERROR_H_
