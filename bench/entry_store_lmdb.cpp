#ifdef HAVE_LMDB

#include <lmdb.h>

#include <cstring>

#include "entry_store.h"

namespace aobench {
namespace {

struct EnvironmentCloser {
  void operator()(MDB_env* environment) const { mdb_env_close(environment); }
};
struct TransactionAborter {
  void operator()(MDB_txn* transaction) const { mdb_txn_abort(transaction); }
};
struct CursorCloser {
  void operator()(MDB_cursor* cursor) const { mdb_cursor_close(cursor); }
};
using EnvironmentPtr = std::unique_ptr<MDB_env, EnvironmentCloser>;
using TransactionPtr = std::unique_ptr<MDB_txn, TransactionAborter>;
using CursorPtr = std::unique_ptr<MDB_cursor, CursorCloser>;

constexpr std::size_t kMapSize = std::size_t{1}
                                 << 30;  // an upper bound: the file is as long as its use

TransactionPtr Begin(MDB_env* environment, unsigned flags) {
  MDB_txn* transaction = nullptr;
  return TransactionPtr(mdb_txn_begin(environment, nullptr, flags, &transaction) == MDB_SUCCESS
                            ? transaction
                            : nullptr);
}

bool Commit(TransactionPtr transaction) {
  return mdb_txn_commit(transaction.release()) == MDB_SUCCESS;
}

/// The interface takes keys and values to write as pointers to bytes that may be changed, and
/// changes none.
MDB_val Bytes(const void* data, std::size_t size) { return MDB_val{size, const_cast<void*>(data)}; }

/// Each Set and each Get is a transaction of its own.
class LmdbStore final : public EntryStore {
 public:
  LmdbStore(EnvironmentPtr openEnvironment, MDB_dbi openDatabase)
      : environment(std::move(openEnvironment)), database(openDatabase) {}

  bool Set(const std::string& name, const std::uint8_t* bytes, std::size_t size) override {
    TransactionPtr transaction = Begin(environment.get(), 0);
    MDB_val key = Bytes(name.data(), name.size());
    MDB_val value = Bytes(bytes, size);
    return transaction && mdb_put(transaction.get(), database, &key, &value, 0) == MDB_SUCCESS &&
           Commit(std::move(transaction));
  }

  bool Get(const std::string& name, std::uint8_t* bytes, std::size_t size) override {
    const TransactionPtr transaction = Begin(environment.get(), MDB_RDONLY);
    MDB_val key = Bytes(name.data(), name.size());
    MDB_val value;
    if (!transaction || mdb_get(transaction.get(), database, &key, &value) != MDB_SUCCESS)
      return false;
    if (value.mv_size != size) return false;
    std::memcpy(bytes, value.mv_data, size);
    return true;
  }

  std::size_t ScanNames() override {
    const TransactionPtr transaction = Begin(environment.get(), MDB_RDONLY);
    MDB_cursor* opened = nullptr;
    if (!transaction || mdb_cursor_open(transaction.get(), database, &opened) != MDB_SUCCESS)
      return 0;
    const CursorPtr cursor(opened);
    MDB_val key;
    std::size_t count = 0;
    while (mdb_cursor_get(cursor.get(), &key, nullptr, MDB_NEXT) == MDB_SUCCESS) {
      benchmark::DoNotOptimize(key.mv_data);
      ++count;
    }
    return count;
  }

 private:
  EnvironmentPtr environment;
  MDB_dbi database;
};

}  // namespace

EntryStorePtr OpenLmdbStore(const TempDir& directory) {
  MDB_env* opened = nullptr;
  if (mdb_env_create(&opened) != MDB_SUCCESS) return nullptr;
  EnvironmentPtr environment(opened);
  if (mdb_env_set_mapsize(opened, kMapSize) != MDB_SUCCESS) return nullptr;
  if (mdb_env_open(opened, directory.File("lmdb").c_str(), MDB_NOSUBDIR | MDB_NOSYNC, 0666) !=
      MDB_SUCCESS) {
    return nullptr;
  }
  TransactionPtr transaction = Begin(opened, 0);
  MDB_dbi database = 0;
  if (!transaction || mdb_dbi_open(transaction.get(), nullptr, 0, &database) != MDB_SUCCESS)
    return nullptr;
  if (!Commit(std::move(transaction))) return nullptr;
  return std::make_unique<LmdbStore>(std::move(environment), database);
}

}  // namespace aobench

#endif  // HAVE_LMDB
