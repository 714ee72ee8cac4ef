/// @file
/// One face for the library, the bare calls and every peer, so that each work is written once.
#ifndef AOSTORAGE_BENCH_WORKS_STORE_H_
#define AOSTORAGE_BENCH_WORKS_STORE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace aobench {

/// kCannot: this store has no such operation, and it is not emulated.
enum class Outcome { kDone, kFailed, kCannot };

constexpr Outcome DoneIf(bool done) { return done ? Outcome::kDone : Outcome::kFailed; }

/// What a store is about to hold. Known beforehand, so that each can be set up for it as one would
/// who knows it well.
enum class Content {
  kStreams,         ///< named streams, each written whole
  kStreamsToClean,  ///< the same, of which half go before the store is compacted
  kValues,          ///< small named values
  kPieces,          ///< one stream, its length known from the start, written in equal pieces
  kRecords,         ///< one stream or two that grow by small records, nobody knows how far
};

struct Plan {
  std::string directory;  ///< empty, the store's own
  Content content;
  std::size_t count;  ///< of streams, values, pieces or records
  std::size_t size;   ///< of each; where they differ, the largest
};

/// What is stored under a name: stores that know places go by the index, the others by the name.
struct Key {
  std::uint32_t index;
  const std::string& name;
};

/// A store in one file or in one directory. A changing operation ends where its change is in the
/// file for every reader, or, between BeginChanges and EndChanges of a store that has transactions
/// and uses them, where the transaction takes it. Nothing is forced to the disk. All reads end in
/// the caller's buffer.
class Store {
 public:
  Store() = default;
  virtual ~Store() = default;
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  /// Makes the store and leaves it open. Not timed.
  virtual Outcome Create(const Plan& plan) = 0;
  /// Closes the store for good. Not timed.
  virtual void Close() = 0;
  /// Timed with the changes that they enclose.
  virtual Outcome BeginChanges() { return Outcome::kDone; }
  virtual Outcome EndChanges() { return Outcome::kDone; }
  /// Not timed: what has to be opened, begun or mapped once before many reads.
  virtual Outcome BeginReads() { return Outcome::kDone; }
  virtual Outcome EndReads() { return Outcome::kDone; }

  /// A new stream with all its bytes.
  virtual Outcome Put(Key, const void*, std::size_t) { return Outcome::kCannot; }
  /// A stream's bytes from a look-up by its name.
  virtual Outcome Fetch(Key, void*, std::size_t) { return Outcome::kCannot; }
  virtual Outcome Remove(Key) { return Outcome::kCannot; }

  /// Small values: new, again, and read.
  virtual Outcome Set(Key key, const void* bytes, std::size_t size) {
    return Put(key, bytes, size);
  }
  virtual Outcome SetAgain(Key, const void*, std::size_t) { return Outcome::kCannot; }
  virtual Outcome Get(Key key, void* bytes, std::size_t size) { return Fetch(key, bytes, size); }
  /// With the store closed: opens it, reads the value, closes it.
  virtual Outcome OpenAndGet(Key, void*, std::size_t) { return Outcome::kCannot; }
  /// The same for a value that was put where opening finds it soonest; most have no such place.
  virtual Outcome OpenAndGetQuick(Key key, void* bytes, std::size_t size) {
    return OpenAndGet(key, bytes, size);
  }

  /// The next piece of stream 0, or the next record of stream 0 or 1, at its end.
  virtual Outcome Append(int /*stream*/, const void*, std::size_t) { return Outcome::kCannot; }
  /// The next piece of stream 0, from its start.
  virtual Outcome ReadNext(void*, std::size_t) { return Outcome::kCannot; }
  /// Goes to a place in stream 0 and reads there.
  virtual Outcome ReadAt(std::uint32_t /*position*/, void*, std::size_t) {
    return Outcome::kCannot;
  }

  /// Writes the store to `goal` without its dead space.
  virtual Outcome Compact(const std::string& /*goal*/) { return Outcome::kCannot; }

  /// Bytes that the store takes on the disk: those of all its files.
  virtual std::int64_t Bytes() const;

 protected:
  void Remember(const Plan& plan) { given = plan; }
  const Plan& Given() const { return given; }
  std::string File(const char* name) const { return given.directory + "/" + name; }

 private:
  Plan given{};
};

using StorePtr = std::unique_ptr<Store>;

/// What a competitor takes part in.
enum Part : unsigned {
  kWorks = 1,
  kChanges = 2,     ///< works that have changes alone
  kCompaction = 4,  ///< once for each peer: it is the same in all forms
  kScaling = 8,     ///< the works at growing n
  kReadsOnly = 16,  ///< its changes are those of another row, and are not told
};

/// One row of the competition.
struct Competitor {
  std::string name;    ///< in the results
  StorePtr (*make)();  ///< gives null where this library has no such mode
  unsigned parts;
  bool Has(Part part) const { return (parts & part) != 0; }
};

StorePtr MakeLibrary();
StorePtr MakeMappedLibrary();
StorePtr MakeBare();
StorePtr MakeBareMapped();
StorePtr MakeFiles();
StorePtr MakeCp();
StorePtr MakeCpFlushed();
StorePtr MakeTwoCopies();

/// Each source of a peer adds its rows, where the build has found the peer.
/// @return name and version of the peer, "" where it is missing
std::string AddSqlite(std::vector<Competitor>& competitors);
std::string AddLmdb(std::vector<Competitor>& competitors);
std::string AddHdf5(std::vector<Competitor>& competitors);
std::string AddGsf(std::vector<Competitor>& competitors);

}  // namespace aobench

#endif  // AOSTORAGE_BENCH_WORKS_STORE_H_
