/// @file
/// Small named values, one call each, beside the same work in other stores.
///
///   set_new     n new entries in ascending order of their names
///   get         every entry once, in random order, on a file whose entries have all been read
///   before set_again   every entry once, in another random order, with another value of the same
///   size open_get    the file opened, one entry read, the file closed: one item is the whole of it
///   scan        all names in ascending order; scan_first includes the making of the order
///
/// The values are a 32-bit integer (4 bytes), a 64-bit integer (8 bytes) and bare bytes (32 and
/// 200).
#include <cstdio>
#include <cstring>
#include <utility>

#include "bare_file.h"
#include "entry_store.h"

namespace aobench {
namespace {

using namespace aostorage;

constexpr StoreKind kKinds[] = {
    {"aostorage_folder", OpenFolderStore},
    {"aostorage_root", OpenRootStore},
#ifdef HAVE_SQLITE
    {"sqlite", OpenSqliteStore},
    {"sqlite_exclusive", OpenSqliteExclusiveStore},
    {"sqlite_wal", OpenSqliteWalStore},
#endif
#ifdef HAVE_LMDB
    {"lmdb", OpenLmdbStore},
#endif
};
constexpr std::size_t kCounts[] = {10000, 100000};
constexpr std::size_t kSizes[] = {4, 8, 32, 200};
constexpr std::size_t kLargestSize = 200;

/// The value of one entry in its generation: all values of one size differ in their first four
/// bytes.
class Value {
 public:
  Value() {
    for (std::size_t i = 0; i < sizeof bytes; ++i) bytes[i] = static_cast<std::uint8_t>(i * 5);
  }
  /// @param generation  0 to 7; the number of the entry has 28 bits
  const std::uint8_t* Of(std::uint32_t entry, std::uint32_t generation) {
    const std::uint32_t mark = entry | generation << 28;
    std::memcpy(bytes, &mark, sizeof mark);
    return bytes;
  }

 private:
  std::uint8_t bytes[kLargestSize];
};

Failure SetEntries(EntryStore& store, const std::vector<std::string>& names,
                   const std::vector<std::uint32_t>& order, std::size_t size,
                   std::uint32_t generation) {
  const Deadline deadline;
  Value value;
  for (std::size_t i = 0; i < order.size(); ++i) {
    const std::uint32_t entry = order[i];
    if (!store.Set(names[entry], value.Of(entry, generation), size)) return "a value is not stored";
    if (deadline.Passed(i)) return Deadline::kFailure;
  }
  return nullptr;
}

Failure GetEntries(EntryStore& store, const std::vector<std::string>& names,
                   const std::vector<std::uint32_t>& order, std::size_t size,
                   std::uint32_t generation) {
  const Deadline deadline;
  Value value;
  std::uint8_t got[kLargestSize];
  for (std::size_t i = 0; i < order.size(); ++i) {
    const std::uint32_t entry = order[i];
    if (!store.Get(names[entry], got, size)) return "a value is not found";
    if (std::memcmp(got, value.Of(entry, generation), size) != 0) return "a value has other bytes";
    if (deadline.Passed(i)) return Deadline::kFailure;
  }
  return nullptr;
}

std::vector<std::uint32_t> Ascending(std::size_t count) {
  std::vector<std::uint32_t> order(count);
  for (std::size_t i = 0; i < count; ++i) order[i] = static_cast<std::uint32_t>(i);
  return order;
}

/// What a set of entries is: three operations in a row work on the same one.
struct Subject {
  StoreKind kind;
  std::size_t n;
  std::size_t size;
  bool operator==(const Subject& other) const {
    return kind.open == other.kind.open && n == other.n && size == other.size;
  }
};

/// A store filled with the entries of a subject.
class FilledStore {
 public:
  explicit FilledStore(const Subject& wanted)
      : subject(wanted), names(NumberedNames('e', wanted.n)), store(wanted.kind.open(directory)) {}

  Failure Fill(Stopwatch& watch) {
    if (!store) return "the store is not made";
    const auto order = Ascending(subject.n);
    {
      const Timed timed(watch);
      if (const Failure failure = SetEntries(*store, names, order, subject.size, generation))
        return failure;
    }
    return Verify();
  }

  Failure GetAll(Stopwatch& watch) {
    const auto order = Shuffled(subject.n, 10);
    const Timed timed(watch);
    return GetEntries(*store, names, order, subject.size, generation);
  }

  Failure SetAgain(Stopwatch& watch) {
    generation = (generation + 1) % 8;
    const auto order = Shuffled(subject.n, 11);
    {
      const Timed timed(watch);
      if (const Failure failure = SetEntries(*store, names, order, subject.size, generation))
        return failure;
    }
    return Verify();
  }

