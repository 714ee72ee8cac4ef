#include "storage/change_counter.h"

#include <map>
#include <mutex>

namespace aostorage::detail {
namespace {

using Counter = std::atomic<std::uint64_t>;

// The counters of the files that are open in this process. Storage objects of different threads may
// stand on one file, so this is guarded though nothing else in the library is.
struct Counters {
  std::mutex mutex;
  std::map<FileIdentity, std::weak_ptr<Counter>> byFile;
};

Counters& AllCounters() {
  static Counters counters;
  return counters;
}

}  // namespace

ChangeCounter::ChangeCounter(const FileIdentity& file) {
  Counters& counters = AllCounters();
  const std::lock_guard<std::mutex> lock(counters.mutex);
  for (auto it = counters.byFile.begin(); it != counters.byFile.end();) {
    it = it->second.expired() ? counters.byFile.erase(it) : std::next(it);
  }
  std::weak_ptr<Counter>& slot = counters.byFile[file];
  shared = slot.lock();
  if (shared == nullptr) slot = shared = std::make_shared<Counter>(0);
  seen = shared->load();
}

long ChangeCounter::HoldersOf(const FileIdentity& file) {
  Counters& counters = AllCounters();
  const std::lock_guard<std::mutex> lock(counters.mutex);
  const auto found = counters.byFile.find(file);
  return found == counters.byFile.end() ? 0 : found->second.use_count();
}

void ChangeCounter::CountOwn() {
  // A single holder has nobody to tell.
  if (shared == nullptr || shared.use_count() == 1) return;
  std::uint64_t expected = seen;
  if (shared->compare_exchange_strong(expected, seen + 1)) {
    ++seen;
  } else {
    shared->fetch_add(1);  // and `seen` stays behind: the others' writes are yet to be noticed
  }
}

bool ChangeCounter::OthersWrote() {
  if (shared == nullptr) return false;
  const std::uint64_t now = shared->load();
  if (now == seen) return false;
  seen = now;
  return true;
}

}  // namespace aostorage::detail
