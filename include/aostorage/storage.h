/// @file
/// aoStorage: one open storage file.
#ifndef AOSTORAGE_STORAGE_H_
#define AOSTORAGE_STORAGE_H_

#include <cstdint>
#include <memory>
#include <string>

#include <aostorage/export.h>
#include <aostorage/types.h>

namespace aostorage {

class aoStream;

namespace detail {
class StorageCore;
}

/// One open storage file with its root streams.
///
/// An object comes from Create, Open, OpenFast or OpenOrCreate and ends by Release. It and all its
/// streams belong to one thread at a time. Release every stream before the storage.
///
/// Failure is told by the result: null, false or 0. LastError gives the reason. Every name is a
/// NUL-terminated byte string of 1 to 60 bytes, compared byte by byte; an operation given a null,
/// empty or longer name fails and writes nothing, unless it says otherwise.
class AOSTORAGE_API aoStorage {
 public:
  aoStorage(const aoStorage&) = delete;
  aoStorage& operator=(const aoStorage&) = delete;

  /// @name Life of a storage
  /// @{

  /// Makes an empty storage file, or empties the regular file that stands at the path.
  /// @param fileName          path of any length that the platform takes
  /// @param flags             not looked at; the file is always opened for reading and writing
  /// @param defaultBlockSize  bytes reserved behind the header of each new block of a plain stream,
  /// 0 for
  ///                          none; not stored in the file
  /// @return the storage, or null. When header or directory cannot be written the result is null,
  /// and a file
  ///         that this call made is gone again.
  static aoStorage* Create(const char* fileName, std::uint32_t flags,
                           std::uint32_t defaultBlockSize);

  /// Opens a storage file and reads its directory into the name map.
  /// @param flags  kStreamWrite opens the file for writing too; other bits are not looked at
  /// @return the storage, or null when the file cannot be opened or is no storage; the file is
  /// unchanged. A
  ///         directory that breaks off gives a storage with the names read so far, and LastError
  ///         then tells the damage; it is unchanged when the whole directory was read.
  static aoStorage* Open(const char* fileName, std::uint32_t flags, std::uint32_t defaultBlockSize);

  /// Opens a storage file without reading its directory: the map is empty and only the operations
  /// on reserved slots (Fast), the first-slot walk and creations are of use. Costs one read of 32
  /// bytes.
  /// @return as Open
  static aoStorage* OpenFast(const char* fileName, std::uint32_t flags,
                             std::uint32_t defaultBlockSize);

  /// Opens as Open does. If no file stands at the path, or one of 0 bytes, makes a new storage as
  /// Create does.
  /// @return the storage, or null. A file that stands there and is no storage is refused and
  /// untouched.
  static aoStorage* OpenOrCreate(const char* fileName, std::uint32_t flags,
                                 std::uint32_t defaultBlockSize);

  /// Writes what a storage holds to a new file without gaps, which then takes the place of the
  /// file at `path`, whatever stood there. Nothing else gives space in a storage file back.
  ///
  /// Every root stream that the map of `storage` has is carried, with its kind, its bytes and all
  /// that is in it, in the order of the cookie iteration. Durations become 0 and streams of
  /// reserved slots ordinary ones; the new file has the current form. The new file is made beside
  /// `path`, under that name with "_tmp" appended, read back, flushed to the disk, given the mode
  /// and the owner of the old file, and renamed: at every moment `path` leads to the old file or to
  /// the new one, whole. A symbolic link at `path` stays. Only where a rename cannot do (a file
  /// with further hard links, an owner that cannot be given, a link to another file system) is the
  /// content copied over; a break in that copy leaves the whole new file at the temporary path.
  ///
  /// Release all streams of `storage` before.
  /// @param storage  the source, from Open or Create; it ends unless it comes back
  /// @return the storage at `path`, open for reading and writing: never the old pointer. `storage`
  ///         itself, still open, when anything cannot be carried whole or the new file cannot be
  ///         made and put in place: nothing is replaced then and the temporary file is gone. Null
  ///         when the new file is in place and cannot be opened, or copying over broke off;
  ///         `storage` has ended.
  static aoStorage* Recreate(aoStorage* storage, const char* path);
  /// As above, followed by `progress`, which may be empty. One that gives up counts as a failure.
  static aoStorage* Recreate(aoStorage* storage, const char* path, const RebuildProgress& progress);
  /// Rebuilds the storage file at `path` in its place.
  /// @return 1, or 0: the file is no storage, or nothing was replaced, or copying over broke off
  static int Recreate(const char* path);
  /// As above, followed by `progress`, which may be empty.
  static int Recreate(const char* path, const RebuildProgress& progress);

