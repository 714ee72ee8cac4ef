#include "store.h"

#ifdef HAVE_LMDB

#include <fcntl.h>
#include <lmdb.h>
#include <unistd.h>

#include <cstring>

namespace aobench {
namespace {

constexpr std::size_t kMapSize = std::size_t{2} << 30;

MDB_val Value(const void* bytes, std::size_t size) { return {size, const_cast<void*>(bytes)}; }
MDB_val Value(const std::string& name) { return Value(name.data(), name.size()); }

/// MDB_NOSYNC and MDB_NOMEMINIT, as a program that trusts its own process sets them.
template <int kSettings>
class LmdbStore final : public Store {
 public:
  static constexpr bool kWriteMap = (kSettings & 1) != 0, kOneTransaction = (kSettings & 2) != 0;

  ~LmdbStore() override { Close(); }

  Outcome Create(const Plan& plan) override {
    Remember(plan);
    pieces = plan.content == Content::kPieces || plan.content == Content::kRecords;
    environment = Open(0);
    if (environment == nullptr || mdb_txn_begin(environment, nullptr, 0, &change) != MDB_SUCCESS)
      return Outcome::kFailed;
    const unsigned kind = pieces ? MDB_INTEGERKEY : 0;
    const bool opened = mdb_dbi_open(change, nullptr, kind, &database) == MDB_SUCCESS;
    return opened ? Commit() : Outcome::kFailed;
  }

  void Close() override {
    if (cursor != nullptr) mdb_cursor_close(cursor);
    if (reader != nullptr) mdb_txn_abort(reader);
    if (change != nullptr) mdb_txn_abort(change);
    if (environment != nullptr) mdb_env_close(environment);
    cursor = nullptr;
    reader = change = nullptr;
    environment = nullptr;
  }

  Outcome BeginChanges() override { return kOneTransaction ? Begin() : Outcome::kDone; }
  Outcome EndChanges() override { return kOneTransaction ? Commit() : Outcome::kDone; }
  /// The reader is kept: a read by itself renews and resets it, which is the cheapest way to see
  /// the newest state. One in pieces goes along a cursor in either form.
  Outcome BeginReads() override {
    if (mdb_txn_begin(environment, nullptr, MDB_RDONLY, &reader) != MDB_SUCCESS)
      return Outcome::kFailed;
    if (pieces) return DoneIf(mdb_cursor_open(reader, database, &cursor) == MDB_SUCCESS);
    if (!kOneTransaction) mdb_txn_reset(reader);
    return Outcome::kDone;
  }
  Outcome EndReads() override {
    if (cursor != nullptr) mdb_cursor_close(cursor);
    cursor = nullptr;
    mdb_txn_abort(reader);
    reader = nullptr;
    return Outcome::kDone;
  }

  Outcome Put(Key key, const void* bytes, std::size_t size) override {
    return Change([&] { return PutOne(Value(key.name), Value(bytes, size), 0) == MDB_SUCCESS; });
  }
  Outcome SetAgain(Key key, const void* bytes, std::size_t size) override {
    return Put(key, bytes, size);
  }
  Outcome Remove(Key key) override {
    return Change([&] {
      MDB_val name = Value(key.name);
      return mdb_del(change, database, &name, nullptr) == MDB_SUCCESS;
    });
  }
  Outcome Fetch(Key key, void* bytes, std::size_t size) override {
    if (!kOneTransaction && mdb_txn_renew(reader) != MDB_SUCCESS) return Outcome::kFailed;
    const Outcome outcome = FetchIn(reader, database, key, bytes, size);
    if (!kOneTransaction) mdb_txn_reset(reader);
    return outcome;
  }
  Outcome OpenAndGet(Key key, void* bytes, std::size_t size) override {
    MDB_env* const opened = Open(MDB_RDONLY);
    MDB_txn* transaction = nullptr;
    MDB_dbi values = 0;
    Outcome outcome = Outcome::kFailed;
    if (opened != nullptr &&
        mdb_txn_begin(opened, nullptr, MDB_RDONLY, &transaction) == MDB_SUCCESS &&
        mdb_dbi_open(transaction, nullptr, 0, &values) == MDB_SUCCESS)
      outcome = FetchIn(transaction, values, key, bytes, size);
    if (transaction != nullptr) mdb_txn_abort(transaction);
    if (opened != nullptr) mdb_env_close(opened);
    return outcome;
  }

