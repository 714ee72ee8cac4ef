// What a storage remembers of folders that are closed.
#include "folder/storage_fixture.h"
#include "support/tree_text.h"

namespace aostorage::testing {
namespace {

using KeptIndex = StorageFileTest;

// Opens the folder anew for each lookup.
bool Has(aoStorage& storage, const std::string& path) { return OpenPath(storage, path) != nullptr; }

TEST_F(KeptIndex, SparesTheScanOfAFolderThatWasClosed) {
  const Storage storage = Create();
  TreeText lines{"f/", "f/g/"};
  for (int i = 0; i < 500; ++i) lines.push_back("f/g/" + std::to_string(i) + "=x");
  Plant(*storage, lines);
  ASSERT_TRUE(Has(*storage, "f/g/499"));
  const Watch watch;
  ASSERT_TRUE(Has(*storage, "f/g/0"));
  EXPECT_EQ(watch.Text(), "3 read");  // the three records
}

TEST_F(KeptIndex, IsWorthNothingOnceTheFolderIsAnother) {
  const Storage storage = Create();
  Plant(*storage, {"a/", "a/x=1", "a/y=2", "b/", "b/in/", "b/in/z=3"});
  ASSERT_TRUE(Has(*storage, "a/x") && Has(*storage, "b/in/z"));
  // Removed and made again in the same slots, over the same chains.
  Plant(*storage, {"-b", "-a", "a/", "b/", "b/in/"});
  for (const char* gone : {"a/x", "a/y", "b/in/z"}) EXPECT_FALSE(Has(*storage, gone)) << gone;
  Plant(*storage, {"a/y=5"});
  EXPECT_TRUE(Has(*storage, "a/y"));

  // Changed through another handle, of this process or not, and by bytes of the caller's own.
  const Storage second = Open();
  ASSERT_TRUE(Has(*second, "a/y"));
  Plant(*storage, {"a/z=6", "-a/y"});
  EXPECT_TRUE(Has(*second, "a/z"));
  EXPECT_FALSE(Has(*second, "a/y"));
  OpenPath(*storage, "a")->Erase();
  const Stream a = OpenPath(*storage, "a");
  const std::uint32_t none = 0;
  ASSERT_EQ(a->Write(&none, 4, true), 4U);
  EXPECT_FALSE(Has(*storage, "a/z"));
  EXPECT_FALSE(Has(*second, "a/z"));
}

TEST_F(KeptIndex, TakesNoNameForAnotherWithTheSameHash) {
  const std::string one = "8yn0iYCKYHlIj4-BwPqk", other = "GReLUrM4wMqfg9yzV3KQ";
  const Storage storage = Create();
  Plant(*storage, {"f/", "f/" + one + "=1", one + "=3"});
  EXPECT_FALSE(Has(*storage, "f/" + other) || Has(*storage, other));
  Plant(*storage, {"f/" + other + "=2", other + "=4"});
  const Storage second = Open();
  for (aoStorage* handle : {storage.get(), second.get()}) {
    const Stream folder = OpenPath(*handle, "f");
    for (const std::string& name : {other, one, other, one}) {  // with an index of others, and own
      const Stream child(folder->OpenStream(name.c_str(), kReadFlags));
      ASSERT_TRUE(child);
      EXPECT_EQ(ReadValue(*child), Bytes{name == one ? std::uint8_t{'1'} : std::uint8_t{'2'}});
    }
    EXPECT_EQ(ReadValue(*OpenPath(*handle, other)), Bytes{'4'});
    EXPECT_EQ(ReadValue(*OpenPath(*handle, one)), Bytes{'3'});
  }
  for (const std::string& first : {one, other}) {  // found one after the other by one operation
    const std::string goal = "to" + first;
    Plant(*storage, {goal + "/", goal + "/" + first + "=8"});
    Plant(*storage, {goal + "/" + (first == one ? other : one) + "=9"});
    const Stream from = OpenPath(*storage, "f"), to = OpenPath(*storage, goal);
    EXPECT_TRUE(from->CopyFolder(to.get()));
    EXPECT_EQ(ReadValue(*OpenPath(*storage, goal + "/" + one)), Bytes{'1'});
    EXPECT_EQ(ReadValue(*OpenPath(*storage, goal + "/" + other)), Bytes{'2'});
    std::vector<std::string> names;
    to->EnumStreams(names);
    EXPECT_EQ(names.size(), 2U);
  }
  Plant(*storage, {"-f/" + one, "-" + one});
  EXPECT_FALSE(Has(*storage, "f/" + one) || Has(*storage, one));
  EXPECT_TRUE(Has(*storage, "f/" + other) && Has(*storage, other));
}

// Removed through an object that still goes by the name from before another one's renaming.
TEST_F(KeptIndex, ForgetsTheNameInTheRecordNotTheOneOfTheObject) {
  const Storage storage = Create();
  Plant(*storage, {"f/", "f/b=1", "f/c=2"});
  const Stream folder = OpenPath(*storage, "f");
  Stream old(folder->OpenStream("b", kWriteFlags));
  const Stream fresh(folder->OpenStream("b", kWriteFlags));
  const Stream other(folder->OpenStream("c", kWriteFlags));
  ASSERT_TRUE(fresh->Rename("n"));
  ASSERT_TRUE(Remove(old));
  ASSERT_TRUE(other->Rename("n"));
  ASSERT_TRUE(Got(folder->CreateStream("x", PackKind(false), kWriteFlags)));
  const Stream found(folder->OpenStream("n", kReadFlags));
  ASSERT_TRUE(found);
  EXPECT_EQ(ReadValue(*found), Bytes{'2'});
}

// Each of the two has changed something before it looked at what the other did.
TEST_F(KeptIndex, SeesAChangeThatWasMadeBlindly) {
  const Storage storage = Create();
  Plant(*storage, {"f/", "f/c=1", "other=2"});
  const Storage second = Open();
  const Stream theirs = OpenPath(*second, "f/c"), other = OpenPath(*storage, "other");
  ASSERT_TRUE(Has(*storage, "f/c"));
  EXPECT_EQ(other->Write("3", 1), 1U);
  ASSERT_TRUE(theirs->Rename("d"));
  EXPECT_TRUE(Has(*storage, "f/d"));
  EXPECT_FALSE(Has(*storage, "f/c"));
}

}  // namespace
}  // namespace aostorage::testing
