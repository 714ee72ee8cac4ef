/// @file
/// CCompStgFile: a storage worked through one object with integer results.
#ifndef AOSTORAGE_COMPOUND_FILE_H_
#define AOSTORAGE_COMPOUND_FILE_H_

#include <array>
#include <cstdint>
#include <memory>

#include <aostorage/export.h>
#include <aostorage/types.h>

namespace aostorage {

class aoStorage;
class aoStream;

namespace detail {
class HeldStorage;
class HeldStream;
}  // namespace detail

/// One storage, at most one root stream of it (the generic stream), and at most one child of that
/// stream (the child stream).
///
/// The order of calls: Open; then an operation that selects a stream, or a step of a walk; then
/// reading and writing; then CloseStream or the next selection; at the end Close or the destructor.
/// Results are 1 for success and 0 for failure unless it is said otherwise; LastError gives the
/// reason. An operation that needs a storage or a stream that is not there gives 0 or null. "Closes
/// first" means that the operation begins with CloseStream, whatever becomes of it then.
///
/// Copies share the storage and the streams that were open when the copy was made. What one of them
/// closes, its destructor included, is closed for all; the others then find themselves without it.
/// What one of them opens later is its own, and closes with the shared storage at the latest.
///
/// An object, its copies and the streams that it gives belong to one thread at a time.
class AOSTORAGE_API CCompStgFile {
 public:
  /// @name Life of the object
  /// @{
  CCompStgFile();
  CCompStgFile(const CCompStgFile& other);
  /// Takes over what `other` has. What the object had is closed when no further copy has it.
  CCompStgFile& operator=(const CCompStgFile& other);
  /// Does what Close does.
  virtual ~CCompStgFile();

  /// Opens a storage; the one that is open is closed first, whatever becomes of the new one.
  /// @param openMode  1 and 3: for reading. 2: for reading and writing; a storage is created where
  ///                  no file stands, and in a file of 0 bytes. A file that stands there and is no
  ///                  storage is refused and untouched. Any other mode is refused.
  int Open(const char* path, std::int32_t openMode);
  /// Closes streams and storage. @return 0 when no storage was open
  int Close();
  /// Closes the child stream and the generic stream. @return 1 when there was a generic stream
  int CloseStream();
  /// Closes the child stream. @return 1 when there was one
  int CloseChildStream();
  /// Whether an Open of this object has gone on to creating the file. Nothing sets it back.
  bool CreatedNew() const;
  /// The mode given to Open, 0 while closed.
  std::int32_t Mode() const;
  /// @}

  /// @name Selecting streams
  /// @{

  /// Closes first, then opens a root stream with kWriteFlags.
  int OpenGenericStream(const char* name);
  /// Closes first, then opens a root stream, and if it is a folder a child of it, both with
  /// kWriteFlags in mode 2, else with kReadFlags.
  /// @return 1 also for a plain stream, whatever `childName`; 0 without the child, the root stream
  ///         then stays open
  int OpenGenericStreams(const char* name, const char* childName);
  /// Closes first, then opens a root stream with kWriteFlags, or creates it.
  /// @param toEnd       nonzero: the cursor is placed at the end
  /// @param packedKind  what to create, see PackKind
  int OpenOrCreateGenericStream(const char* name, std::int32_t toEnd, std::uint32_t packedKind);
  /// As above.
  /// @param created  receives 1 when the stream could not be opened, whether or not it could be
  ///                 created then; else 0
  int OpenOrCreateGenericStream(const char* name, std::int32_t toEnd, std::uint32_t packedKind,
                                std::int32_t& created);
  /// The length of the generic stream in bytes, 0 without one.
  std::int32_t GetStreamSize();
  /// @}

  /// @name Walks
  /// A walk over the root streams moves the generic stream itself: to the first slot behind the
  /// reserved ones (in use or not; its name may be empty) when there is none, else to the slot
  /// behind its own. It ends at the first slot that is not in use, and when a slot cannot be read.
  /// The child stream is left alone. Start again with CloseStream.
  ///
  /// Names are given in one buffer of the object, which the next name overwrites.
  /// @{

  /// One step, with kWriteFlags in mode 2, else with kReadFlags. At the end closes the streams.
  int OpenNextGenericStream();
  /// Steps, with kReadFlags, to the next numbered stream: one with a name of eight hexadecimal
  /// digits, the first of them not 0 and not all of them f. At the end closes the streams.
  int OpenNextStream();
  /// One step. @return the name, or null at the end (the generic stream stays where it is)
  char* GetNextStreamName(std::uint32_t flags);
  /// The name of the generic stream, null without one.
  char* GetStreamName();
  /// One step of a walk over the children of the generic stream, in slot order, with kReadFlags.
  /// Releases what `child` holds, opens the next child into it and gives its name. A null `child`
  /// begins a new walk, and so does a generic stream that was opened or stepped to since. The place
  /// of the walk is kept with the generic stream, not in `child`, which may be released and set to
  /// another open stream in between: the walk goes on behind the child that it gave last. Whoever
  /// stops early releases `child`.
  /// @return the buffer of names, also at the end, which a null `child` tells (the buffer still has
  ///         the last name). Null, and `child` untouched, when the generic stream is no folder
  char* GetNextChildStreamName(aoStream*& child);
  /// @}

