// Walks over children, renames and removals.
#include <pthread.h>

#include <functional>

#include "folder/storage_fixture.h"
#include "support/check_file.h"

namespace aostorage::testing {
namespace {

using Names = std::vector<std::string>;

class FolderUpkeep : public OneStorageTest {
 protected:
  void SetUp() override {
    storage = Create();
    folder = MakeRoot("f", kFolderKind);
  }
  void Make(const Names& names) {
    for (const std::string& name : names) {
      ASSERT_TRUE(
          Append(*Stream(folder->CreateStream(name.c_str(), kPlainKind, kWriteFlags)), Pattern(9)));
    }
  }
  Stream Child(const std::string& name, std::uint32_t flags = kWriteFlags) const {
    return Stream(folder->OpenStream(name.c_str(), flags));
  }
  void RemoveChild(const std::string& name) const {
    Stream child = Child(name);
    ASSERT_TRUE(child && Remove(child));
  }
  // The names that a walk meets; `each` may change the folder in between.
  Names Walk(const std::function<void(Stream&)>& each) const {
    Names met;
    std::uint32_t cookie = 0;
    for (Stream child(folder->OpenStreamFirst(cookie, kWriteFlags)); child;
         child.reset(folder->OpenStreamNext(cookie, kWriteFlags))) {
      met.push_back(child->GetName());
      each(child);
    }
    return met;
  }

