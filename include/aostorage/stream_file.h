/// @file
/// CAoStreamFile: an open stream behind the generic file interface CFile.
#ifndef AOSTORAGE_STREAM_FILE_H_
#define AOSTORAGE_STREAM_FILE_H_

#include <cstdint>
#include <string>

#include <aostorage/export.h>

namespace aostorage {

class aoStream;
class CFile;

/// What a class of files tells about itself at run time.
struct CRuntimeClass {
  const char* className;           ///< the name as the source has it
  std::uint32_t schema;            ///< 0xFFFF: objects are not stored by class
  CFile* (*create)();              ///< makes an object; null: the class offers none
  const CRuntimeClass* baseClass;  ///< null at the root
};

// CAoStreamFile has operations of its own under names of CFile. That is meant so; g++ gives its
// warning where the hidden operation stands, clang where the hiding one does.
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Woverloaded-virtual"
#endif

/// The generic file interface. The class itself stands for a file that is not open: its operations
/// give 0, false, null or the empty string and do nothing, but for the path.
class AOSTORAGE_API CFile {
 public:
  static const CRuntimeClass classCFile;

  CFile();
  virtual ~CFile();
  CFile(const CFile&) = default;
  CFile& operator=(const CFile&) = default;

  /// The record of the object's class. Never null.
  virtual const CRuntimeClass* GetRuntimeClass() const;
  virtual std::uint64_t GetPosition() const;  ///< bytes before the cursor
  virtual std::string GetFileName() const;
  virtual std::string GetFileTitle() const;
  /// The path that SetFilePath stored; empty before, and when there is no memory.
  virtual std::string GetFilePath() const;
  /// Stores a path for GetFilePath and opens nothing. Without memory the old path stays.
  /// @throws std::invalid_argument  for null: the one exception that leaves the library
  virtual void SetFilePath(const char* path);
  virtual bool Open(const char* path, std::uint32_t openFlags);
  /// A second object on the same file, the caller's to delete, or null.
  virtual CFile* Duplicate() const;
  /// Moves the cursor. @return its place
  virtual std::uint64_t Seek(std::int64_t offset, std::uint32_t origin);
  virtual void SetLength(std::uint64_t newLength);
  virtual std::uint64_t GetLength() const;
  /// @return bytes delivered
  virtual std::uint32_t Read(void* buffer, std::uint32_t count);
  virtual void Write(const void* buffer, std::uint32_t count);
  virtual void LockRange(std::uint64_t position, std::uint64_t count);
  virtual void UnlockRange(std::uint64_t position, std::uint64_t count);
  virtual void Abort();
  virtual void Flush();
  virtual void Close();
  /// Gives direct access to a file's memory, if it has any. @return bytes at `start`
  virtual std::uint32_t GetBufferPtr(std::uint32_t command, std::uint32_t count, void** start,
                                     void** end);

 private:
  std::string filePath;
};

/// Lets code that knows files as CFile read and write an open stream.
///
/// The stream stays the caller's: nothing here releases it, and it must outlive the adapter. Only
/// Read and Write reach it through a pointer to CFile. Length, seek and name are operations of this
/// class alone and hide those of CFile, which a pointer to CFile still calls, on a file that is not
/// open.
class AOSTORAGE_API CAoStreamFile : public CFile {
 public:
  static const CRuntimeClass classCAoStreamFile;
  static const CRuntimeClass* GetThisClass();   ///< &classCAoStreamFile
  static const CRuntimeClass* _GetBaseClass();  ///< &CFile::classCFile

  /// An adapter without a stream; nothing binds one later.
  CAoStreamFile();
  /// @param stream  null, or an open stream: of a storage, or an aoStream2
  explicit CAoStreamFile(aoStream* stream);
  ~CAoStreamFile() override;

  const CRuntimeClass* GetRuntimeClass() const override;
  CFile* Duplicate() const override;  ///< null
  /// What the stream's Read gives, kFailed included; kFailed without a stream.
  std::uint32_t Read(void* buffer, std::uint32_t count) override;
  /// The stream's Write. A failure does not show: clear LastError before to see it there.
  void Write(const void* buffer, std::uint32_t count) override;
  void Abort() override;  ///< does nothing
  void Flush() override;  ///< does nothing: the stream has no buffer
  void Close() override;  ///< does nothing: the stream stays open

  // The next three do nothing, and LastError says kWrongKind.
  void LockRange(std::uint32_t position, std::uint32_t count);    ///< does nothing
  void UnlockRange(std::uint32_t position, std::uint32_t count);  ///< does nothing
  void SetLength(std::uint32_t newLength);  ///< does nothing: the stream keeps its length
  /// The stream's name; empty without a stream, and when there is no memory.
  std::string GetStorageName();
  /// The stream's length, 0 without a stream.
  std::uint32_t GetLength();
  /// Moves the stream's cursor as aoStream::Seek2 does. Origin 0: from the start, a negative offset
  /// counts back from the end. Origin 1: from the cursor. Any other origin rewinds.
  /// @return 0, or -1 on failure and without a stream
  std::int32_t Seek(std::int32_t offset, std::uint32_t origin);

 private:
  aoStream* boundStream = nullptr;
};

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

}  // namespace aostorage

#endif  // AOSTORAGE_STREAM_FILE_H_
