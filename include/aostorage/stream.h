/// @file
/// aoStream: one open stream, root or child, plain or folder.
#ifndef AOSTORAGE_STREAM_H_
#define AOSTORAGE_STREAM_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <aostorage/export.h>
#include <aostorage/types.h>

namespace aostorage {

namespace detail {
class StreamCore;
struct StreamMaker;
}  // namespace detail

// Objects of a storage end by Release and Remove, never through a base pointer: the destructor is
// meant so.
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

/// One open stream of a storage file.
/// Objects come from the opening and creating operations and end by Release or a successful Remove;
/// the destructor closes nothing. An object has a copy of its stream's header, taken at the open,
/// and a cursor shared by reading and writing. A parent object outlives its open children, the
/// storage outlives both.
///
/// Nothing is buffered: when Write returns, all it did has reached the operating system, and the
/// file is readable whatever fails. LastError gives the reason of a failure.
class AOSTORAGE_API aoStream {
 public:
  aoStream(const aoStream&) = delete;
  aoStream& operator=(const aoStream&) = delete;
  /// Frees what the object holds in memory. Streams of a storage end by Release instead.
  ~aoStream();

  /// @name Data
  /// @{

  /// Reads up to `count` bytes at the cursor and moves it.
  /// @return bytes delivered, below `count` at the end of the chain of blocks and 0 behind it;
  /// kFailed when a
  ///         block cannot be read or is damaged. Bytes of `buffer` behind the count returned are
  ///         untouched. Reading stops at the end of the chain, not at GetLength: after SetLength
  ///         and Erase the old bytes can still be read.
  virtual std::uint32_t Read(void* buffer, std::uint32_t count);

  /// Appends or overwrites `count` bytes at the cursor and moves it. Access flags are not tested.
  /// @param final  true: the stream ends here; its length and the last block's use fall if they
  /// stood higher
  /// @return `count`, or kFailed when a block could not be made, read or rewritten. What earlier
  /// blocks of the
  ///         same call took is in the file and counted in the length.
  virtual std::uint32_t Write(const void* buffer, std::uint32_t count, bool final = false);
  /// @}

  /// @name State
  /// @{
  int IsFolder() const;                 ///< 1 for a folder, else 0
  std::uint16_t GetDuration() const;    ///< whole minutes
  const char* GetName() const;          ///< valid for the life of the object, changed by Rename
  std::uint32_t GetCurDataPos() const;  ///< bytes of the stream before the cursor
  std::uint32_t GetNumChildren()
      const;  ///< slots of a folder as last read, vacated ones included; 0 before
  std::uint32_t GetLength() const;  ///< bytes of the stream as this object knows them
  /// @}

  /// @name Positioning and length
  /// @{

  /// Moves the cursor. Origin 0: `distance` from the start. Origin 1: `distance` back from the end
  /// (the length). Origin 2: from the cursor, forward or back.
  /// @return 0, or kFailed: the place is outside the chain, a block is damaged, or the origin is
  /// unknown
  ///         (nothing moves then). After any other failure Read and Write fail until a seek from
  ///         the start or the end succeeds.
  std::uint32_t Seek(std::uint32_t distance, std::uint8_t origin, bool forward = true);
  /// Moves the cursor. Origin 0: from the start, a negative offset counts back from the end. Origin
  /// 1: from the cursor. Any other origin rewinds.
  /// @return 0, or -1 on failure as in Seek
  std::int32_t Seek2(std::int32_t offset, std::uint32_t origin);
  /// Lowers the length and rewinds. Blocks and their bytes stay; only the length changes.
  /// @return false without kStreamWrite or for a length above the present one (nothing changed),
  /// and when the
  ///         header cannot be written
  bool SetLength(std::uint32_t newLength);
  /// Sets the length to 0 and rewinds. The blocks stay and are used again by later writes.
  /// @return false without kStreamWrite (nothing changed) and when the header cannot be written
  bool Erase();
  /// Moves the object to the next slot of the root directory, as if it had been released and the
  /// next stream opened. No sharing rule is applied.
  /// @return false at the first slot that is not in use, at the end and for a child; the object
  /// stays
  bool GoNext();
  /// Ends the object. Nothing is written.
  /// @return the use count that the stream's registry record had, -1 when there is none, 0 for an
  /// empty name
  int Release();
  /// @}

