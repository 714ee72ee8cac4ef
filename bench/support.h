/// @file
/// What all benchmarks share: a place for their files, owners of library objects, names and orders
/// that are the same in every run.
#ifndef AOSTORAGE_BENCH_SUPPORT_H_
#define AOSTORAGE_BENCH_SUPPORT_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <aostorage/aostorage.h>

namespace aobench {

/// A directory of its own for the files of one benchmark, removed with all that is in it.
class TempDir {
 public:
  /// Made in AOSTORAGE_BENCH_DIR, or where that is not set in TMPDIR, or in /tmp.
  TempDir();
  explicit TempDir(const std::string& base);
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& Path() const { return path; }
  /// Path of the file `name` in it. Where the directory could not be made, no file can be made
  /// there either.
  std::string File(const char* name) const { return path + "/" + name; }

 private:
  std::string path;
};

struct StorageReleaser {
  void operator()(aostorage::aoStorage* storage) const { storage->Release(); }
};
struct StreamReleaser {
  void operator()(aostorage::aoStream* stream) const { stream->Release(); }
};
using StoragePtr = std::unique_ptr<aostorage::aoStorage, StorageReleaser>;
using StreamPtr = std::unique_ptr<aostorage::aoStream, StreamReleaser>;

/// Removes the stream and ends the object. A null stream is a failure.
bool RemoveStream(StreamPtr stream);

/// One step of SplitMix64. Standard generators and shuffles may differ between standard libraries;
/// this one does not.
std::uint64_t NextRandom(std::uint64_t& state);

/// The numbers 0 to count - 1 in an order that looks random and depends on `count` and `seed`
/// alone.
std::vector<std::uint32_t> Shuffled(std::size_t count, std::uint64_t seed);

/// `count` names of 10 characters, ascending: the prefix letter and nine digits.
std::vector<std::string> NumberedNames(char prefix, std::size_t count);

}  // namespace aobench

#endif  // AOSTORAGE_BENCH_SUPPORT_H_