  /// A value cannot grow, so a long stream is a run of pieces, each put behind the last one.
  Outcome Append(int stream, const void* bytes, std::size_t size) override {
    if (stream != 0) return Outcome::kCannot;
    return Change([&] {
      const std::size_t number = nextPiece++;
      return PutOne(Value(&number, sizeof number), Value(bytes, size), MDB_APPEND) == MDB_SUCCESS;
    });
  }
  Outcome ReadNext(void* bytes, std::size_t size) override {
    MDB_val key, value;
    if (mdb_cursor_get(cursor, &key, &value, MDB_NEXT) != MDB_SUCCESS) return Outcome::kFailed;
    return CopyOut(value, bytes, size);
  }

  /// To a file of ours, since the copy to a path goes past the page cache, which takes far longer.
  Outcome Compact(const std::string& goal) override {
    const int descriptor = ::open(goal.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor < 0) return Outcome::kFailed;
    const int result = mdb_env_copyfd2(environment, descriptor, MDB_CP_COMPACT);
    return DoneIf(::close(descriptor) == 0 && result == MDB_SUCCESS);
  }

  /// The pages in use: with MDB_WRITEMAP the file itself is as large as its map, most of it a hole.
  std::int64_t Bytes() const override {
    MDB_envinfo info{};
    MDB_stat stat{};
    if (mdb_env_info(environment, &info) != MDB_SUCCESS ||
        mdb_env_stat(environment, &stat) != MDB_SUCCESS)
      return -1;
    return static_cast<std::int64_t>((info.me_last_pgno + 1) * stat.ms_psize);
  }

 private:
  MDB_env* Open(unsigned flags) const {
    MDB_env* opened = nullptr;
    if (mdb_env_create(&opened) != MDB_SUCCESS) return nullptr;
    flags |= MDB_NOSUBDIR | MDB_NOSYNC | MDB_NOMEMINIT | (kWriteMap ? MDB_WRITEMAP : 0U);
    if (mdb_env_set_mapsize(opened, kMapSize) == MDB_SUCCESS &&
        mdb_env_open(opened, File("lmdb").c_str(), flags, 0666) == MDB_SUCCESS)
      return opened;
    mdb_env_close(opened);
    return nullptr;
  }

  Outcome Begin() { return DoneIf(mdb_txn_begin(environment, nullptr, 0, &change) == MDB_SUCCESS); }
  Outcome Commit() {
    MDB_txn* const ended = change;
    change = nullptr;
    return DoneIf(mdb_txn_commit(ended) == MDB_SUCCESS);
  }
  /// A failure inside leaves the transaction open; Close ends it.
  template <class Work>
  Outcome Change(Work&& work) {
    if (kOneTransaction) return DoneIf(work());
    if (Begin() != Outcome::kDone || !work()) return Outcome::kFailed;
    return Commit();
  }
  int PutOne(MDB_val key, MDB_val value, unsigned flags) {
    return mdb_put(change, database, &key, &value, flags);
  }

  static Outcome CopyOut(const MDB_val& value, void* bytes, std::size_t size) {
    if (value.mv_size != size) return Outcome::kFailed;
    std::memcpy(bytes, value.mv_data, size);
    return Outcome::kDone;
  }
  static Outcome FetchIn(MDB_txn* transaction, MDB_dbi values, Key key, void* bytes,
                         std::size_t size) {
    MDB_val name = Value(key.name), value;
    if (mdb_get(transaction, values, &name, &value) != MDB_SUCCESS) return Outcome::kFailed;
    return CopyOut(value, bytes, size);
  }

  MDB_env* environment = nullptr;
  MDB_txn *change = nullptr, *reader = nullptr;
  MDB_cursor* cursor = nullptr;
  MDB_dbi database = 0;
  bool pieces = false;
  std::size_t nextPiece = 0;
};

template <int kSettings>
StorePtr Make() {
  return std::make_unique<LmdbStore<kSettings>>();
}

}  // namespace

std::string AddLmdb(std::vector<Competitor>& competitors) {
  competitors.push_back({"lmdb each", Make<0>, kWorks | kChanges});
  competitors.push_back({"lmdb one", Make<2>, kWorks | kChanges | kCompaction});
  competitors.push_back({"lmdb-writemap each", Make<1>, kWorks | kChanges});
  competitors.push_back({"lmdb-writemap one", Make<3>, kWorks | kChanges | kCompaction});
  int major = 0, minor = 0, patch = 0;
  mdb_version(&major, &minor, &patch);
  return "LMDB " + std::to_string(major) + "." + std::to_string(minor) + "." +
         std::to_string(patch);
}

}  // namespace aobench

#else

namespace aobench {
std::string AddLmdb(std::vector<Competitor>&) { return ""; }
}  // namespace aobench

#endif  // HAVE_LMDB
