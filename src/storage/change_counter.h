// Lets the storage objects of one process that stand on the same file notice each other's writes.
#ifndef AOSTORAGE_STORAGE_CHANGE_COUNTER_H_
#define AOSTORAGE_STORAGE_CHANGE_COUNTER_H_

#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/file.h"

namespace aostorage::detail {

// One storage object's view of the counter that all storage objects on its file share. Each counts
// its own writes; a count that rose otherwise is somebody else's.
class ChangeCounter {
 public:
  ChangeCounter() = default;
  explicit ChangeCounter(const FileIdentity& file);

  // This object is about to write, or has written.
  void CountOwn();
  // Whether another object has written since the last call.
  bool OthersWrote();
  // How many objects stand on the file.
  static long HoldersOf(const FileIdentity& file);

 private:
  std::shared_ptr<std::atomic<std::uint64_t>> shared;
  std::uint64_t seen = 0;
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_STORAGE_CHANGE_COUNTER_H_
