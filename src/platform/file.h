// The operating system's file, as the library needs it. The only place that moves bytes.
#ifndef AOSTORAGE_PLATFORM_FILE_H_
#define AOSTORAGE_PLATFORM_FILE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/last_error.h"
#include "platform/write_window.h"

namespace aostorage::detail {

// Nothing at or behind this offset can be reached: file offsets are positioned with a signed 32-bit
// distance.
inline constexpr std::uint64_t kReachableEnd = 0x80000000;

// One stretch of memory in a gathering write.
struct Stretch {
  const void* data;
  std::size_t size;
};

// Tells files apart, whatever paths lead to them.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  bool operator==(const FileIdentity& other) const {
    return device == other.device && inode == other.inode;
  }
  bool operator<(const FileIdentity& other) const {
    return device != other.device ? device < other.device : inode < other.inode;
  }
};

// Notes the damage of a record at `offset` of which only `got` bytes are in the file, and gives
// false.
bool FailShort(std::uint64_t offset, std::size_t got) noexcept;

// An open regular file with positioned reads and writes. Move-only; closes in the destructor. A
// failed operation notes its reason for LastError. Interrupted calls are repeated (a bounded number
// of times in a row), short ones are finished.
class File {
 public:
  enum class Access {
    kRead,           // an existing file
    kReadWrite,      // an existing file
    kCreateNew,      // a file that must not be there yet, for reading and writing
    kCreatePrivate,  // as kCreateNew, and nobody else's to open
  };

  File() = default;
  File(File&& other) noexcept { Swap(other); }
  File& operator=(File&& other) noexcept {
    Swap(other);
    return *this;
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { Close(); }

  // Anything that is not a regular file is refused at once, without waiting for a peer.
  static File Open(const std::string& path, Access access);
  // Takes a file away by its path; for one that this library has made.
  static void Delete(const std::string& path);

  bool IsOpen() const { return descriptor >= 0; }
  void Close();

  // Bytes read, below `count` only at the end of the file; nothing on failure.
  std::optional<std::size_t> ReadAt(std::uint64_t offset, void* buffer, std::size_t count) {
    if (mapped != nullptr) return ReadMapped(offset, buffer, count);
    return window == nullptr ? ReadThrough(offset, buffer, count)
                             : window->Read(*this, offset, buffer, count);
  }
  // The same for two stretches of memory, the first of which is small.
  std::optional<std::size_t> ReadAt(std::uint64_t offset, void* first, std::size_t firstCount,
                                    void* second, std::size_t secondCount);
  // True when all `count` bytes came; a short read is damage: see FailShort.
  [[nodiscard]] bool ReadExactlyAt(std::uint64_t offset, void* buffer, std::size_t count);
  [[nodiscard]] bool WriteAt(std::uint64_t offset, const void* data, std::size_t count);
  // Writes up to kMaxStretches stretches one behind the other, in one call where the system takes
  // it whole.
  static constexpr std::size_t kMaxStretches = 16;
  [[nodiscard]] bool WriteAt(std::uint64_t offset, const Stretch* stretches,
                             std::size_t stretchCount);
  // Cuts the file, or lengthens it with zeros.
  [[nodiscard]] bool SetSize(std::uint64_t size);
  // All that was written has reached the disk, and what the system knows of the file too.
  [[nodiscard]] bool Sync();
  // All that was written has reached the disk. Once it has failed, nobody knows what has: from then
  // on no write and no further call succeeds.
  [[nodiscard]] bool SyncData();

  // Serves reads from a mapping of the file from now on, or no longer. While a read lies inside the
  // size that is known, it costs no call; a file that is cut short from outside ends the process.
  // @return whether it is as asked; false with the reason noted where no mapping can be had
  bool UseMapping(bool on);

  // Keeps what is written at the end in memory for a while, to write it in large pieces. Until
  // EndWindow nobody else may use the file. About `expected` bytes are to come.
  void BeginWindow(std::uint64_t expected) {
    window = std::make_unique<WriteWindow>(knownSize, expected);
  }
  [[nodiscard]] bool EndWindow();

  // The size of the file, asked from the system.
  std::optional<std::uint64_t> Size();
  // The size of the file is at least this; costs no call. Files of this library never shrink.
  std::uint64_t KnownSize() const { return knownSize; }
  // Whether the file has at least `size` bytes, which a damaged record may promise. Costs a call
  // only when the file was shorter when it was last looked at.
  [[nodiscard]] bool Holds(std::uint64_t size) {
    return size <= knownSize || (window == nullptr && AskStatus() && size <= knownSize);
  }
  // Whether anybody but this object has changed the file since the last call, as far as its size
  // and modification time tell. A failed call counts as a change.
  bool ChangedByOthers();

  FileIdentity Identity() const { return identity; }
  // For calls that work on more than one file.
  int Descriptor() const { return descriptor; }

 private:
  friend class WriteWindow;
  struct Moment {
    std::int64_t seconds = 0;
    std::int64_t nanoseconds = 0;
    bool operator<(const Moment& other) const {
      return seconds != other.seconds ? seconds < other.seconds : nanoseconds < other.nanoseconds;
    }
  };

  void Swap(File& other) noexcept {
    std::swap(descriptor, other.descriptor);
    std::swap(mapped, other.mapped);
    std::swap(identity, other.identity);
    std::swap(knownSize, other.knownSize);
    std::swap(expectedSize, other.expectedSize);
    std::swap(lastOwnWrite, other.lastOwnWrite);
    std::swap(othersSeen, other.othersSeen);
    std::swap(syncError, other.syncError);
    std::swap(window, other.window);
  }
  std::optional<std::size_t> ReadMapped(std::uint64_t offset, void* buffer, std::size_t count);
  std::optional<std::size_t> ReadThrough(std::uint64_t offset, void* buffer, std::size_t count);
  [[nodiscard]] bool WriteThrough(std::uint64_t offset, const Stretch* stretches,
                                  std::size_t stretchCount);
  // The step of an open behind the call; false with the reason noted.
  bool LearnStatus();
  // Asks for size and modification time; false with the reason noted when the system refuses.
  bool AskStatus();
  void NoteOwnWrite(std::uint64_t end);
  [[nodiscard]] bool MayWrite() const;
  // Notes why a call on the file failed, and gives false.
  bool FailCall(std::uint64_t offset = kNoFileOffset) const;

  int descriptor = -1;
  // All that can be reached of the file, however long it is; what lies behind its end must not be
  // touched.
  const std::uint8_t* mapped = nullptr;
  FileIdentity identity;
  std::uint64_t knownSize = 0;     // grows with what is seen and written
  std::uint64_t expectedSize = 0;  // the size that the file has if nobody else appends
  Moment lastOwnWrite;             // no own write changed the file after this
  bool othersSeen = false;         // a change by somebody else was met and not yet reported
  int syncError = 0;               // of the SyncData that failed
  std::unique_ptr<WriteWindow> window;
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_PLATFORM_FILE_H_
