// The files of the machine that data comes from and goes to.
#ifndef AOSTORAGE_TOOLS_FILES_H_
#define AOSTORAGE_TOOLS_FILES_H_

#include <fcntl.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "report.h"

namespace aotool {

// Owns a file descriptor.
class Descriptor {
 public:
  explicit Descriptor(int descriptor = -1) : number(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : number(other.number) { other.number = -1; }
  Descriptor& operator=(Descriptor&& other) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { Close(); }

  int Number() const { return number; }
  explicit operator bool() const { return number >= 0; }
  bool Close();
  // Gives the descriptor up without closing it.
  void Release() { number = -1; }

 private:
  int number;
};

// Which file it is, whatever its path.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;

  // An unknown file equals none.
  bool operator==(const FileIdentity& other) const {
    return inode != 0 && device == other.device && inode == other.inode;
  }
  // Of an open descriptor; that of no file when it cannot be told.
  static FileIdentity Of(int descriptor);
  // Of what stands at the path, links followed.
  static FileIdentity At(const std::string& path);
};

bool IsRegularFile(int descriptor);

// Bytes of the file at the path; 0 when nobody can tell.
std::uint64_t SizeOfFile(const std::string& path);

// What keeps the content of an open file from being stored: a directory has none, and no store
// takes more than 2 GiB.
Result CheckInput(int descriptor);

// Opens a file for reading, "-" and "" being standard input. A file that is not there is kNotFound.
// `store` must not be the input. Unless `isStored` is false, CheckInput must agree.
Result OpenInput(const std::string& path, const FileIdentity& store, Descriptor& input,
                 bool isStored = true);

// Fills `size` bytes of `buffer` unless the input ends before. `count` receives what came. Fails
// when it is interrupted.
Result ReadPiece(int input, std::uint8_t* buffer, std::size_t size, std::size_t& count);

// A file that receives data. It is made when the first data comes or Finish is called, so that an
// earlier failure leaves no trace. A file that this object made and did not finish is removed.
class OutputFile {
 public:
  enum class IfThere {
    kOverwrite,  // write into the file that stands there
    kRefuse,     // leave it alone
    kReplace,    // put a finished new file in its place; only a regular file or a link is replaced
  };

  // "-" and "" are standard output. Otherwise the path is relative to the directory. With kRefuse
  // and kReplace a link at the path is never followed.
  OutputFile(int inDirectory, std::string outputPath, IfThere rule, const FileIdentity& storeFile);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();

  Result Write(const std::uint8_t* data, std::size_t size);
  Result Finish();

 private:
  Result Open();
  Result OpenExisting();
  Result OpenBesideExisting();

  int directory;
  std::string path;
  IfThere ifThere;
  FileIdentity store;
  Descriptor file;
  std::string made;  // the name of the file that was made here, empty when none was
};

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_FILES_H_