  /// @name Values
  /// A value is its bytes, little-endian, without a tag. A string is a 16-bit byte count and the
  /// bytes; strings above 65,535 bytes keep the low 16 bits of their length. A null pointer is the
  /// empty string. Failures do not show: LastError tells them, also a value that the stream has too
  /// few bytes for.
  /// @{
  aoStream& operator<<(std::uint16_t value);
  aoStream& operator<<(std::int32_t value);
  aoStream& operator<<(std::uint32_t value);
  aoStream& operator<<(std::int64_t value);
  aoStream& operator<<(double value);
  aoStream& operator<<(const std::string& value);
  aoStream& operator<<(const char* value);
  aoStream& operator>>(std::uint16_t& value);
  aoStream& operator>>(std::int32_t& value);
  aoStream& operator>>(std::uint32_t& value);
  aoStream& operator>>(std::int64_t& value);
  aoStream& operator>>(double& value);
  aoStream& operator>>(std::string& value);
  /// @}

  /// @name Whole streams
  /// @{

  /// Replaces the destination's content by GetLength bytes of this stream, read at its cursor:
  /// rewind first. The whole stream is held in memory.
  /// @return false for a length of 0 (the destination is erased), when the source has fewer bytes
  /// (erased),
  ///         when memory or a write fails, and for a copy onto itself or null (nothing changed)
  bool CopyStream(aoStream* destination);
  /// Reads GetLength bytes at the cursor into a new buffer that the caller gives back with
  /// FreeBuffer.
  /// @return their count; 0 with a null `buffer` for an empty stream and on failure
  std::uint32_t CopyStreamToBuffer(std::uint8_t*& buffer);
  /// Gives a buffer of the library's heap back and sets the pointer to null. Null is taken.
  static void FreeBuffer(std::uint8_t*& buffer);
  /// A zero-filled buffer of the library's heap, or null.
  static std::uint8_t* AllocateBuffer(std::size_t size);
  /// @}

  /// @name Children of a folder
  /// These move the folder's cursor. Sharing rules act among the children opened through one folder
  /// object.
  /// @{

  /// Finds a child's header and place.
  bool FindStream(const char* name, tag_aoStream& header, tag_aoStreamOffset& offset);
  /// Adds a child header in the first vacated slot, or behind the last slot, and opens nothing. The
  /// count word of the folder is not written: CreateStream does the whole.
  bool AddStreamHeader(const char* name, std::uint32_t packedKind, tag_aoStream& header,
                       tag_aoStreamOffset& offset);
  /// Creates a child and opens it.
  /// @return the child, or null: no folder, the name is taken, a sharing rule, or a failed write
  aoStream* CreateStream(const char* name, std::uint32_t packedKind, std::uint32_t flags);
  /// Opens a child. @return the child, or null
  aoStream* OpenStream(const char* name, std::uint32_t flags);
  /// Opens a child with kWriteFlags, or creates it.
  aoStream* OpenOrCreateStream(const char* name, std::int32_t packedKind);
  /// Opens a child with `flags`, or creates it.
  aoStream* OpenOrCreateStream(const char* name, std::uint32_t packedKind, std::uint32_t flags);
  /// The registry record of a child that is open through this object, or null. Valid until the
  /// child closes.
  t_OpenStream* IsStreamOpen(const char* name);

