// The name map against a plain one: finding, order of the unsorted walk, stale places.
#include "storage/map_sort.h"

#include <algorithm>
#include <map>
#include <random>

#include <gtest/gtest.h>

#include "support/model.h"

namespace aostorage::detail {
namespace {

// Bucket by bucket, in each the newest first.
class PlainMap {
 public:
  void Store(const std::string& name, std::uint32_t place) {
    std::vector<std::string>& bucket = buckets[HashKey(name) % 17];
    if (places.find(name) == places.end()) bucket.insert(bucket.begin(), name);
    places[name] = place;
  }
  void Remove(const std::string& name) {
    std::vector<std::string>& bucket = buckets[HashKey(name) % 17];
    bucket.erase(std::remove(bucket.begin(), bucket.end(), name), bucket.end());
    places.erase(name);
  }
  std::vector<std::string> Order() const {
    std::vector<std::string> order;
    for (const auto& bucket : buckets) order.insert(order.end(), bucket.begin(), bucket.end());
    return order;
  }
  std::map<std::string, std::uint32_t> places;

 private:
  std::array<std::vector<std::string>, 17> buckets;
};

TEST(MapSort, LongHistoriesAgreeWithAPlainMap) {
  for (const unsigned seed : testing::HistorySeeds(4)) {
    SCOPED_TRACE("AOSTORAGE_TEST_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    CMapSort map;
    PlainMap plain;
    for (int round = 0; round < 20; ++round) {
      // Rounds that mostly grow and rounds that mostly shrink, down to the empty map.
      const unsigned removals = round % 2 == 0 ? 2 : 9;
      for (int step = 0; step < 300; ++step) {
        const std::string name = std::to_string(random() % 400);
        if (random() % 10 < removals) {
          ASSERT_EQ(map.Remove(name), plain.places.count(name) == 1);
          plain.Remove(name);
        } else {
          const auto place = static_cast<std::uint32_t>(random());
          map.Store(name, {place, 0, 0, 0});
          plain.Store(name, place);
        }
      }
      ASSERT_EQ(map.Count(), plain.places.size());
      for (int i = 0; i < 400; ++i) {
        const std::string name = std::to_string(i);
        tag_aoStreamOffset locator{};
        const auto found = plain.places.find(name);
        ASSERT_EQ(map.Lookup(name, locator), found != plain.places.end()) << name;
        if (found != plain.places.end()) {
          ASSERT_EQ(locator.headerOffset, found->second) << name;
        }
      }
      std::vector<std::string> order;
      for (CMapSort::EntryId id = map.First(); id != CMapSort::kNoEntry; id = map.Next(id)) {
        order.push_back(map.At(id)->name);
      }
      ASSERT_EQ(order, plain.Order());
      for (const bool descending : {false, true}) {
        map.Sort(descending);
        std::vector<std::string> sorted;
        for (std::size_t i = 0; i < map.SortedCount(); ++i) {
          sorted.push_back(map.SortedAt(static_cast<std::int64_t>(i))->name);
        }
        std::vector<std::string> expected = order;
        std::sort(expected.begin(), expected.end());
        if (descending) std::reverse(expected.begin(), expected.end());
        ASSERT_EQ(sorted, expected);
      }
    }
  }
}

TEST(MapSort, PlacesThatWentStaleLeadNowhere) {
  CMapSort map;
  map.Store("a", {1, 0, 0, 0});
  map.Store("b", {2, 0, 0, 0});
  map.Sort(false);
  const CMapSort::EntryId first = map.First();
  const std::string gone = map.At(first)->name;
  map.Remove(gone);
  EXPECT_FALSE(map.At(first));
  map.Store("c", {3, 0, 0, 0});  // may take the same place in memory
  EXPECT_FALSE(map.At(first)) << "another entry's life";
  EXPECT_EQ(map.Next(first), CMapSort::kNoEntry);
  EXPECT_FALSE(map.SortedAt(gone == "a" ? 0 : 1));
  for (const std::int64_t odd : {std::int64_t{-1}, std::int64_t{2}, INT64_MAX, INT64_MIN}) {
    EXPECT_FALSE(map.SortedAt(odd)) << odd;
  }
  for (const std::int64_t odd :
       {std::int64_t{-1}, std::int64_t{0}, std::int64_t{1000}, INT64_MAX, INT64_MIN}) {
    EXPECT_FALSE(map.At(static_cast<CMapSort::EntryId>(odd))) << odd;
  }
}

}  // namespace
}  // namespace aostorage::detail
