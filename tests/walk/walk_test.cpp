// Walks over root streams: by the map, by the directory, by the sorted view; and the searches on
// them.
#include <algorithm>
#include <array>

#include "folder/storage_fixture.h"

namespace aostorage::testing {
namespace {

using Names = std::vector<std::string>;

class RootWalks : public StorageFileTest {
 protected:
  static void Make(aoStorage& storage, const Names& names) {
    for (const std::string& name : names)
      ASSERT_TRUE(Got(storage.CreateStream(name.c_str(), kWriteFlags))) << name;
  }
  static Names Walk(aoStorage& storage) {
    Names names;
    StreamCookie cookie = 77;
    for (Stream stream(storage.OpenStreamFirst(cookie, kReadFlags)); stream;
         stream.reset(storage.OpenStreamNext(cookie, kReadFlags))) {
      names.push_back(stream->GetName());
    }
    return names;
  }
  static Names WalkSlots(aoStorage& storage) {
    Names names;
    const Stream stream(storage.OpenStreamFirst(kReadFlags));
    do names.push_back(stream->GetName());
    while (stream->GoNext());
    return names;
  }
  static Names WalkList(aoStorage& storage) {
    Names names;
    int position = 77;
    for (Stream stream(storage.OpenStreamFirst2(position, kReadFlags)); stream;
         stream.reset(storage.OpenStreamNext2(position, kReadFlags))) {
      EXPECT_EQ(position, static_cast<int>(names.size()));
      names.push_back(stream->GetName());
    }
    return names;
  }
  static Names Sorted(Names names) {
    std::sort(names.begin(), names.end());
    return names;
  }
};

TEST_F(RootWalks, OverAnEmptyStorageLeaveTheCookie) {
  const Storage storage = Create();
  for (const int sorted : {0, 1}) {
    storage->EnableSorting(sorted, 0);
    StreamCookie cookie = 77;
    EXPECT_FALSE(Got(storage->OpenStreamFirst(cookie, kReadFlags)));
    EXPECT_EQ(cookie, 77);
  }
  int position = 77;
  EXPECT_FALSE(Got(storage->OpenStreamFirst2(position, kReadFlags)));
  EXPECT_EQ(position, 77);
  CIterateSortedStreams iteration;
  EXPECT_EQ(storage->IterateSortedStreamsNoOPENS(&iteration), 0);
  EXPECT_EQ(iteration.firstCall, 0);
  EXPECT_EQ(storage->IterateSortedStreamsNoOPENS(&iteration), 0);
  EXPECT_EQ(storage->IterateSortedStreamsNoOPENS(nullptr), 0);
  Stream empty(storage->OpenStreamFirst(kReadFlags));
  ASSERT_TRUE(empty) << "the first slot, in use or not";
  EXPECT_STREQ(empty->GetName(), "");
  EXPECT_FALSE(empty->GoNext());
  EXPECT_EQ(empty.release()->Release(), 0);
}

TEST_F(RootWalks, MeetEveryStreamOnceInTheOrderAsked) {
  Names names;
  for (int i = 0; i < 150; ++i)
    names.push_back((i % 2 == 0 ? "n" : "N") + std::to_string(i * 37 % 150));
  names.insert(names.end(), {"\x80high", "a", "ab", "abcdefgh", "abcdefghi", "abcdefgh\x01", "B"});
  Storage storage = Create();
  Make(*storage, names);
  ASSERT_TRUE(Got(storage->CreateStreamFast("reserved", kWriteFlags)));
  names.push_back("reserved");
  for (int round = 0; round < 2; ++round) {
    storage->EnableSorting(0, 0);
    const Names unsorted = Walk(*storage);
    EXPECT_EQ(Sorted(unsorted), Sorted(names));
    EXPECT_EQ(Walk(*storage), unsorted);
    Names expected = Sorted(names);
    storage->EnableSorting(1, 0);
    EXPECT_EQ(Walk(*storage), expected);
    storage->EnableSorting(1, 1);
    std::reverse(expected.begin(), expected.end());
    EXPECT_EQ(Walk(*storage), expected);
    storage = Open();
  }
  storage->EnableSorting(1, 0);
  EXPECT_EQ(Walk(*storage), Sorted(names));
  Make(*storage, {"later"});
  names.push_back("later");
  EXPECT_EQ(Walk(*storage), Sorted(names)) << "the view follows a creation";
  Stream gone(storage->OpenStream("B", kWriteFlags));
  ASSERT_TRUE(Remove(gone));
  names.erase(std::find(names.begin(), names.end(), "B"));
  EXPECT_EQ(Walk(*storage), Sorted(names)) << "and a removal";
  ASSERT_TRUE(Stream(storage->OpenStream("a", kWriteFlags))->Rename("zz"));
  *std::find(names.begin(), names.end(), "a") = "zz";
  EXPECT_EQ(Walk(*storage), Sorted(names)) << "and a new name";
}

TEST_F(RootWalks, EndMarksAndStaleCookiesGiveNull) {
  const Storage storage = Create();
  Make(*storage, {"a"});
  for (const int sorted : {0, 1}) {
    storage->EnableSorting(sorted, 0);
    StreamCookie cookie = 77;
    EXPECT_TRUE(Got(storage->OpenStreamFirst(cookie, kReadFlags)));
    EXPECT_EQ(cookie, sorted == 0 ? 0 : -1);
    EXPECT_FALSE(Got(storage->OpenStreamNext(cookie, kReadFlags)));
  }
  Make(*storage, {"b", "c"});
  for (const int sorted : {0, 1}) {
    storage->EnableSorting(sorted, 0);
    StreamCookie cookie = 0;
    const Stream first(storage->OpenStreamFirst(cookie, kReadFlags));
    const StreamCookie second = cookie;
    EXPECT_NE(second, 0);
    EXPECT_NE(second, -1);
    StreamCookie next = second;
    Stream removed(storage->OpenStreamNext(next, kWriteFlags));
    const std::string name = removed->GetName();
    ASSERT_TRUE(Remove(removed));
    next = second;
    EXPECT_FALSE(Got(storage->OpenStreamNext(next, kReadFlags))) << "its entry is gone";
    Make(*storage, {"taker"});
    next = second;
    const Stream met(storage->OpenStreamNext(next, kReadFlags));
    EXPECT_TRUE(!met || sorted == 1) << "another entry has its place";
    Stream taker(storage->OpenStream("taker", kWriteFlags));
    ASSERT_TRUE(Remove(taker));
    Make(*storage, {name});
    for (const StreamCookie made :
         {StreamCookie{-1}, StreamCookie{-2}, StreamCookie{99}, StreamCookie{1} << 33, INTPTR_MAX,
          INTPTR_MIN, reinterpret_cast<StreamCookie>(storage.get())}) {
      next = made;
      EXPECT_FALSE(Got(storage->OpenStreamNext(next, kReadFlags))) << made;
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

TEST_F(RootWalks, GoOnBehindAStreamThatIsNotShared) {
  const Storage storage = Create();
  Make(*storage, {"a", "b", "c"});
  storage->EnableSorting(1, 0);
  const Stream held(storage->OpenStream("b", kStreamRead | kShareRead));
  StreamCookie cookie = 0;
  EXPECT_TRUE(Got(storage->OpenStreamFirst(cookie, kReadFlags)));
  EXPECT_FALSE(Got(storage->OpenStreamNext(cookie, kReadFlags)));
  EXPECT_EQ(cookie, 2);
  EXPECT_STREQ(Stream(storage->OpenStreamNext(cookie, kReadFlags))->GetName(), "c");
  EXPECT_FALSE(Got(storage->FindRootStream("c"))) << "a search ends where the walk does";
  EXPECT_TRUE(Got(storage->FindRootStream("a")));
}

TEST_F(RootWalks, BySlotsStopAtTheFirstEmptyOne) {
  for (const bool older : {false, true}) {
    FileBuilder builder(older ? FileBuilder::Form::kOlder : FileBuilder::Form::kCurrent);
    const std::uint32_t reserved = older ? 2 : 6;
    builder.AddDirectory();
    builder.PutSlot(0, StreamRecord("reserved", false, 0, 0));
    Names names;
    for (std::uint32_t slot = reserved; slot < 66; ++slot) {
      names.push_back("s" + std::to_string(slot));
      builder.PutSlot(slot % 64, StreamRecord(names.back(), false, 0, 0), slot / 64);
    }
    builder.PutSlot(3, StreamRecord("beyond", false, 0, 0), 1);
    Storage storage = OpenBytes(builder.bytes);
    EXPECT_EQ(WalkSlots(*storage), names);
    EXPECT_EQ(WalkSlots(*OpenFast()), names) << "the map has no part in it";
    Names all = names;
    all.insert(all.begin(), "reserved");
    all.push_back("beyond");
    EXPECT_EQ(WalkList(*storage), all);
    EXPECT_EQ(Sorted(Walk(*storage)), Sorted(all));
    int position = 0;
    EXPECT_FALSE(Got(OpenFast()->OpenStreamFirst2(position, kReadFlags)))
        << "no name is in the map";
    Stream removed(storage->OpenStream(names[1].c_str(), kWriteFlags));
    ASSERT_TRUE(Remove(removed));
    EXPECT_EQ(WalkSlots(*storage), (Names{names[0]}));

    // A chain of directories that leads back, and one that is damaged.
    for (const std::uint32_t next :
         {builder.SlotAt(0) - 12, builder.SlotAt(0, 1) - 12, 0x7FFFFFFFU}) {
      FileBuilder damaged = builder;
      Put32(damaged.bytes, builder.SlotAt(0, 1) - 12 + 8, next);
      storage = OpenBytes(damaged.bytes);
      EXPECT_FALSE(Got(storage->OpenStreamFirst2(position, kReadFlags)));
      EXPECT_EQ(WalkSlots(*storage), names);
      EXPECT_EQ(Sorted(Walk(*storage)), Sorted(all));
    }
  }
}

TEST_F(RootWalks, ByTheListOpenWhatTheMapHolds) {
  FileBuilder builder;
  builder.PutSlot(6, StreamRecord("twice", false, 1, 0));
  builder.PutSlot(7, StreamRecord("twice", false, 2, 0));
  builder.PutSlot(8, StreamRecord("last", false, 3, 0));
  const Storage storage = OpenBytes(builder.bytes);
  int position = 0;
  EXPECT_EQ(Stream(storage->OpenStreamFirst2(position, kReadFlags))->GetLength(), 2U);
  EXPECT_EQ(Stream(storage->OpenStreamNext2(position, kReadFlags))->GetLength(), 2U);
  ASSERT_TRUE(storage->RemoveStream("last"));
  Make(*storage, {"new"});
  EXPECT_FALSE(Got(storage->OpenStreamNext2(position, kReadFlags))) << "dropped from the map";
  EXPECT_EQ(position, 2);
  EXPECT_FALSE(Got(storage->OpenStreamNext2(position, kReadFlags)))
      << "the list is that of the start";
  EXPECT_EQ(position, 2);
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
      {"over others",
       0,
       0,
       0,
       {{"5F000000", 0, 60}, {"5F0000001", 0, 0}, {"5F00002", 0, 0}, {"5F00003C", 1, 60}},
       60},
      {"other lengths", 0, 5, 0, {{"5F00000", 0, 0}, {"5F0000000", 0, 0}}, 5},
      {"no number", 0, 5, 0, {{"01234567", 0, 5}, {"what's up", 0, 0}, {"zzzzzzzz", 0, 5}}, 5},
      {"begins as a number", 0, 5, 0, {{"0000000x", 0, 16}, {"000010zz", 0, 16}}, 16},
      {"end of the numbers", 0, 5, 0, {{"FFFFFFF0", 0, 15}, {"FFFFFFFF", 0, 15}}, 15},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    const Storage storage = Create();
    for (const Entry& entry : row.entries) {
      ASSERT_TRUE(
          Got(storage->CreateStream(entry.name, PackKind(false, entry.minutes), kWriteFlags)));
    }
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
  const Storage storage = Create();
  Make(*storage, {"p", "q"});
  for (const char* name : {"g", "f"})
    ASSERT_TRUE(Got(storage->CreateStream(name, kFolderKind, kWriteFlags)));
  using Search = aoStream* (aoStorage::*)(const char*);
  struct Row {
    Search search;
    const char *name, *ascending, *descending;
    bool mayRename;
  };
  const Row rows[] = {
      {&aoStorage::FindRootStorage, "", "f", "g", false},
      {&aoStorage::FindRootStorage, "g", "g", "g", false},
      {&aoStorage::FindRootStorage, "p", nullptr, nullptr, 0},
      {&aoStorage::FindRootStorage, "x", nullptr, nullptr, 0},
      {&aoStorage::FindRootStorageWrite, "", "f", "g", true},
      {&aoStorage::FindRootStorageWrite, "f", "f", "f", true},
      {&aoStorage::FindRootStream, "", "p", "q", false},
      {&aoStorage::FindRootStream, "q", "q", "q", false},
      {&aoStorage::FindRootStream, "f", nullptr, nullptr, 0},
      {&aoStorage::FindRootStream, nullptr, nullptr, nullptr, 0},
  };
  for (const int descending : {0, 1}) {
    storage->EnableSorting(1, descending);
    for (const Row& row : rows) {
      const char* expected = descending == 0 ? row.ascending : row.descending;
      const Stream found((storage.get()->*row.search)(row.name));
      ASSERT_EQ(found != nullptr, expected != nullptr);
      if (!found) continue;
      EXPECT_STREQ(found->GetName(), expected);
      EXPECT_EQ(found->Rename(expected), row.mayRename) << "opened for writing or not";
    }
  }
}

TEST_F(RootWalks, SubfolderCountsAreTheStoredOnes) {
  const Storage storage = Create();
  const Stream folder(storage->CreateStream("f", kFolderKind, kWriteFlags));
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
  const Stream held(storage->OpenStream("f", kStreamRead | kShareRead));
  EXPECT_EQ(storage->GetSubfolderCount("f"), 0U) << "refused by the share rules";
}

}  // namespace
}  // namespace aostorage::testing
