/// @file
/// Every public operation over one file, whatever its bytes: what each of them costs is counted and
/// held against the size of the file.
#ifndef AOSTORAGE_TESTS_SUPPORT_GAUNTLET_H_
#define AOSTORAGE_TESTS_SUPPORT_GAUNTLET_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <aostorage/inspect.h>

#include "support/budget.h"
#include "support/handles.h"
#include "support/raw_file.h"

namespace aostorage::testing {

/// A file in a directory of its own.
class Gauntlet {
 public:
  /// What the operations ask for at the root, at least three names, and in folders. The first two
  /// are changed most, the third is never changed.
  using Names = std::vector<std::string>;
  explicit Gauntlet(const std::string& file,
                    Names rootNames = {"target", "folder", "sound", "gone", "f", "none"},
                    Names childNames = {"child", "sub", "gone", "none"});

  /// All that reads, in every opening mode, the inspection included. The bytes may not change.
  void Read();
  /// All that writes. Starts from `bytes` anew for each group of operations; `after` runs behind
  /// each of them.
  void Write(const Bytes& bytes, const std::function<void()>& after);
  /// Copies and rebuilds: all or nothing. `sound`: may not be refused.
  void Carry(const Bytes& bytes, bool sound);
  /// The inspection in both modes alone.
  void Inspect();

  /// Allows operations more memory than the file's size gives them.
  void Allow(std::uint64_t bytes) { run.moreMemory = bytes; }

 private:
  std::uint64_t SizeNow() const;
  Names Ways() const;  // paths
  void ReadStorage(aoStorage& storage);
  void WalkRoots(aoStorage& storage);
  void ReadStream(aoStream& stream, int depth);
  void ReadFolder(aoStream& folder, int depth);
  void ReadThroughOthers();
  void CheckStreams(const Inspection& found);
  void WriteRoots(aoStorage& storage);
  void WritePlain(aoStream& stream);
  void WriteFolder(aoStream& folder);
  void WriteThroughOthers();
  void Copy(const Bytes& bytes, const std::string& goal, bool sound);

  const std::string path;
  const Names roots, children;
  Budget run;
};

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_GAUNTLET_H_
