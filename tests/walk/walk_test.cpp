// Walks over root streams: by the map, by the directory, by the sorted view; and the searches on
// them.
#include <algorithm>
#include <array>
#include <random>

#include "folder/storage_fixture.h"
#include "storage/map_sort.h"
#include "support/model.h"

namespace aostorage::testing {
namespace {

using Names = std::vector<std::string>;

class RootWalks : public OneStorageTest {
 protected:
  void Make(const Names& names) const {
    for (const std::string& name : names) ASSERT_TRUE(MakeRoot(name)) << name;
  }
  Names Walk() const {
    Names names;
    StreamCookie cookie = 77;
    for (Stream stream(storage->OpenStreamFirst(cookie, kReadFlags)); stream;
         stream.reset(storage->OpenStreamNext(cookie, kReadFlags))) {
      names.push_back(stream->GetName());
    }
    EXPECT_EQ(names.empty(), cookie == 77) << "without a stream it stays";
    return names;
  }
  static Names WalkSlots(aoStorage& storage) {
    Names names;
    const Stream stream(storage.OpenStreamFirst(kReadFlags));
    do names.push_back(stream->GetName());
    while (stream->GoNext());
    return names;
  }
  Names WalkList() const {
    Names names;
    int position = 77;
    for (Stream stream(storage->OpenStreamFirst2(position, kReadFlags)); stream;
         stream.reset(storage->OpenStreamNext2(position, kReadFlags))) {
      EXPECT_EQ(position, static_cast<int>(names.size()));
      names.push_back(stream->GetName());
    }
    EXPECT_EQ(names.empty(), position == 77) << "without a stream it stays";
    return names;
  }
  static Names Sorted(Names names) {
    std::sort(names.begin(), names.end());
    return names;
  }
};

TEST_F(RootWalks, OverAnEmptyStorageLeaveTheCookie) {
  storage = Create();
  EXPECT_EQ(Walk(), Names());
  EXPECT_EQ(WalkList(), Names());
  storage->EnableSorting(1, 0);
  EXPECT_EQ(Walk(), Names());
  CIterateSortedStreams iteration;
  EXPECT_EQ(storage->IterateSortedStreamsNoOPENS(&iteration), 0);
  EXPECT_EQ(iteration.firstCall, 0);
  EXPECT_EQ(storage->IterateSortedStreamsNoOPENS(&iteration), 0);
  EXPECT_EQ(storage->IterateSortedStreamsNoOPENS(nullptr), 0);
  EXPECT_EQ(WalkSlots(*storage), Names{""}) << "the first slot, in use or not";
  EXPECT_EQ(storage->OpenStreamFirst(kReadFlags)->Release(), 0);
}

TEST_F(RootWalks, FollowALongHistoryInTheOrderAsked) {
  const Names odd{"\x80high", "a", "ab", "abcdefgh", "abcdefghi", "abcdefgh\x01", "B"};
  for (const unsigned seed : HistorySeeds(3)) {
    SCOPED_TRACE("AOSTORAGE_TEST_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    storage = Create();
    // The unsorted walk goes from list to list, in each the newest first.
    std::array<Names, 17> lists;
    const auto listOf = [&](const std::string& name) -> Names& {
      return lists[detail::HashKey(name) % lists.size()];
    };
    const auto drop = [&](const std::string& name) {
      Names& list = listOf(name);
      list.erase(std::find(list.begin(), list.end(), name));
    };
    for (int round = 0; round < 10; ++round) {
      // Rounds that mostly grow and rounds that mostly shrink.
      const unsigned removals = round % 2 == 0 ? 2 : 9;
      for (int step = 0; step < 150; ++step) {
        const auto number = random() % 200;
        const std::string name = number < odd.size() ? odd[number] : std::to_string(number);
        Stream stream = Root(name);
        if (!stream && random() % 10 >= removals) {
          Make({name});
          listOf(name).insert(listOf(name).begin(), name);
        } else if (stream && random() % 10 < removals) {
          drop(name);
          if (const std::string other = "x" + name; random() % 4 == 0 && !Root(other)) {
            ASSERT_TRUE(stream->Rename(other.c_str()));
            listOf(other).insert(listOf(other).begin(), other);
          } else {
            ASSERT_TRUE(Remove(stream));
          }
        }
      }
      Names expected;
      for (const Names& list : lists) expected.insert(expected.end(), list.begin(), list.end());
      storage->EnableSorting(0, 0);
      ASSERT_EQ(Walk(), expected);
      expected = Sorted(expected);
      storage->EnableSorting(1, 0);
      ASSERT_EQ(Walk(), expected);
      storage->EnableSorting(1, 1);
      std::reverse(expected.begin(), expected.end());
      ASSERT_EQ(Walk(), expected);
      if (expected.empty()) continue;
      Stream gone = Root(expected.front());  // nothing but this makes the sorted view old
      ASSERT_TRUE(Remove(gone));
      drop(expected.front());
      expected.erase(expected.begin());
      ASSERT_EQ(Walk(), expected);
    }
    const Names before = Walk();
    Reopen();
    storage->EnableSorting(1, 1);
    EXPECT_EQ(Walk(), before);
  }
}

TEST_F(RootWalks, EndMarksAndStaleCookiesGiveNull) {
  storage = Create();
  StreamCookie cookie = 77;
  const auto next = [&](StreamCookie from) {
    cookie = from;
    return Stream(storage->OpenStreamNext(cookie, kWriteFlags));
  };
  Make({"a"});
  for (const int sorted : {0, 1}) {
    storage->EnableSorting(sorted, 0);
    EXPECT_TRUE(Got(storage->OpenStreamFirst(cookie, kReadFlags)));
    EXPECT_EQ(cookie, sorted == 0 ? 0 : -1);
    EXPECT_FALSE(next(cookie));
  }
  Make({"b", "c"});
  for (const int sorted : {0, 1}) {
    storage->EnableSorting(sorted, 0);
    const Stream first(storage->OpenStreamFirst(cookie, kReadFlags));
    const StreamCookie second = cookie;
    EXPECT_TRUE(second != 0 && second != -1);
    Stream removed = next(second);
    const std::string name = removed->GetName();
    ASSERT_TRUE(Remove(removed));
    EXPECT_FALSE(next(second)) << "its entry is gone";
    Make({"taker"});
    EXPECT_TRUE(!next(second) || sorted == 1) << "another entry has its place";
    Stream taker = Root("taker");
    ASSERT_TRUE(Remove(taker));
    Make({name});
    for (const StreamCookie made :
         {StreamCookie{-1}, StreamCookie{-2}, StreamCookie{99}, StreamCookie{1} << 33, INTPTR_MAX,
          INTPTR_MIN, reinterpret_cast<StreamCookie>(storage.get())}) {
      EXPECT_FALSE(next(made)) << made;
    }
  }
  for (const int made : {-1, -2, 3, 99, INT32_MAX, INT32_MIN}) {
    CIterateSortedStreams iteration;
    ASSERT_EQ(storage->IterateSortedStreamsNoOPENS(&iteration), 1);
    iteration.nextIndex = made;
    EXPECT_EQ(storage->IterateSortedStreamsNoOPENS(&iteration), 0) << made;
    int position = 0;
    ASSERT_TRUE(Got(storage->OpenStreamFirst2(position, kReadFlags)));
    position = made == -1 ? 2 : made;  // the last of the list
    EXPECT_FALSE(Got(storage->OpenStreamNext2(position, kReadFlags))) << made;
    EXPECT_EQ(position, made == -1 ? 2 : made);
  }
}

TEST_F(RootWalks, SortedScansEstimateDurations) {
  struct Entry {
    const char* name;
    std::uint16_t minutes;
    std::uint32_t seconds;
  };
  struct Row {
    const char* label;
    std::uint32_t fixedDuration, lastDuration;
    int descending;
    std::vector<Entry> entries;  // in the order of the scan
    std::uint32_t lastAfter;
  };
  const Row rows[] = {
      {"stored", 0, 0, 0, {{"5F000000", 5, 300}, {"5F000708", 65535, 65535U * 60}}, 0},
      {"fixed", 120, 0, 0, {{"5F000000", 5, 120}, {"5F000708", 0, 120}, {"x", 0, 120}}, 0},
      {"gap", 0, 0, 0, {{"5F000000", 0, 1800}, {"5F000708", 0, 1800}}, 1800},
      {"first default", 0, 0, 0, {{"5F000000", 0, 3600}}, 3600},
      {"a day", 0, 7, 0, {{"5F000000", 0, 86400}, {"5F015180", 0, 86400}}, 86400},
      {"more than a day", 0, 7, 0, {{"5F000000", 0, 7}, {"5F015181", 0, 7}}, 7},
      {"two days, nothing before", 0, 0, 0, {{"5F000000", 0, 3600}, {"5F02A300", 0, 3600}}, 3600},
      {"descending wraps", 0, 9, 1, {{"5F000708", 0, 9}, {"5F000000", 0, 9}}, 9},
      {"gap of 0", 0, 9, 0, {{"5F00000A", 0, 3600}, {"5f00000a", 0, 3600}}, 3600},
      {"over others", 0, 0, 0, {{"5F000000", 0, 60}, {"5F00002", 0, 0}, {"5F00003C", 1, 60}}, 60},
      {"other lengths", 0, 5, 0, {{"5F00000", 0, 0}, {"5F0000000", 0, 0}}, 5},
      {"no number", 0, 5, 0, {{"01234567", 0, 5}, {"what's up", 0, 0}, {"zzzzzzzz", 0, 5}}, 5},
      {"begins as a number", 0, 5, 0, {{"0000000x", 0, 16}, {"000010zz", 0, 16}}, 16},
      {"end of the numbers", 0, 5, 0, {{"FFFFFFF0", 0, 15}, {"FFFFFFFF", 0, 15}}, 15}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    storage = Create();
    for (const Entry& entry : row.entries)
      ASSERT_TRUE(MakeRoot(entry.name, PackKind(false, entry.minutes)));
    CIterateSortedStreams iteration;
    iteration.fixedDuration = row.fixedDuration;
    iteration.lastDuration = row.lastDuration;
    iteration.descending = row.descending;
    Watch watch;
    int step = 0;
    const auto count = static_cast<int>(row.entries.size());
    for (const Entry& entry : row.entries) {
      ASSERT_EQ(storage->IterateSortedStreamsNoOPENS(&iteration), 1);
      EXPECT_EQ(iteration.streamName, entry.name);
      EXPECT_EQ(iteration.streamOffset.durationSeconds, entry.seconds) << entry.name;
      EXPECT_EQ(iteration.nextIndex, ++step == count ? -1 : step);
    }
    EXPECT_EQ(storage->IterateSortedStreamsNoOPENS(&iteration), 0);
    EXPECT_EQ(iteration.lastDuration, row.lastAfter);
    EXPECT_EQ(watch.Total(), 0U) << "no call on the file";
    tag_aoStreamOffset& offset = iteration.streamOffset;
    const Stream byOffset(storage->OpenStreamByOffset(offset, "key", kReadFlags));
    EXPECT_EQ(byOffset->GetName(), iteration.streamName);
  }
  CIterateSortedStreams iteration;
  EXPECT_EQ(OpenFast()->IterateSortedStreamsNoOPENS(&iteration), 0) << "the map is empty";
}

TEST_F(RootWalks, SearchesTakeTheFirstOfTheirKind) {
  storage = Create();
  Make({"p", "q"});
  for (const char* name : {"g", "f"}) ASSERT_TRUE(MakeRoot(name, kFolderKind));
  struct Row {
    aoStream* (aoStorage::*search)(const char*);
    const char *name, *ascending, *descending;
  };
  const Row rows[] = {{&aoStorage::FindRootStorage, "", "f", "g"},
                      {&aoStorage::FindRootStorage, "g", "g", "g"},
                      {&aoStorage::FindRootStorage, "p", nullptr, nullptr},
                      {&aoStorage::FindRootStorage, "x", nullptr, nullptr},
                      {&aoStorage::FindRootStorageWrite, "", "f", "g"},
                      {&aoStorage::FindRootStorageWrite, "f", "f", "f"},
                      {&aoStorage::FindRootStream, "", "p", "q"},
                      {&aoStorage::FindRootStream, "f", nullptr, nullptr},
                      {&aoStorage::FindRootStream, nullptr, nullptr, nullptr}};
  for (const int descending : {0, 1}) {
    storage->EnableSorting(1, descending);
    for (const Row& row : rows) {
      const char* expected = descending == 0 ? row.ascending : row.descending;
      const Stream found((storage.get()->*row.search)(row.name));
      ASSERT_EQ(found != nullptr, expected != nullptr);
      if (!found) continue;
      EXPECT_STREQ(found->GetName(), expected);
      EXPECT_EQ(found->Rename(expected), row.search == &aoStorage::FindRootStorageWrite);
    }
  }
  storage->EnableSorting(1, 0);
  const Stream held = Root("g", kStreamRead | kShareRead);
  EXPECT_FALSE(Got(storage->FindRootStream("p"))) << "a search ends where the walk does";
  EXPECT_TRUE(Got(storage->FindRootStorage("f")));
}

TEST_F(RootWalks, SubfolderCountsAreTheStoredOnes) {
  storage = Create();
  const Stream folder = MakeRoot("f", kFolderKind);
  EXPECT_EQ(storage->GetSubfolderCount("f"), 0U);
  for (const char* name : {"a", "b", "c"})
    ASSERT_TRUE(Got(folder->CreateStream(name, kPlainKind, kWriteFlags)));
  Stream child(folder->OpenStream("b", kWriteFlags));
  ASSERT_TRUE(Remove(child));
  EXPECT_EQ(storage->GetSubfolderCount("f"), 3U) << "vacated slots included";
  ASSERT_EQ(storage->SetEntry("plain", std::int32_t{5}), 1);
  for (const char* name : {"plain", "absent", "", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(storage->GetSubfolderCount(name), 0U);
  }
  EXPECT_EQ(OpenFast()->GetSubfolderCount("f"), 0U);
  const Stream held = Root("f", kStreamRead | kShareRead);
  EXPECT_EQ(storage->GetSubfolderCount("f"), 0U) << "refused by the share rules";
}

}  // namespace
}  // namespace aostorage::testing