  Stream folder;
};

TEST_F(FolderUpkeep, CookiesStandBehindTheLastSlotLookedAt) {
  std::uint32_t cookie = 99;
  EXPECT_FALSE(Got(folder->OpenStreamFirst(cookie, kReadFlags)));
  EXPECT_EQ(cookie, 4U);
  Make({"a", "b", "c", "d", "e"});
  for (const char* name : {"a", "c", "e"}) RemoveChild(name);
  const Stream first(folder->OpenStreamFirst(cookie, kReadFlags));
  EXPECT_STREQ(first->GetName(), "b");
  EXPECT_EQ(cookie, 4U + 2 * 80);
  EXPECT_EQ(folder->GetCurDataPos(), cookie);
  EXPECT_EQ(folder->IsStreamOpen("b")->useCount, 1U);
  EXPECT_STREQ(Stream(folder->OpenStreamNext(cookie, kReadFlags))->GetName(), "d");
  EXPECT_EQ(cookie, 4U + 4 * 80);
  EXPECT_FALSE(Got(folder->OpenStreamNext(cookie, kReadFlags)));
  EXPECT_EQ(cookie, 4U + 5 * 80) << "the vacated slot at the end was passed";
  const Bytes before = File();
  for (const std::uint32_t made :  // those that no call returned
       {0U, 1U, 3U, 5U, 83U, 85U, 404U, 484U, 80004U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
    cookie = made;
    EXPECT_FALSE(Got(folder->OpenStreamNext(cookie, kReadFlags))) << made;
  }
  EXPECT_EQ(File(), before);
  RemoveChild("b");
  RemoveChild("d");
  EXPECT_FALSE(Got(folder->OpenStreamFirst(cookie, kReadFlags)));
  EXPECT_EQ(cookie, 4U + 5 * 80);
}

TEST_F(FolderUpkeep, AWalkSeesWhatChangesInFrontOfIt) {
  Make({"a", "b", "c", "d"});
  const Names met = Walk([&](Stream& child) {
    const std::string name = child->GetName();
    if (name == "b") {
      ASSERT_TRUE(Remove(child));
      Make({"again"});  // in the slot of b, which was passed
    } else if (name == "d") {
      RemoveChild("a");
      Make({"first", "last"});  // in the slot of a, and behind the end
    }
  });
  EXPECT_EQ(met, (Names{"a", "b", "c", "d", "last"}));
  EXPECT_EQ(NamesIn(*folder), (Names{"first", "again", "c", "d", "last"}));
  EXPECT_EQ(Walk([](Stream& child) { ASSERT_TRUE(Remove(child)); }).size(), 5U);
  EXPECT_TRUE(NamesIn(*folder).empty());
  EXPECT_EQ(Get32(Raw("f").chain, 0), 5U);
}

TEST_F(FolderUpkeep, ARemovalThatMeetsAHeldChildEndsThisFolderAlone) {
  Make({"a", "held"});
  const Stream held = Child("held", kWriteFlags | kExclusive), other = MakeRoot("other");
  EXPECT_TRUE(Remove(folder)) << "the folder goes all the same";
  EXPECT_FALSE(Root("f", kReadFlags));
  EXPECT_EQ(held->Write("x", 1), kFailed);
  EXPECT_EQ(other->Write("x", 1), 1U);
}

TEST_F(FolderUpkeep, ARemovalThatCannotWriteReadsEachRecordOnce) {
  Names names;
  for (int i = 0; i < 500; ++i) names.push_back(std::to_string(i));
  Make(names);
  folder.reset();
  storage.reset(aoStorage::Open(path.c_str(), kReadFlags, 0));
  folder = Root("f", kReadFlags);
  const Bytes before = File();
  Watch watch;
  folder->ClearFolder();
  EXPECT_LE(watch.Count(Call::kWrite), 500U);
  EXPECT_LE(watch.Count(Call::kRead), 50U) << "no scan of the folder for each child";
  EXPECT_EQ(File(), before);
  EXPECT_TRUE(Child("499", kReadFlags)) << "nothing is forgotten";
}

TEST_F(FolderUpkeep, RenamesCutTheNameAndMoveTheRecordOfTheRegistry) {
  Make({"a", "b"});
  const std::string sixty(60, 'x');
  Stream child = Child("a");
  for (const std::string& name : {sixty, std::string(300, 'z'), sixty + "y", std::string("b")}) {
    const std::string old = child->GetName(), cut = name.substr(0, 60);
    ASSERT_TRUE(child->Rename(name.c_str()));
    EXPECT_EQ(child->GetName(), cut);
    EXPECT_NE(folder->IsStreamOpen(cut.c_str()), nullptr);
    EXPECT_EQ(folder->IsStreamOpen(old.c_str()), nullptr);
    EXPECT_FALSE(Child(old));
  }
  EXPECT_EQ(NamesIn(*folder), (Names{"b", "b"})) << "siblings are not looked at";
  const std::uint32_t place = Raw("f/b").recordOffset;
  EXPECT_EQ(child.release()->Release(), 1);
  RemoveChild("b");
  EXPECT_EQ(NamesIn(*folder), (Names{"b"}));
  EXPECT_NE(Raw("f/b").recordOffset, place) << "the first of the two was found and removed";
  const Bytes before = File();
  Stream readOnly = Child("b", kReadFlags);
  EXPECT_FALSE(readOnly->Rename("c") || Remove(readOnly));
  EXPECT_EQ(File(), before);
}

TEST_F(FolderUpkeep, RemovalGoesDeepestFirstAndKeepsEveryByteBesideTheRecords) {
  Make({"a"});
  {
    const Stream sub(folder->CreateStream("sub", kFolderKind, kWriteFlags));
    for (const char* name : {"x", "y"}) {
      ASSERT_TRUE(
          Append(*Stream(sub->CreateStream(name, PackKind(false, 4), kWriteFlags)), Pattern(30)));
    }
  }
  Make({"z"});
  Bytes expected = File();
  std::vector<std::uint64_t> order;
  for (const char* name : {"f/a", "f/sub/x", "f/sub/y", "f/sub", "f/z", "f"}) {
    const std::uint32_t place = Raw(name).recordOffset;
    order.push_back(place);
    std::fill_n(expected.begin() + place + 4, 68, std::uint8_t{0});
  }
  const Stream other = Root("f");  // held by another object: no hindrance
  std::vector<std::uint64_t> writes;
  {
    Watch watch;
    ASSERT_TRUE(Remove(folder));
    for (const RecordedWrite& write : watch.Writes()) writes.push_back(write.offset);
  }
  EXPECT_EQ(writes, order) << "one write for each record";
  EXPECT_EQ(File(), expected);
  EXPECT_FALSE(Root("f", kReadFlags));
}

// A thread with a small stack, as a recursion over the depth of the tree would not survive it.
void OnSmallStack(const std::function<void()>& body) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
  pthread_t thread;
  const auto run = [](void* argument) -> void* {
    (*static_cast<const std::function<void()>*>(argument))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, const_cast<std::function<void()>*>(&body)),
            0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

class DeepTree : public StorageFileTest {
 protected:
  // Folders in one another, all open, the top first.
  struct Levels {
    ~Levels() { Release(); }
    void Release() {
      while (!streams.empty()) streams.pop_back();
    }
    void Down(aoStorage& storage, bool create) {
      streams.emplace_back(create ? storage.CreateStream("d", kFolderKind, kWriteFlags)
                                  : storage.OpenStream("d", kWriteFlags));
      for (std::uint32_t cookie = 0; streams.back() && streams.size() < 10000;) {
        aoStream& above = *streams.back();
        streams.emplace_back(create ? above.CreateStream("d", kFolderKind, kWriteFlags)
                                    : above.OpenStreamFirst(cookie, kWriteFlags));
      }
      ASSERT_TRUE(streams.back());
    }
    std::vector<Stream> streams;
  };
};

TEST_F(DeepTree, IsMadeWalkedCopiedAndRemovedOnASmallStack) {
  OnSmallStack([this] {
    const Storage storage = Create();
    Levels levels;
    levels.Down(*storage, true);
    EXPECT_EQ(levels.streams.back()->SetEntry("bottom", std::int32_t{1}), 1);
    levels.Release();
    levels.Down(*storage, false);
    EXPECT_EQ(levels.streams.back()->GetEntry("bottom", std::int32_t{0}), 1);
    levels.Release();
    ASSERT_EQ(aoStorage::Recreate(path.c_str()), 1);
  });
  OnSmallStack([this] {
    const Storage storage = Open();
    const Stream copy(storage->CreateStream("copy", kFolderKind, kWriteFlags));
    Levels levels;  // what is held open is removed all the same
    levels.Down(*storage, false);
    Stream top(storage->OpenStream("d", kWriteFlags));
    ASSERT_TRUE(top->CopyFolder(copy.get()));
    ASSERT_TRUE(Remove(top));
    levels.Release();
    copy->ClearFolder();
    EXPECT_TRUE(NamesIn(*copy).empty());
  });
  const RawImage image = Image();
  EXPECT_EQ(image.streams.size(), 1U);
  EXPECT_GT(image.vacated.size(), 1U);
  EXPECT_EQ(CheckFile(path), "");
}

}  // namespace
}  // namespace aostorage::testing
