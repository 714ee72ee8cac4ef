#include "storage/map_sort.h"

#include <algorithm>
#include <cstring>

namespace aostorage::detail {
namespace {

// An EntryId is a place in the pool plus one, and above it the generation, so that it is never 0
// and a place that was given to another name is noticed.
constexpr int kPlaceBits = sizeof(CMapSort::EntryId) >= 8 ? 32 : 25;
constexpr std::uint64_t kPlaceMask = (std::uint64_t{1} << kPlaceBits) - 1;
constexpr int kGenerationBits = static_cast<int>(sizeof(CMapSort::EntryId) * 8) - 1 - kPlaceBits;
constexpr std::uint32_t kGenerationMask =
    static_cast<std::uint32_t>((std::uint64_t{1} << kGenerationBits) - 1);

// Most names differ in their first bytes: those stand in a number, so that the sort seldom leaves
// its array.
struct SortKey {
  std::uint64_t prefix;
  const char* name;
  CMapSort::EntryId id;

  bool operator<(const SortKey& other) const {
    return prefix != other.prefix ? prefix < other.prefix : std::strcmp(name, other.name) < 0;
  }
};

std::uint64_t PrefixOf(const char* name) {
  std::uint64_t prefix = 0;
  for (int i = 0; i < 8; ++i) {
    prefix = (prefix << 8) | static_cast<unsigned char>(*name);
    if (*name != '\0') ++name;
  }
  return prefix;
}

}  // namespace

std::uint32_t HashKey(std::string_view name) {
  constexpr std::uint32_t kBasis = 2166136261U;
  constexpr std::uint32_t kPrime = 16777619U;
  std::uint32_t hash = kBasis;
  for (const char c : name) hash = (hash ^ static_cast<unsigned char>(c)) * kPrime;
  return hash;
}

CMapSort::EntryId CMapSort::IdOf(const Entry& entry) {
  const std::uint64_t generation = entry.generation & kGenerationMask;
  return static_cast<EntryId>((generation << kPlaceBits) | (std::uint64_t{entry.place} + 1));
}

const CMapSort::Entry* CMapSort::EntryOf(EntryId id) const {
  if (id <= 0) return nullptr;
  const auto bits = static_cast<std::uint64_t>(id);
  const std::uint64_t place = (bits & kPlaceMask) - 1;  // a place of 0 - 1 is far out of range
  if (place >= poolSize) return nullptr;
  const Entry& entry = PoolEntry(static_cast<std::uint32_t>(place));
  return entry.used && IdOf(entry) == id ? &entry : nullptr;
}

const CMapSort::Entry* CMapSort::FindEntry(std::string_view name) const {
  const auto place = index.Find(HashOfName(name), [&](std::uint32_t candidate) {
    return name == PoolEntry(candidate).name.data();
  });
  return place ? &PoolEntry(*place) : nullptr;
}

CMapSort::Entry* CMapSort::FindEntry(std::string_view name) {
  return const_cast<Entry*>(static_cast<const CMapSort*>(this)->FindEntry(name));
}

bool CMapSort::Lookup(std::string_view name, tag_aoStreamOffset& locator) const {
  const Entry* entry = FindEntry(name);
  if (entry == nullptr) return false;
  locator = entry->locator;
  return true;
}

void CMapSort::Store(std::string_view name, const tag_aoStreamOffset& locator) {
  if (Entry* present = FindEntry(name)) {
    present->locator = locator;
    return;
  }
  Entry* entry = TakeFromPool();
  index.Insert(HashOfName(name), entry->place);
  entry->used = true;
  entry->hash = HashKey(name);
  entry->name.fill('\0');
  std::memcpy(entry->name.data(), name.data(), std::min<std::size_t>(name.size(), kMaxNameLength));
  entry->locator = locator;
  Entry*& front = buckets[entry->hash % kBucketCount];
  entry->previous = nullptr;
  entry->next = front;
  if (front != nullptr) front->previous = entry;
  front = entry;
  ++count;
  sortedValid = false;
}

void CMapSort::MakeRoom() {
  if (freeEntries.capacity() < freeEntries.size() + 2)
    freeEntries.reserve(2 * freeEntries.size() + 2);
  if (freeEntries.empty()) freeEntries.push_back(AddToPool());
  index.MakeRoom();
}

bool CMapSort::Remove(std::string_view name) {
  Entry* entry = FindEntry(name);
  if (entry == nullptr) return false;
  freeEntries.push_back(entry);  // the only step that can fail comes first
  index.Erase(HashOfName(name), entry->place);
  Entry*& front = buckets[entry->hash % kBucketCount];
  (entry->previous != nullptr ? entry->previous->next : front) = entry->next;
  if (entry->next != nullptr) entry->next->previous = entry->previous;
  entry->used = false;
  ++entry->generation;
  --count;
  sortedValid = false;
  return true;
}

CMapSort::EntryId CMapSort::First() const {
  const auto front =
      std::find_if(buckets.begin(), buckets.end(), [](const Entry* e) { return e != nullptr; });
  return front == buckets.end() ? kNoEntry : IdOf(**front);
}

CMapSort::EntryId CMapSort::Next(EntryId id) const {
  const Entry* entry = EntryOf(id);
  if (entry == nullptr) return kNoEntry;
  if (entry->next != nullptr) return IdOf(*entry->next);
  for (std::size_t bucket = entry->hash % kBucketCount + 1; bucket < kBucketCount; ++bucket) {
    if (buckets[bucket] != nullptr) return IdOf(*buckets[bucket]);
  }
  return kNoEntry;
}

std::optional<CMapSort::Found> CMapSort::At(EntryId id) const {
  const Entry* entry = EntryOf(id);
  if (entry == nullptr) return std::nullopt;
  return Found{entry->name.data(), entry->locator};
}

void CMapSort::Sort(bool descending) {
  if (sortedValid && sortDescending == descending) return;
  sortedValid = false;
  sortDescending = descending;
  std::vector<SortKey> order;
  order.reserve(count);
  for (std::uint32_t place = 0; place < poolSize; ++place) {
    const Entry& entry = PoolEntry(place);
    if (entry.used) order.push_back({PrefixOf(entry.name.data()), entry.name.data(), IdOf(entry)});
  }
  std::sort(order.begin(), order.end());
  if (descending) std::reverse(order.begin(), order.end());
  sortedEntries.clear();
  sortedEntries.reserve(order.size());
  for (const SortKey& key : order) sortedEntries.push_back(key.id);
  sortedValid = true;
}

std::optional<CMapSort::Found> CMapSort::SortedAt(std::int64_t place) const {
  if (place < 0 || static_cast<std::uint64_t>(place) >= sortedEntries.size()) return std::nullopt;
  return At(sortedEntries[static_cast<std::size_t>(place)]);
}

CMapSort::Entry* CMapSort::TakeFromPool() {
  if (!freeEntries.empty()) {
    Entry* entry = freeEntries.back();
    freeEntries.pop_back();
    return entry;
  }
  return AddToPool();
}

CMapSort::Entry* CMapSort::AddToPool() {
  if (poolSize == chunks.size() * kChunkSize)
    chunks.push_back(std::make_unique<Entry[]>(kChunkSize));
  Entry& entry = PoolEntry(poolSize);
  entry.place = poolSize++;
  return &entry;
}

}  // namespace aostorage::detail
