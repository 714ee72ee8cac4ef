#ifdef HAVE_SQLITE

#include <sqlite3.h>

#include <cstring>

#include "entry_store.h"

namespace aobench {
namespace {

struct DatabaseCloser {
  void operator()(sqlite3* database) const { sqlite3_close(database); }
};
struct StatementFinalizer {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using DatabasePtr = std::unique_ptr<sqlite3, DatabaseCloser>;
using StatementPtr = std::unique_ptr<sqlite3_stmt, StatementFinalizer>;

StatementPtr Prepare(sqlite3* database, const char* sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v3(database, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  return StatementPtr(statement);
}

/// Text and blob are bound without a copy: they live until the reset.
bool BindName(sqlite3_stmt* statement, const std::string& name) {
  return sqlite3_bind_text(statement, 1, name.data(), static_cast<int>(name.size()),
                           SQLITE_STATIC) == SQLITE_OK;
}

/// Prepared statements outside any explicit transaction: each step is a transaction of its own.
class SqliteStore final : public EntryStore {
 public:
  SqliteStore(DatabasePtr openDatabase, StatementPtr setStatement, StatementPtr getStatement,
              StatementPtr scanStatement)
      : database(std::move(openDatabase)),
        set(std::move(setStatement)),
        get(std::move(getStatement)),
        scan(std::move(scanStatement)) {}

  bool Set(const std::string& name, const std::uint8_t* bytes, std::size_t size) override {
    if (!BindName(set.get(), name)) return false;
    if (sqlite3_bind_blob(set.get(), 2, bytes, static_cast<int>(size), SQLITE_STATIC) != SQLITE_OK)
      return false;
    const bool done = sqlite3_step(set.get()) == SQLITE_DONE;
    return sqlite3_reset(set.get()) == SQLITE_OK && done;
  }

  bool Get(const std::string& name, std::uint8_t* bytes, std::size_t size) override {
    if (!BindName(get.get(), name)) return false;
    const bool found = sqlite3_step(get.get()) == SQLITE_ROW &&
                       static_cast<std::size_t>(sqlite3_column_bytes(get.get(), 0)) == size;
    if (found) std::memcpy(bytes, sqlite3_column_blob(get.get(), 0), size);
    return sqlite3_reset(get.get()) == SQLITE_OK && found;
  }

  std::size_t ScanNames() override {
    std::size_t count = 0;
    while (sqlite3_step(scan.get()) == SQLITE_ROW) {
      benchmark::DoNotOptimize(sqlite3_column_text(scan.get(), 0));
      ++count;
    }
    return sqlite3_reset(scan.get()) == SQLITE_OK ? count : 0;
  }

 private:
  DatabasePtr database;
  StatementPtr set, get, scan;  // end before the database
};

EntryStorePtr OpenDatabase(const TempDir& directory, const char* pragmas) {
  sqlite3* opened = nullptr;
  const int result = sqlite3_open(directory.File("sqlite").c_str(), &opened);
  DatabasePtr database(opened);
  // Without a rowid the table is one tree, keyed by the name: the better form for this work.
  const std::string sql =
      std::string(pragmas) +
      "PRAGMA synchronous=OFF;"
      "CREATE TABLE IF NOT EXISTS entries(name TEXT PRIMARY KEY, value BLOB) WITHOUT ROWID;";
  if (result != SQLITE_OK ||
      sqlite3_exec(opened, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
    return nullptr;
  StatementPtr set = Prepare(
      opened, "INSERT INTO entries VALUES(?1, ?2) ON CONFLICT(name) DO UPDATE SET value = ?2");
  StatementPtr get = Prepare(opened, "SELECT value FROM entries WHERE name = ?1");
  StatementPtr scan = Prepare(opened, "SELECT name FROM entries ORDER BY name");
  if (!set || !get || !scan) return nullptr;
  return std::make_unique<SqliteStore>(std::move(database), std::move(set), std::move(get),
                                       std::move(scan));
}

}  // namespace

EntryStorePtr OpenSqliteStore(const TempDir& directory) {
  return OpenDatabase(directory, "PRAGMA journal_mode=OFF;");
}

EntryStorePtr OpenSqliteExclusiveStore(const TempDir& directory) {
  return OpenDatabase(directory, "PRAGMA locking_mode=EXCLUSIVE; PRAGMA journal_mode=OFF;");
}

EntryStorePtr OpenSqliteWalStore(const TempDir& directory) {
  return OpenDatabase(directory, "PRAGMA journal_mode=WAL;");
}

}  // namespace aobench

#endif  // HAVE_SQLITE
