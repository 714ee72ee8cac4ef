// Finds small numbers by the hash of a name.
#ifndef AOSTORAGE_STORAGE_HASH_INDEX_H_
#define AOSTORAGE_STORAGE_HASH_INDEX_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace aostorage::detail {

// A 64-bit hash of a name: two names of one directory have the same one practically never.
inline std::uint64_t HashOfName(std::string_view name) {
  constexpr std::uint64_t kBasis = 14695981039346656037U;
  constexpr std::uint64_t kPrime = 1099511628211U;
  std::uint64_t hash = kBasis;
  for (const char c : name) hash = (hash ^ static_cast<unsigned char>(c)) * kPrime;
  return hash ^ (hash >> 32);
}

// Open addressing in one flat array of 8 bytes a place, at most half full: a lookup in a large
// directory touches little memory. Half of the hash is kept and no name; the caller tells whether a
// value is the one it looks for.
class HashIndex {
 public:
  // The first value under `hash` that `matches` takes.
  template <typename Matches>
  std::optional<std::uint32_t> Find(std::uint64_t hash, Matches matches) const {
    if (places.empty()) return std::nullopt;
    const std::uint32_t tag = TagOf(hash);
    for (std::size_t i = Home(tag); places[i].taken != 0; i = Next(i)) {
      if (places[i].tag == tag && matches(places[i].Value())) return places[i].Value();
    }
    return std::nullopt;
  }

  // The next Insert takes no memory.
  void MakeRoom() {
    if ((count + 1) * 2 > places.size()) Grow();
  }

  void Insert(std::uint64_t hash, std::uint32_t value) {
    MakeRoom();
    Put({TagOf(hash), value + 1});
    ++count;
  }

  void Erase(std::uint64_t hash, std::uint32_t value) {
    if (places.empty()) return;
    const Place wanted{TagOf(hash), value + 1};
    std::size_t gap = Home(wanted.tag);
    while (places[gap].taken != 0 &&
           !(places[gap].tag == wanted.tag && places[gap].taken == wanted.taken)) {
      gap = Next(gap);
    }
    if (places[gap].taken == 0) return;
    // Closes the gap, so that no search ends at it too early.
    for (std::size_t i = Next(gap); places[i].taken != 0; i = Next(i)) {
      if (Distance(Home(places[i].tag), i) >= Distance(gap, i)) {
        places[gap] = places[i];
        gap = i;
      }
    }
    places[gap] = {};
    --count;
  }

 private:
  struct Place {
    std::uint32_t tag = 0;
    std::uint32_t taken = 0;  // the value plus one, 0 for an empty place

    std::uint32_t Value() const { return taken - 1; }
  };

  static constexpr std::size_t kFirstSize = 16;

  static std::uint32_t TagOf(std::uint64_t hash) { return static_cast<std::uint32_t>(hash); }
  std::size_t Home(std::uint32_t tag) const { return tag & (places.size() - 1); }
  std::size_t Next(std::size_t i) const { return (i + 1) & (places.size() - 1); }
  std::size_t Distance(std::size_t from, std::size_t to) const {
    return (to - from) & (places.size() - 1);
  }

  void Put(const Place& place) {
    std::size_t i = Home(place.tag);
    while (places[i].taken != 0) i = Next(i);
    places[i] = place;
  }

  void Grow() {
    std::vector<Place> old(places.empty() ? kFirstSize : places.size() * 2);
    old.swap(places);
    for (const Place& place : old) {
      if (place.taken != 0) Put(place);
    }
  }

  std::vector<Place> places;  // a power of two of them
  std::size_t count = 0;
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_STORAGE_HASH_INDEX_H_