  /// Starts a walk over the children in slot order.
  /// @param cookie  receives the place behind the slot looked at last; it stays valid across other
  /// operations
  /// @return the first child, open, or null: none, or it cannot be opened
  aoStream* OpenStreamFirst(std::uint32_t& cookie, std::uint32_t flags);
  /// Goes on with a walk.
  aoStream* OpenStreamNext(std::uint32_t& cookie, std::uint32_t flags);
  /// Appends the names of the children to `names`, in slot order. Stops at a child that cannot be
  /// opened.
  void EnumStreams(std::vector<std::string>& names);
  /// Gives the stream another name; one of more than 60 bytes is cut. Siblings are not looked at.
  /// @return false without kStreamWrite, for a null or empty name, and when the header cannot be
  /// written
  bool Rename(const char* newName);
  /// Removes the stream, a folder with all its children, and ends the object. The slot is free for
  /// the next creation, which takes over the chain of blocks.
  /// @return false without kStreamWrite and when a header cannot be written; the object lives on
  bool Remove();
  /// Removes all children of a folder. Does nothing on a plain stream.
  void ClearFolder();
  /// Copies what this folder holds, all the way down, over what `destination` holds: a child of the
  /// same name and kind there is merged with or replaced, one of the other kind is removed first,
  /// any other stays. Durations are not carried. Both may belong to one storage or to two. On a
  /// plain stream this is CopyStream.
  /// @return true when every child was copied. False for a child that cannot be opened, made or
  ///         copied whole, and for a plain child of length 0 (its copy is there, and as empty); the
  ///         rest is copied all the same. False, and nothing is written, when one of the two is the
  ///         other or lies inside it, and for a plain stream into a folder.
  bool CopyFolder(aoStream* destination);
  /// @}

  /// @name Entries
  /// Small named values in plain child streams of a folder, one call each.
  ///
  /// A typed entry has its value at offset 0: integers and doubles little-endian, a string as a
  /// 16-bit byte count and its bytes, a size and a rectangle as signed 32-bit numbers. A new value
  /// overwrites in place and does not cut: length only rises. A log entry (SetEntry with a byte
  /// count) has at offset 0 the 32-bit offset of its newest value, and every value written since,
  /// oldest first. An erased entry is the bare bytes of its last value.
  /// @{

  /// The value, or the default: no folder, no such child, a folder in the way, a sharing rule, too
  /// few bytes.
  std::int32_t GetEntry(const char* name, std::int32_t defaultValue);
  std::uint32_t GetEntry(const char* name, std::uint32_t defaultValue);
  std::int64_t GetEntry(const char* name, std::int64_t defaultValue);
  double GetEntry(const char* name, double defaultValue);
  /// As above. An entry without any byte gives the empty string, not the default. Bytes that the
  /// count promises and the stream does not have are 0. A null default is the empty string.
  std::string GetEntry(const char* name, const char* defaultValue);
  /// Fills `out` with the value or the default. @return `out`
  tagSIZE* GetEntry(const char* name, tagSIZE* out, const tagSIZE* defaultValue);
  tagRECT* GetEntry(const char* name, tagRECT* out, const tagRECT* defaultValue);

  /// @return 1 when the child was obtained, whatever became of the write; 0: no folder, an unusable
  /// name, a
  ///         folder in the way, a sharing rule, no room
  int SetEntry(const char* name, std::int32_t value);
  int SetEntry(const char* name, std::uint32_t value);
  int SetEntry(const char* name, std::int64_t value);
  int SetEntry(const char* name, double value);
  int SetEntry(const char* name, const char* value);
  int SetEntry(const char* name, const tagSIZE* value);
  int SetEntry(const char* name, const tagRECT* value);
  /// Appends a value to a log entry. A count of 0 does nothing and gives 1.
  int SetEntry(const char* name, const void* buffer, std::uint32_t count);
  /// Stores bare bytes that end where `buffer` ends.
  /// @return 1 for a count of 0 (nothing is done), 0 when the child is not obtained, else what the
  /// write gave:
  ///         `count`, or -1
  int SetEntryEraseOld(const char* name, const void* buffer, std::uint32_t count);
  /// All bytes of the entry in a new buffer that the caller gives back with FreeBuffer; null and 0
  /// for an empty one. @return 1, or 0 with null and 0
  int GetEntryErasedOld(const char* name, std::uint8_t** buffer, std::uint32_t* size);
  /// The first `size` bytes of the entry. @return 1 when exactly `size` bytes came, else 0; a
  /// buffer larger than the entry is refused untouched
  int GetEntryErasedOld(const char* name, void* buffer, std::uint32_t size);
  /// @}

 protected:
  /// An object without a stream: for classes that replace Read and Write. Everything else fails on
  /// it.
  aoStream();

 private:
  friend struct detail::StreamMaker;
  explicit aoStream(std::unique_ptr<detail::StreamCore> openCore);

  std::unique_ptr<detail::StreamCore> core;
};

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

}  // namespace aostorage

#endif  // AOSTORAGE_STREAM_H_
