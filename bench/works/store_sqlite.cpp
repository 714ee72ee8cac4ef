#include "store.h"

#ifdef HAVE_SQLITE

#include <sqlite3.h>

#include <cstring>

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

StatementPtr Prepare(const DatabasePtr& database, const char* sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v3(database.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  return StatementPtr(statement);
}

bool Run(const DatabasePtr& database, const std::string& sql) {
  return sqlite3_exec(database.get(), sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

/// One connection used by one thread: without its mutexes.
DatabasePtr OpenDatabase(const std::string& path, int flags) {
  sqlite3* opened = nullptr;
  const int result = sqlite3_open_v2(path.c_str(), &opened, flags | SQLITE_OPEN_NOMUTEX, nullptr);
  DatabasePtr database(opened);
  return result == SQLITE_OK ? std::move(database) : nullptr;
}

/// Text and blob are bound without a copy: they live until the reset.
bool BindName(const StatementPtr& statement, const std::string& name) {
  return sqlite3_bind_text(statement.get(), 1, name.data(), static_cast<int>(name.size()),
                           SQLITE_STATIC) == SQLITE_OK;
}
bool BindBytes(const StatementPtr& statement, int column, const void* bytes, std::size_t size) {
  return sqlite3_bind_blob(statement.get(), column, bytes, static_cast<int>(size), SQLITE_STATIC) ==
         SQLITE_OK;
}
Outcome Finish(const StatementPtr& statement) {
  const bool done = sqlite3_step(statement.get()) == SQLITE_DONE;
  return DoneIf(sqlite3_reset(statement.get()) == SQLITE_OK && done);
}

bool CopyColumn(const StatementPtr& statement, void* bytes, std::size_t size) {
  if (static_cast<std::size_t>(sqlite3_column_bytes(statement.get(), 0)) != size) return false;
  std::memcpy(bytes, sqlite3_column_blob(statement.get(), 0), size);
  return true;
}

/// Prepared statements, synchronous=OFF, a page cache of 64 MiB and reads through a mapping.
template <int kSettings>
class SqliteStore final : public Store {
 public:
  static constexpr bool kWal = (kSettings & 1) != 0, kOneTransaction = (kSettings & 2) != 0;

  Outcome Create(const Plan& plan) override {
    Remember(plan);
    database = OpenDatabase(File("sqlite"), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    if (!database) return Outcome::kFailed;
    // Larger pages pay for values that fill several of the usual ones.
    const std::string pageSize = plan.size >= 8192 ? "16384" : "4096";
    if (!Run(database, "PRAGMA page_size=" + pageSize +
                           ";PRAGMA synchronous=OFF;PRAGMA cache_size=-65536;"
                           "PRAGMA mmap_size=2147483648;PRAGMA journal_mode=" +
                           (kWal ? "WAL;" : "OFF;")))
      return Outcome::kFailed;
    return DoneIf(plan.content == Content::kPieces || plan.content == Content::kRecords
                      ? PreparePieces()
                      : PrepareNamed(plan.content == Content::kValues));
  }

  void Close() override {
    for (StatementPtr* statement : {&insert, &update, &select, &remove, &begin, &commit})
      statement->reset();
    database.reset();
  }

  Outcome BeginChanges() override { return kOneTransaction ? Finish(begin) : Outcome::kDone; }
  Outcome EndChanges() override { return kOneTransaction ? Finish(commit) : Outcome::kDone; }
  Outcome BeginReads() override { return BeginChanges(); }
  Outcome EndReads() override {
    sqlite3_reset(select.get());
    return EndChanges();
  }

  Outcome Put(Key key, const void* bytes, std::size_t size) override {
    if (!BindName(insert, key.name) || !BindBytes(insert, 2, bytes, size)) return Outcome::kFailed;
    return Finish(insert);
  }
  Outcome SetAgain(Key key, const void* bytes, std::size_t size) override {
    if (!BindName(update, key.name) || !BindBytes(update, 2, bytes, size)) return Outcome::kFailed;
    return Finish(update);
  }
  Outcome Fetch(Key key, void* bytes, std::size_t size) override {
    return FetchWith(select, key, bytes, size);
  }
  Outcome Remove(Key key) override {
    return BindName(remove, key.name) ? Finish(remove) : Outcome::kFailed;
  }
  Outcome OpenAndGet(Key key, void* bytes, std::size_t size) override {
    const DatabasePtr opened = OpenDatabase(File("sqlite"), SQLITE_OPEN_READONLY);
    if (!opened) return Outcome::kFailed;
    const StatementPtr get = Prepare(opened, "SELECT bytes FROM named WHERE name = ?1");
    return get ? FetchWith(get, key, bytes, size) : Outcome::kFailed;
  }

  Outcome Append(int stream, const void* bytes, std::size_t size) override {
    if (stream != 0) return Outcome::kCannot;
    return BindBytes(insert, 1, bytes, size) ? Finish(insert) : Outcome::kFailed;
  }
  Outcome ReadNext(void* bytes, std::size_t size) override {
    return DoneIf(sqlite3_step(select.get()) == SQLITE_ROW && CopyColumn(select, bytes, size));
  }

  Outcome Compact(const std::string& goal) override {
    return DoneIf(Run(database, "VACUUM INTO '" + goal + "'"));
  }

 private:
  bool PrepareAll(const char* insertSql, const char* selectSql) {
    insert = Prepare(database, insertSql);
    select = Prepare(database, selectSql);
    begin = Prepare(database, "BEGIN");
    commit = Prepare(database, "COMMIT");
    return insert && select && begin && commit;
  }
  /// Without a rowid the table is one tree keyed by the name: better for small values, worse for
  /// those that do not fit beside others on a page.
  bool PrepareNamed(bool small) {
    const std::string tail = small ? " WITHOUT ROWID" : "";
    if (!Run(database, "CREATE TABLE named(name TEXT PRIMARY KEY, bytes BLOB)" + tail))
      return false;
    update = Prepare(database, "UPDATE named SET bytes = ?2 WHERE name = ?1");
    remove = Prepare(database, "DELETE FROM named WHERE name = ?1");
    return update && remove &&
           PrepareAll("INSERT INTO named VALUES(?1, ?2)",
                      "SELECT bytes FROM named WHERE name = ?1");
  }
  /// A blob cannot grow, so a long stream is a table of its pieces.
  bool PreparePieces() {
    return Run(database, "CREATE TABLE pieces(id INTEGER PRIMARY KEY, bytes BLOB)") &&
           PrepareAll("INSERT INTO pieces(bytes) VALUES(?1)",
                      "SELECT bytes FROM pieces ORDER BY id");
  }
  static Outcome FetchWith(const StatementPtr& get, Key key, void* bytes, std::size_t size) {
    if (!BindName(get, key.name)) return Outcome::kFailed;
    const bool found = sqlite3_step(get.get()) == SQLITE_ROW && CopyColumn(get, bytes, size);
    return DoneIf(sqlite3_reset(get.get()) == SQLITE_OK && found);
  }

  DatabasePtr database;
  StatementPtr insert, update, select, remove, begin, commit;  // end before the database
};

template <int kSettings>
StorePtr Make() {
  return std::make_unique<SqliteStore<kSettings>>();
}

}  // namespace

std::string AddSqlite(std::vector<Competitor>& competitors) {
  competitors.push_back({"sqlite each", Make<0>, kWorks | kChanges});
  competitors.push_back({"sqlite one", Make<2>, kWorks | kChanges | kCompaction});
  competitors.push_back({"sqlite-wal each", Make<1>, kWorks | kChanges});
  competitors.push_back({"sqlite-wal one", Make<3>, kWorks | kChanges | kCompaction});
  return std::string("SQLite ") + sqlite3_libversion();
}

}  // namespace aobench

#else

namespace aobench {
std::string AddSqlite(std::vector<Competitor>&) { return ""; }
}  // namespace aobench

#endif  // HAVE_SQLITE