  /// Closes the file and ends this object.
  void Release();

  /// Sees to it that everything written so far through this object, by its streams too, has reached
  /// the disk. Nothing else does: a crash of the machine can lose what was written and not synced.
  /// Open for reading only, it does the same for what others have written to the file by now. The
  /// name of a file that was just made is its directory's, which is not flushed.
  /// @return true when all is on the disk. After a failure nobody knows what is: from then on every
  /// write and Sync of this object and its streams fails with ErrorCode::kSyncFailed, while reading
  /// goes on. Open the file anew to go on writing.
  bool Sync();

  /// Serves reads from a mapping of the file into memory from now on, or no longer: reading then
  /// costs a copy instead of a call of the system. Nothing else changes: each write has reached the
  /// system when it returns, and what others write to the file is seen as before. Off at the start.
  ///
  /// The price: where somebody cuts the file short while it is mapped, or its disk fails, a read
  /// does not fail but ends the process with a signal (SIGBUS). This library shortens a file only
  /// in Create on its path and in a Recreate that cannot put a new file in its place. The mapping
  /// takes 2 GiB of the process's addresses, and no memory.
  /// @return true when it is as asked. False where no mapping can be had (no addresses, a file
  /// system without): reads go on as before.
  bool UseMapping(bool on);

  /// The file name as it was given. Valid for the life of the object.
  const char* GetPath() const;
  /// @}

  /// @name Root streams
  /// Each stream returned is the caller's, to end by aoStream::Release or aoStream::Remove.
  /// @{

  /// Creates a root stream in the first free ordinary slot; the directory grows when none is free.
  /// In a slot whose stream was removed, the new stream takes over the old chain of blocks.
  /// @param packedKind  see PackKind
  /// @return the stream, its cursor at the start, or null: the name is in the map, or the file
  /// cannot be
  ///         written. A created stream has no registry record and meets no sharing rule.
  aoStream* CreateStream(const char* name, std::uint32_t packedKind, std::uint32_t flags);
  /// Creates a plain root stream of duration 0.
  aoStream* CreateStream(const char* name, std::uint32_t flags);
  /// As CreateStream, in the first free reserved slot. Fails when none is free.
  aoStream* CreateStreamFast(const char* name, std::uint32_t packedKind, std::uint32_t flags);
  /// As CreateStream, in the first free reserved slot. Fails when none is free.
  aoStream* CreateStreamFast(const char* name, std::uint32_t flags);

  /// Opens the root stream that the map holds under `name`. Costs one read of 80 bytes.
  /// @return the stream, or null: no such name, a sharing rule, or a damaged header
  aoStream* OpenStream(const char* name, std::uint32_t flags);
  /// Opens a root stream in a reserved slot; the map is not used. Costs one read.
  aoStream* OpenStreamFast(const char* name, std::uint32_t flags);
  /// Opens the root stream whose header lies at `offset`.
  /// @param name  key in the registry of open streams; not compared with the header's name
  aoStream* OpenStreamByOffset(const tag_aoStreamOffset& offset, const char* name,
                               std::uint32_t flags);
  /// Opens a root stream with the flags kWriteFlags, or creates it when the map has no such name.
  aoStream* OpenOrCreateStream(const char* name, std::uint32_t packedKind);
  /// Opens a stream in a reserved slot with the flags kWriteFlags, or creates a plain one there.
  /// @param toEnd  nonzero: the cursor is placed at the end, so that the next write appends
  aoStream* OpenOrCreateStreamFast(const char* name, int toEnd);
  /// Takes the name out of the map and leaves the stream in the file: the next Open finds it again.
  /// To remove a stream for good use aoStream::Remove.
  /// @return true when the name was in the map
  bool RemoveStream(const char* name);
  /// @}

  /// @name Walks over root streams
  /// @{

