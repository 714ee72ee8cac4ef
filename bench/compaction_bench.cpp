/// @file
/// Compaction: n streams of 10 KiB of which half were removed, written to a new file without the
/// dead space. The source stays, so that every round finds the same.
///
///   aostorage         aoStorage::Recreate to another path, which flushes to the disk
///   sqlite_vacuum     VACUUM of a table of blobs, synchronous=OFF, journal_mode=OFF
///   lmdb_compact_copy mdb_env_copy2 with MDB_CP_COMPACT, MDB_NOSYNC
///   bare_copy         the live bytes once, by read and write in pieces of 128 KiB
///   bare_two_copies   the same twice: to a new file and from there over the old one
///   bare_cp           the cp program on a file of the live bytes
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#ifdef HAVE_SQLITE
#include <sqlite3.h>
#endif
#ifdef HAVE_LMDB
#include <lmdb.h>
#endif

#include "bare_file.h"
#include "support.h"

namespace aobench {
namespace {

using namespace aostorage;

constexpr std::uint32_t kStreamSize = 10240;
constexpr std::size_t kCount = 10000;
constexpr std::int64_t kRounds = 5;

/// The bytes of a stream: they differ from stream to stream.
std::vector<std::uint8_t> ContentOf(std::uint32_t stream) {
  std::vector<std::uint8_t> bytes(kStreamSize);
  for (std::size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<std::uint8_t>(stream + i * 31);
  return bytes;
}

/// Which streams are removed: half of them, in an order that looks random.
std::vector<std::uint32_t> RemovedOnes() {
  auto order = Shuffled(kCount, 30);
  order.resize(kCount / 2);
  return order;
}

Failure MakeStore(const std::string& path) {
  const StoragePtr storage(aoStorage::Create(path.c_str(), kWriteFlags, 0));
  if (!storage) return "the file is not made";
  const auto names = NumberedNames('s', kCount);
  for (std::uint32_t i = 0; i < kCount; ++i) {
    const StreamPtr stream(storage->CreateStream(names[i].c_str(), kWriteFlags));
    if (!stream || stream->Write(ContentOf(i).data(), kStreamSize) != kStreamSize)
      return "a stream is not written";
  }
  for (const std::uint32_t i : RemovedOnes()) {
    if (!RemoveStream(StreamPtr(storage->OpenStream(names[i].c_str(), kWriteFlags))))
      return "a stream is not removed";
  }
  return nullptr;
}

Failure CheckStore(const std::string& path) {
  const StoragePtr storage(aoStorage::Open(path.c_str(), kReadFlags, 0));
  if (!storage) return "the new file does not open";
  const auto names = NumberedNames('s', kCount);
  std::size_t found = 0;
  std::vector<std::uint8_t> bytes(kStreamSize);
  for (std::uint32_t i = 0; i < kCount; ++i) {
    const StreamPtr stream(storage->OpenStream(names[i].c_str(), kReadFlags));
    if (!stream) continue;
    ++found;
    if (stream->Read(bytes.data(), kStreamSize) != kStreamSize || bytes != ContentOf(i))
      return "a stream has other bytes";
  }
  return found == kCount / 2 ? nullptr : "streams are missing";
}

/// Runs `compact(watch, goal)` in rounds; the file at `goal` is new each time.
template <class Compact>
void Measure(benchmark::State& state, const TempDir& directory, Compact&& compact) {
  const std::string goal = directory.File("goal");
  MeasureRounds(state, kRounds, kCount / 2, [&](Stopwatch& watch) -> Failure {
    std::error_code ignored;
    std::filesystem::remove(goal, ignored);
    return compact(watch, goal);
  });
}

void CompactLibrary(benchmark::State& state) {
  const TempDir directory;
  const std::string source = directory.File("store"), goal = directory.File("goal");
  if (const Failure failure = MakeStore(source)) return Fail(state, failure);
  Measure(state, directory, [&](Stopwatch& watch, const std::string& to) -> Failure {
    aoStorage* const storage = aoStorage::Open(source.c_str(), kReadFlags, 0);
    if (storage == nullptr) return "the source does not open";
    watch.Start();
    const StoragePtr compacted(aoStorage::Recreate(storage, to.c_str()));
    watch.Stop();
    return compacted.get() != storage && compacted ? nullptr : "nothing was replaced";
  });
  if (state.error_occurred()) return;
  if (const Failure failure = CheckStore(goal)) Fail(state, failure);
}

// --- Plain copies of the live bytes

Failure MakeLiveBytes(const std::string& path) {
  BareFile file(path, BareFile::Mode::kCreate);
  for (std::uint32_t i = 0; i < kCount / 2; ++i) {
    if (!file.WriteAt(std::int64_t{i} * kStreamSize, ContentOf(i).data(), kStreamSize))
      return "the live bytes are not written";
  }
  return nullptr;
}

bool CopyPlainly(const std::string& from, const std::string& to) {
  constexpr std::size_t kPiece = 131072;
  const BareFile source(from, BareFile::Mode::kReadOnly);
  BareFile goal(to, BareFile::Mode::kCreate);
  std::vector<std::uint8_t> piece(kPiece);
  const std::int64_t size = source.Size();
  for (std::int64_t at = 0; at < size; at += kPiece) {
    const auto count = static_cast<std::size_t>(std::min<std::int64_t>(kPiece, size - at));
    if (!source.ReadAt(at, piece.data(), count) || !goal.WriteAt(at, piece.data(), count))
      return false;
  }
  return size > 0;
}

enum class Way { kOnce, kTwice, kProgram };

void CopyLiveBytes(benchmark::State& state, Way way) {
  const TempDir directory;
  const std::string source = directory.File("live"), back = directory.File("back");
  if (const Failure failure = MakeLiveBytes(source)) return Fail(state, failure);
  if (!CopyPlainly(source, back)) return Fail(state, "the live bytes are not copied");
  Measure(state, directory, [&](Stopwatch& watch, const std::string& goal) -> Failure {
    const Timed timed(watch);
    bool copied = false;
    if (way == Way::kProgram) {
      copied = std::system(("cp " + source + " " + goal).c_str()) == 0;
    } else {
      copied = CopyPlainly(source, goal) && (way == Way::kOnce || CopyPlainly(goal, back));
    }
    return copied ? nullptr : "a plain copy failed";
  });
}

// --- Peers

#ifdef HAVE_SQLITE
bool Run(sqlite3* database, const char* sql) {
  return sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

Failure MakeDatabase(const std::string& path) {
  sqlite3* database = nullptr;
  sqlite3_stmt* insert = nullptr;
  bool made = sqlite3_open(path.c_str(), &database) == SQLITE_OK &&
              Run(database,
                  "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF;"
                  "CREATE TABLE streams(id INTEGER PRIMARY KEY, bytes BLOB); BEGIN;") &&
              sqlite3_prepare_v2(database, "INSERT INTO streams VALUES(?1, ?2)", -1, &insert,
                                 nullptr) == SQLITE_OK;
  for (std::uint32_t i = 0; made && i < kCount; ++i) {
    const auto bytes = ContentOf(i);
    sqlite3_bind_int64(insert, 1, i);
    sqlite3_bind_blob(insert, 2, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC);
    made = sqlite3_step(insert) == SQLITE_DONE && sqlite3_reset(insert) == SQLITE_OK;
  }
  for (const std::uint32_t i : RemovedOnes()) {
    made = made && Run(database, ("DELETE FROM streams WHERE id = " + std::to_string(i)).c_str());
  }
  sqlite3_finalize(insert);
  made = made && Run(database, "COMMIT;");
  sqlite3_close(database);
  return made ? nullptr : "the database is not made";
}

/// VACUUM works in place: each round gets a fresh copy of the database.
void VacuumSqlite(benchmark::State& state) {
  const TempDir directory;
  const std::string source = directory.File("sqlite");
  if (const Failure failure = MakeDatabase(source)) return Fail(state, failure);
  Measure(state, directory, [&](Stopwatch& watch, const std::string& goal) -> Failure {
    if (!CopyPlainly(source, goal)) return "the database is not copied";
    sqlite3* database = nullptr;
    bool done = sqlite3_open(goal.c_str(), &database) == SQLITE_OK &&
                Run(database, "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF;");
    watch.Start();
    done = done && Run(database, "VACUUM;");
    watch.Stop();
    sqlite3_close(database);
    return done ? nullptr : "VACUUM failed";
  });
}
#endif

#ifdef HAVE_LMDB
struct Environment {
  ~Environment() { mdb_env_close(handle); }
  MDB_env* handle = nullptr;
};

bool Change(MDB_env* environment, MDB_dbi database, const std::vector<std::uint32_t>& streams,
            bool remove) {
  MDB_txn* transaction = nullptr;
  if (mdb_txn_begin(environment, nullptr, 0, &transaction) != MDB_SUCCESS) return false;
  const auto names = NumberedNames('s', kCount);
  for (const std::uint32_t i : streams) {
    auto bytes = ContentOf(i);
    MDB_val key{names[i].size(), const_cast<char*>(names[i].data())};
    MDB_val value{bytes.size(), bytes.data()};
    const int result = remove ? mdb_del(transaction, database, &key, nullptr)
                              : mdb_put(transaction, database, &key, &value, 0);
    if (result != MDB_SUCCESS) {
      mdb_txn_abort(transaction);
      return false;
    }
  }
  return mdb_txn_commit(transaction) == MDB_SUCCESS;
}

Failure MakeEnvironment(Environment& environment, const std::string& path) {
  MDB_txn* transaction = nullptr;
  MDB_dbi database = 0;
  if (mdb_env_create(&environment.handle) != MDB_SUCCESS ||
      mdb_env_set_mapsize(environment.handle, std::size_t{1} << 30) != MDB_SUCCESS ||
      mdb_env_open(environment.handle, path.c_str(), MDB_NOSUBDIR | MDB_NOSYNC, 0666) !=
          MDB_SUCCESS ||
      mdb_txn_begin(environment.handle, nullptr, 0, &transaction) != MDB_SUCCESS ||
      mdb_dbi_open(transaction, nullptr, 0, &database) != MDB_SUCCESS ||
      mdb_txn_commit(transaction) != MDB_SUCCESS) {
    return "the environment is not made";
  }
  const bool filled = Change(environment.handle, database, Shuffled(kCount, 31), false) &&
                      Change(environment.handle, database, RemovedOnes(), true);
  return filled ? nullptr : "the environment is not filled";
}

void CopyLmdb(benchmark::State& state) {
  const TempDir directory;
  Environment environment;
  if (const Failure failure = MakeEnvironment(environment, directory.File("lmdb")))
    return Fail(state, failure);
  Measure(state, directory, [&](Stopwatch& watch, const std::string& goal) -> Failure {
    const Timed timed(watch);
    return mdb_env_copy2(environment.handle, goal.c_str(), MDB_CP_COMPACT) == MDB_SUCCESS
               ? nullptr
               : "the compacting copy failed";
  });
}
#endif

[[maybe_unused]] const bool registered = [] {
  const std::string count = "/n:" + std::to_string(kCount);
  Register("compact/half_removed/aostorage" + count, 1, CompactLibrary);
  Register("compact/half_removed/bare_copy" + count, 1, CopyLiveBytes, Way::kOnce);
  Register("compact/half_removed/bare_two_copies" + count, 1, CopyLiveBytes, Way::kTwice);
  Register("compact/half_removed/bare_cp" + count, 1, CopyLiveBytes, Way::kProgram);
#ifdef HAVE_SQLITE
  Register("compact/half_removed/sqlite_vacuum" + count, 1, VacuumSqlite);
#endif
#ifdef HAVE_LMDB
  Register("compact/half_removed/lmdb_compact_copy" + count, 1, CopyLmdb);
#endif
  return true;
}();

}  // namespace
}  // namespace aobench