  /// @name Removing
  /// @{

  /// Removes the generic stream, which must have been opened with kStreamWrite. On failure it stays
  /// open; after a failed write it is good for CloseStream alone. The child stream is left alone:
  /// close it before.
  int RemoveGenericStream();
  /// Closes first, then removes a root stream.
  int RemoveGenericStream(const char* name);
  /// Closes first, then removes a child of a root folder.
  /// @return 1 also when there is no such child or it cannot be removed; 0 when there is no such
  ///         folder, when it is a plain stream (which is the generic stream then), and for a null
  ///         or empty `childName`
  int RemoveGenericChildStream(const char* name, const char* childName);
  /// @}

  /// @name Moving the cursor
  /// @return 1 when the streams are there, whatever became of the seek
  /// @{
  int GoToBeginningOfGenericStream();
  int GoToBeginningOfGenericChildStream();
  int GoToEndOfGenericChildStream();
  /// @}

  /// @name Writing
  /// Nothing is written, and the result is 0, for a negative size, a null pointer with a size above
  /// 0, and where the stream that would be written is a folder: its data are the records of its
  /// children.
  /// @{

  /// Writes at the cursor of the generic stream. @return 1 when all bytes were written
  int WriteGenericStream(const std::uint8_t* data, std::int32_t size);
  /// Writes at the cursor of any stream.
  int WriteGenericStream(aoStream* target, const std::uint8_t* data, std::int32_t size);
  /// Writes a child of the generic stream, which is opened or created, and released again.
  /// @param append  nonzero: behind what the child holds, else from its start
  /// @param final   nonzero: the child ends behind the last byte written
  /// @return 1 when all bytes were written
  int WriteGenericChildStream(const char* name, const std::uint8_t* data, std::int32_t size,
                              std::int32_t append, std::int32_t final);
  /// As above, in any folder.
  int WriteGenericChildStream(aoStream* folder, const char* name, const std::uint8_t* data,
                              std::int32_t size, std::int32_t append, std::int32_t final);
  /// Writes at the cursor of the child stream. @return `size` when all bytes were written, else 0
  std::uint32_t WriteGenericChildOpenedStream(const std::uint8_t* data, std::int32_t size,
                                              std::int32_t final);
  /// @}

  /// @name Reading
  /// @{

  /// Reads at the cursor of the generic stream.
  /// @return as aoStream::Read: bytes delivered, or kFailed, also for a negative size
  std::uint32_t ReadGenericStream(std::uint8_t* data, std::int32_t size);
  /// Reads at the cursor of the child stream, as above.
  std::uint32_t ReadGenericChildStream(std::uint8_t* data, std::int32_t size);
  /// Reads at the cursor of the generic stream and moves it back by `size`: to where it was, if all
  /// bytes came. Behind a shorter read it stands too far back; where that would be before the
  /// start, reads and writes fail until GoToBeginningOfGenericStream.
  /// @return bytes delivered, or -1
  std::int32_t ReadTagSeekBack(std::uint8_t* data, std::int32_t size);
  /// Moves the cursor of the generic stream forward.
  int SeekForward(std::uint32_t distance);
  /// @}

  /// @name Apart from the object's state
  /// @{

  /// The name of a numbered stream: `value` in hexadecimal, lower case, without leading zeros.
  /// @param text  room for 9 characters, or null for one buffer that the whole process shares
  /// @return the text
  char* CreateStreamName(std::uint32_t value, char* text = nullptr);
  /// Deletes the regular files in a directory whose names have no dot in them, and then the
  /// directory itself, if nothing is left in it. Follows no symbolic link in the directory. What
  /// cannot be deleted is passed over; LastError tells the first. Does nothing when the path leads
  /// to no directory.
  static void Remove(const char* path);
  /// @}

 private:
  enum class Step { kStands, kEnd, kNone };

  // What is open, null if nothing is.
  aoStorage* Storage() const;
  aoStream* Generic() const;
  aoStream* Child() const;
  std::uint32_t ModeFlags() const;
  bool Select(const char* name, std::uint32_t flags);
  Step WalkOn(std::uint32_t flags);
  char* KeepName(const aoStream& from);

  std::int32_t mode = 0;
  std::int32_t createdNew = 0;
  std::shared_ptr<detail::HeldStorage> storage;
  std::shared_ptr<detail::HeldStream> stream;
  std::shared_ptr<detail::HeldStream> childStream;
  std::array<char, 128> nameBuffer{};
  // Freed with the streams. Nothing fills it yet.
  std::shared_ptr<std::uint8_t> buffer;
  std::uint64_t bufferAux64 = 0;
  std::uint32_t bufferAux32 = 0;
};

}  // namespace aostorage

#endif  // AOSTORAGE_COMPOUND_FILE_H_