  /// Sets the order of the cookie iteration: as the map has it, or sorted by the bytes of the
  /// names. Takes effect at the next start of a walk; `sortEnabled` must not change within one.
  void EnableSorting(int sortEnabled, int sortDescending);
  /// Starts a cookie iteration.
  /// @param cookie  receives the place of the next stream; unchanged when there is no stream at all
  /// @return the first stream, open, or null: none, or it cannot be opened (the cookie has moved on
  /// then)
  aoStream* OpenStreamFirst(StreamCookie& cookie, std::uint32_t flags);
  /// Goes on with a cookie iteration.
  /// @return the stream, or null at the end, at a stale cookie, and for a stream that cannot be
  /// opened; in
  ///         the last case the cookie stands behind it and is not at its end mark unless it was the
  ///         last
  aoStream* OpenStreamNext(StreamCookie& cookie, std::uint32_t flags);
  /// Opens the first slot behind the reserved ones, in use or not; aoStream::GoNext moves on from
  /// there. Uses no map.
  aoStream* OpenStreamFirst(std::uint32_t flags);
  /// Gathers the names of all slots in use from the directory and opens the first.
  /// @param position  receives the index in that list
  aoStream* OpenStreamFirst2(int& position, std::uint32_t flags);
  /// Opens the next stream of the list that OpenStreamFirst2 gathered.
  aoStream* OpenStreamNext2(int& position, std::uint32_t flags);
  /// One step of a sorted scan over names and locators. Opens nothing and makes no call on the
  /// file.
  /// @return 1 when `iteration` holds a further entry, 0 at the end
  int IterateSortedStreamsNoOPENS(CIterateSortedStreams* iteration);
  /// Opens the first root folder of that name for reading; the empty name finds the first folder.
  aoStream* FindRootStorage(const char* name);
  /// As FindRootStorage, with kWriteFlags.
  aoStream* FindRootStorageWrite(const char* name);
  /// Opens the first plain root stream of that name for reading; the empty name finds the first
  /// one.
  aoStream* FindRootStream(const char* name);
  /// The stored child count of a root folder, vacated slots included. 0 for a plain stream and on
  /// failure.
  std::uint32_t GetSubfolderCount(const char* name);
  /// @}

  /// @name Entries at the root
  /// Small named values in plain root streams, one call each. The plain members find the name in
  /// the map, the Fast members in the reserved slots of the file. See aoStream::GetEntry and
  /// aoStream::SetEntry for the payloads and results.
  /// @{
  std::int32_t GetEntry(const char* name, std::int32_t defaultValue);
  std::int64_t GetEntry(const char* name, std::int64_t defaultValue);
  double GetEntry(const char* name, double defaultValue);
  std::string GetEntry(const char* name, const char* defaultValue);
  std::int32_t GetEntryFast(const char* name, std::int32_t defaultValue);
  std::int64_t GetEntryFast(const char* name, std::int64_t defaultValue);
  double GetEntryFast(const char* name, double defaultValue);
  std::string GetEntryFast(const char* name, const char* defaultValue);

  /// @return 1 when the stream was obtained, whatever became of the write; else 0
  int SetEntry(const char* name, std::int32_t value);
  int SetEntry(const char* name, std::int64_t value);
  int SetEntry(const char* name, double value);
  int SetEntry(const char* name, const char* value);
  int SetEntryFast(const char* name, std::int32_t value);
  int SetEntryFast(const char* name, std::int64_t value);
  int SetEntryFast(const char* name, double value);
  int SetEntryFast(const char* name, const char* value);
  /// Stores bare bytes that end where `buffer` ends.
  /// @return 1 for a count of 0 (nothing is done), 0 when the stream is not obtained, else what the
  /// write
  ///         gave: `count`, or -1
  int SetEntryEraseOld(const char* name, const void* buffer, std::uint32_t count);
  /// Reads the first `size` bytes of the entry.
  /// @return 1 when exactly `size` bytes came, else 0; a buffer larger than the entry is refused
  /// untouched
  int GetEntryErasedOld(const char* name, void* buffer, std::uint32_t size);
  /// @}

 private:
  explicit aoStorage(std::shared_ptr<detail::StorageCore> openCore);
  template <typename OpenBody>
  static aoStorage* Make(const char* operationName, const char* fileName, OpenBody openCore);
  ~aoStorage();

  std::shared_ptr<detail::StorageCore> core;
};

}  // namespace aostorage

#endif  // AOSTORAGE_STORAGE_H_
