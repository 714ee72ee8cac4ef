/// @file
/// Stores of small named values behind one face: the library in its two places, and its peers.
#ifndef AOSTORAGE_BENCH_ENTRY_STORE_H_
#define AOSTORAGE_BENCH_ENTRY_STORE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "support.h"

namespace aobench {

/// An open store. Every change is committed by itself when Set returns, none is forced to the disk.
class EntryStore {
 public:
  EntryStore() = default;
  virtual ~EntryStore() = default;
  EntryStore(const EntryStore&) = delete;
  EntryStore& operator=(const EntryStore&) = delete;

  /// Stores a value, new or in place of an old one.
  virtual bool Set(const std::string& name, const std::uint8_t* bytes, std::size_t size) = 0;
  /// Fetches a value of exactly `size` bytes.
  virtual bool Get(const std::string& name, std::uint8_t* bytes, std::size_t size) = 0;
  /// Goes over all names in ascending order and looks at each. @return their count
  virtual std::size_t ScanNames() = 0;
};

using EntryStorePtr = std::unique_ptr<EntryStore>;

/// One kind of store: its name in the results and the function that opens its file in a directory,
/// or makes it there. The function gives null on failure.
struct StoreKind {
  const char* name;
  EntryStorePtr (*open)(const TempDir& directory);
};

/// Entries as children of one root folder.
EntryStorePtr OpenFolderStore(const TempDir& directory);
/// Entries as root streams.
EntryStorePtr OpenRootStore(const TempDir& directory);
#ifdef HAVE_SQLITE
/// One table, journal_mode=OFF.
EntryStorePtr OpenSqliteStore(const TempDir& directory);
/// The same with locking_mode=EXCLUSIVE: like the library, it takes no locks from one change to the
/// next.
EntryStorePtr OpenSqliteExclusiveStore(const TempDir& directory);
/// The same table, journal_mode=WAL.
EntryStorePtr OpenSqliteWalStore(const TempDir& directory);
#endif
#ifdef HAVE_LMDB
/// One database, MDB_NOSYNC.
EntryStorePtr OpenLmdbStore(const TempDir& directory);
#endif

}  // namespace aobench

#endif  // AOSTORAGE_BENCH_ENTRY_STORE_H_