  const Subject& Is() const { return subject; }

 private:
  /// Opens the store again and reads all, which also leaves it warm.
  Failure Verify() {
    store.reset();
    store = subject.kind.open(directory);
    if (!store) return "the store does not open again";
    return GetEntries(*store, names, Ascending(subject.n), subject.size, generation);
  }

  Subject subject;
  TempDir directory;
  std::vector<std::string> names;
  EntryStorePtr store;
  std::uint32_t generation = 0;
};

/// The store that the last benchmark worked on. Building one takes longer than most work on it.
std::unique_ptr<FilledStore>& LastStore() {
  static std::unique_ptr<FilledStore> store;
  return store;
}

/// Leaves a filled store of the subject in LastStore.
Failure Provide(const Subject& subject) {
  auto& last = LastStore();
  if (last && last->Is() == subject) return nullptr;
  last.reset();
  auto made = std::make_unique<FilledStore>(subject);
  Stopwatch unused;
  if (const Failure failure = made->Fill(unused)) return failure;
  last = std::move(made);
  return nullptr;
}

void SetNew(benchmark::State& state, Subject subject) {
  MeasureRounds(state, 1, static_cast<std::int64_t>(subject.n), [&](Stopwatch& watch) -> Failure {
    LastStore().reset();
    auto made = std::make_unique<FilledStore>(subject);
    if (const Failure failure = made->Fill(watch)) return failure;
    LastStore() = std::move(made);
    return nullptr;
  });
}

void Get(benchmark::State& state, Subject subject) {
  if (const Failure failure = Provide(subject)) return Fail(state, failure);
  const auto items = static_cast<std::int64_t>(subject.n);
  MeasureRounds(state, RoundsFor(items, 100000), items,
                [](Stopwatch& watch) { return LastStore()->GetAll(watch); });
}

void SetAgain(benchmark::State& state, Subject subject) {
  if (const Failure failure = Provide(subject)) return Fail(state, failure);
  MeasureRounds(state, 1, static_cast<std::int64_t>(subject.n),
                [](Stopwatch& watch) { return LastStore()->SetAgain(watch); });
  if (state.error_occurred()) LastStore().reset();
}

// ----------------------------------------------------------------------------------- open, get,
// close

constexpr std::size_t kFileCounts[] = {10, 1000, 100000};
constexpr std::int64_t kOpenings = 2000;
constexpr std::int32_t kFastValue = 0x12345678;

/// Opens without the map and reads an entry in a reserved slot.
bool OpenGetFast(const std::string& path) {
  const StoragePtr storage(aoStorage::OpenFast(path.c_str(), kReadFlags, 0));
  return storage && storage->GetEntryFast("fast", std::int32_t{-1}) == kFastValue;
}

void OpenGetAostorage(benchmark::State& state, std::size_t n) {
  const TempDir directory;
  const std::string path = directory.File("store");
  {
    const StoragePtr storage(aoStorage::Create(path.c_str(), kWriteFlags, 0));
    if (!storage || storage->SetEntryFast("fast", kFastValue) != 1)
      return Fail(state, "the entry is not made");
    for (const std::string& name : NumberedNames('e', n - 1)) {
      const StreamPtr stream(storage->CreateStream(name.c_str(), kWriteFlags));
      if (!stream) return Fail(state, "a stream is not made");
    }
  }
  MeasureRounds(state, 1, kOpenings, [&path](Stopwatch& watch) -> Failure {
    const Timed timed(watch);
    for (std::int64_t i = 0; i < kOpenings; ++i) {
      if (!OpenGetFast(path)) return "the entry is not read";
    }
    return nullptr;
  });
}

/// The opening, the file's state, three reads (the header, the head of the directory with the
/// reserved slots, a block header with its value) and the closing.
void OpenGetBare(benchmark::State& state, std::size_t n) {
  const TempDir directory;
  const std::string path = directory.File("bare");
  {
    BareFile file(path, BareFile::Mode::kCreate);
    const std::vector<std::uint8_t> bytes(kHeaderSize +
                                          (n / kSlotsPerDirectory + 1) * kDirectorySize);
    if (!file.IsOpen() || !file.WriteAt(0, bytes.data(), bytes.size()))
      return Fail(state, "the bare file is not made");
  }
  MeasureRounds(state, 1, kOpenings, [&path](Stopwatch& watch) -> Failure {
    std::uint8_t bytes[492], value[4];
    const Timed timed(watch);
    for (std::int64_t i = 0; i < kOpenings; ++i) {
      const BareFile file(path, BareFile::Mode::kReadOnly);
      if (!file.IsOpen() || file.Size() < 0) return "the bare file does not open";
      if (!file.ReadAt(0, bytes, kHeaderSize)) return "a bare read failed";
      if (!file.ReadAt(DirectoryOffset(0), bytes, sizeof bytes)) return "a bare read failed";
      if (!file.ReadTwoAt(600, bytes, kBlockHeaderSize, value, sizeof value))
        return "a bare read failed";
    }
    return nullptr;
  });
}

/// A peer's store of n entries of 4 bytes, opened for one of them.
void OpenGetPeer(benchmark::State& state, StoreKind kind, std::size_t n) {
  const TempDir directory;
  const auto names = NumberedNames('e', n);
  {
    const EntryStorePtr store = kind.open(directory);
    if (!store) return Fail(state, "the store is not made");
    if (const Failure failure = SetEntries(*store, names, Ascending(n), 4, 0))
      return Fail(state, failure);
  }
  const std::vector<std::uint32_t> one{static_cast<std::uint32_t>(n / 2)};
  MeasureRounds(state, 1, kOpenings, [&](Stopwatch& watch) -> Failure {
    const Timed timed(watch);
    for (std::int64_t i = 0; i < kOpenings; ++i) {
      const EntryStorePtr store = kind.open(directory);
      if (!store) return "the store does not open";
      if (const Failure failure = GetEntries(*store, names, one, 4, 0)) return failure;
    }
    return nullptr;
  });
}

// -------------------------------------------------------------------------------------- sorted
// scans

constexpr std::size_t kScanned = 100000;

/// Names of eight hexadecimal digits, for which the scan also estimates the durations.
Failure FillScanned(EntryStore& store) {
  Value value;
  const Deadline deadline;
  const auto order = Shuffled(kScanned, 12);
  for (std::size_t i = 0; i < kScanned; ++i) {
    char name[16];
    std::snprintf(name, sizeof name, "%08X", 0x5F000000U + order[i] * 60U);
    if (!store.Set(name, value.Of(order[i], 0), 4)) return "a value is not stored";
    if (deadline.Passed(i)) return Deadline::kFailure;
  }
  return nullptr;
}

void Scan(benchmark::State& state, StoreKind kind, bool first) {
  const TempDir directory;
  EntryStorePtr store = kind.open(directory);
  if (!store) return Fail(state, "the store is not made");
  if (const Failure failure = FillScanned(*store)) return Fail(state, failure);
  MeasureRounds(state, 5, kScanned, [&](Stopwatch& watch) -> Failure {
    if (first) {
      store.reset();
      store = kind.open(directory);
      if (!store) return "the store does not open";
    }
    const Timed timed(watch);
    return store->ScanNames() == kScanned ? nullptr : "the scan has another count";
  });
}

// ----------------------------------------------------------------------------------------
// registering

void RegisterEntries(const StoreKind& kind, std::size_t n, std::size_t size) {
  const Subject subject{kind, n, size};
  const auto name = [&](const char* operation) {
    return std::string("entry/") + operation + "/" + kind.name + "/n:" + std::to_string(n) +
           "/bytes:" + std::to_string(size);
  };
  Register(name("set_new"), 1, SetNew, subject);
  Register(name("get"), 1, Get, subject);
  Register(name("set_again"), 1, SetAgain, subject);
}

[[maybe_unused]] const bool registered = [] {
  for (const std::size_t n : kCounts) {
    for (const std::size_t size : kSizes) {
      for (const StoreKind& kind : kKinds) RegisterEntries(kind, n, size);
    }
  }
  for (const std::size_t n : kFileCounts) {
    const std::string count = "/n:" + std::to_string(n);
    Register("entry/open_get/aostorage" + count, 1, OpenGetAostorage, n);
    Register("entry/open_get/bare_needed" + count, 1, OpenGetBare, n);
    for (const StoreKind& kind : kKinds) {
      if (std::strncmp(kind.name, "aostorage", 9) == 0) continue;
      Register("entry/open_get/" + std::string(kind.name) + count, 1, OpenGetPeer, kind, n);
    }
  }
  const std::string scanned = "/n:" + std::to_string(kScanned);
  for (const StoreKind& kind : kKinds) {
    if (kind.open == OpenFolderStore) continue;
    Register("entry/scan_first/" + std::string(kind.name) + scanned, 1, Scan, kind, true);
    Register("entry/scan/" + std::string(kind.name) + scanned, 1, Scan, kind, false);
  }
  return true;
}();

}  // namespace
}  // namespace aobench
