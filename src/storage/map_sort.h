// The name map of the root streams.
#ifndef AOSTORAGE_STORAGE_MAP_SORT_H_
#define AOSTORAGE_STORAGE_MAP_SORT_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include <aostorage/types.h>

#include "storage/hash_index.h"

namespace aostorage::detail {

// A deterministic 32-bit hash of a name. The order of the unsorted walk follows from it, so it must
// not change.
std::uint32_t HashKey(std::string_view name);

// Maps a name to the locator of its stream header.
//
// Seventeen buckets decide the order of the unsorted walk: bucket after bucket, in each the newest
// name first. They are lists and nothing more; names are found through an index that grows beside
// them, so that a lookup costs the same in any map. A sorted view holds references to the entries
// and is made when a walk asks.
//
// A walk refers to an entry by an EntryId, which is checked before it is followed: one that has
// gone stale finds nothing.
class CMapSort {
 public:
  using EntryId = StreamCookie;
  static constexpr EntryId kNoEntry = 0;

  struct Found {
    const char* name;  // valid until the entry is removed
    tag_aoStreamOffset locator;
  };

  std::size_t Count() const { return count; }
  bool Has(std::string_view name) const { return FindEntry(name) != nullptr; }
  bool Lookup(std::string_view name, tag_aoStreamOffset& locator) const;
  // Makes the entry if there is none, and gives it this locator.
  void Store(std::string_view name, const tag_aoStreamOffset& locator);
  // The next Store, after a Remove or not, cannot run out of memory.
  void MakeRoom();
  // False when the name is not there.
  bool Remove(std::string_view name);

  // --- Unsorted walk
  EntryId First() const;
  EntryId Next(EntryId id) const;
  std::optional<Found> At(EntryId id) const;

  // --- Sorted view
  // Brings the view into the order wanted; a view that is still right is kept.
  void Sort(bool descending);
  // Entries of the view as the last Sort left it.
  std::size_t SortedCount() const { return sortedEntries.size(); }
  // The entry at a place of the view; nothing out of range, or when the entry has left the map
  // since.
  std::optional<Found> SortedAt(std::int64_t place) const;

 private:
  static constexpr std::size_t kBucketCount = 17;

  // What a lookup reads lies side by side, in one cache line for most names.
  struct alignas(64) Entry {
    tag_aoStreamOffset locator{};
    std::array<char, kMaxNameLength + 1> name{};
    bool used = false;
    std::uint32_t hash = 0;
    std::uint32_t generation = 0;  // counts the lives of this place in the pool
    std::uint32_t place = 0;       // index in the pool
    Entry* next = nullptr;         // neighbours in the bucket
    Entry* previous = nullptr;
  };

  static EntryId IdOf(const Entry& entry);
  const Entry* EntryOf(EntryId id) const;
  Entry* FindEntry(std::string_view name);
  const Entry* FindEntry(std::string_view name) const;
  Entry* TakeFromPool();
  Entry* AddToPool();

  std::array<Entry*, kBucketCount> buckets{};
  // The pool grows by whole chunks, so that entries never move and lie close together.
  static constexpr std::size_t kChunkSize = 256;
  Entry& PoolEntry(std::uint32_t place) const {
    return chunks[place / kChunkSize][place % kChunkSize];
  }

  std::vector<std::unique_ptr<Entry[]>> chunks;
  std::uint32_t poolSize = 0;  // entries of the chunks that were ever in use
  std::vector<Entry*> freeEntries;
  HashIndex index;  // name to place in the pool
  std::size_t count = 0;

  std::vector<EntryId> sortedEntries;
  bool sortedValid = false;
  bool sortDescending = false;
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_STORAGE_MAP_SORT_H_
