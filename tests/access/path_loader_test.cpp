// Streams reached by path: what a walk opens, creates, keeps and lets go.
#include "access/access_fixture.h"
#include "support/check_file.h"

namespace aostorage::testing {
namespace {

class PathLoading : public AccessTest {
 protected:
  void SetUp() override {
    AccessTest::SetUp();
    storage = Open();
  }
  aoStream* Walk(const std::string& streamPath, int write = 1, int create = 0) {
    return loader.GetStreamByPath(storage.get(), streamPath, write, create);
  }

  Storage storage;
  CPathLoader loader;
};

TEST_F(PathLoading, TouchesNothingForAnUnusablePath) {
  const Stream folder(storage->OpenStream("f", kWriteFlags));
  using namespace std::string_literals;
  for (const std::string& unusable : {"/"s, "/n"s, "n//m"s, "n//"s, "n/m//"s, "//"s, "n\0m"s,
                                      "n/m\0"s, "/f"s, "f//sub"s, "\0"s}) {
    SCOPED_TRACE(unusable);
    ClearLastError();
    EXPECT_EQ(Walk(unusable, 1, 1), nullptr);
    EXPECT_EQ(LastError().code, ErrorCode::kNameUnusable);
    EXPECT_EQ(loader.GetSubStreamByPath(folder.get(), unusable, 1, 1), nullptr);
    EXPECT_EQ(loader.DeleteStreamByPath(storage.get(), unusable), 0);
  }
  EXPECT_EQ(Walk("", 1, 1), nullptr);
  EXPECT_EQ(loader.GetSubStreamByPath(folder.get(), "", 1, 1), folder.get());
  EXPECT_EQ(loader.GetStreamByPath(nullptr, "f", 1, 1), nullptr);
  EXPECT_EQ(loader.GetSubStreamByPath(nullptr, "", 1, 1), nullptr);
  EXPECT_EQ(loader.DeleteStreamByPath(nullptr, "f"), 0);
  EXPECT_EQ(File(), start);
  EXPECT_EQ(Users(*storage, "f"), 1) << "where a walk starts is not the loader's";
}

TEST_F(PathLoading, KeepsWhatItMadeBeforeAStepFails) {
  EXPECT_EQ(Walk("n/m/" + std::string(61, 'n') + "/k", 1, 1), nullptr);
  EXPECT_EQ(Raw("n/m").kind, 1);
  EXPECT_EQ(Image().streams.size(), 7U);
  loader.CloseOpenStorages();
  for (const int write : {0, 1}) {
    const Stream top(storage->OpenStream("f", kWriteFlags));
    ASSERT_NE(loader.GetSubStreamByPath(top.get(), "sub/new/", write, 1), nullptr);
    EXPECT_EQ(top->IsStreamOpen("sub")->openFlags, write != 0 ? kWriteFlags : kReadFlags);
    loader.CloseOpenStorages();
    EXPECT_EQ(top->IsStreamOpen("sub"), nullptr);
  }
}

TEST_F(PathLoading, KeepsEveryStreamUntilItIsToldToClose) {
  for (int walks = 1; walks <= 3; ++walks) {
    ASSERT_NE(Walk("f/sub", 0), nullptr);
    EXPECT_EQ(Walk("f/none/x", 0), nullptr);
    EXPECT_EQ(Users(*storage, "f"), 2 * walks) << "also what a failed walk has opened";
  }
  loader.CloseOpenStorages();
  loader.CloseOpenStorages();
  EXPECT_EQ(Users(*storage, "f"), 0);

  const Stream exclusive(storage->OpenStream("f", kReadFlags | kExclusive));
  EXPECT_EQ(Walk("f/sub", 1, 1), nullptr);
  EXPECT_EQ(LastError().code, ErrorCode::kShared) << "there, and not to be had";
  EXPECT_EQ(File(), start);
}

TEST_F(PathLoading, DeletesAStreamAndClosesAll) {
  struct Row {
    const char* streamPath;
    std::size_t removed;
  };
  const Row rows[] = {{"f/a", 1},    {"f/sub/", 1}, {"f", 4}, {"p", 1},
                      {"f/none", 0}, {"f/a/x", 0},  {"", 0},  {"none", 0}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.streamPath);
    storage = OpenBytes(start);
    const auto descriptors = OpenDescriptors();
    aoStorage* const owned = Open().release();
    loader.OwnStorage(owned);
    ASSERT_NE(loader.GetStreamByPath(owned, "f/sub", 0, 0), nullptr);
    const Stream outside(storage->OpenStream("p", kReadFlags));
    ASSERT_NE(Walk("p"), nullptr);
    EXPECT_EQ(loader.DeleteStreamByPath(storage.get(), row.streamPath), row.removed != 0 ? 1 : 0);
    EXPECT_EQ(OpenDescriptors(), descriptors) << "the storage that it owned is released";
    EXPECT_TRUE(row.streamPath[0] == 'p' || Users(*storage, "p") == 1);
    EXPECT_EQ(Image().streams.size(), 5 - row.removed);
    EXPECT_EQ("", CheckFile(path));
  }
}

TEST_F(PathLoading, ReleasesOnceWhatItOwns) {
  const auto none = OpenDescriptors();
  {
    CPathLoader owner;
    aoStorage* const first = Open().release();
    for (aoStorage* handed : {first, first, static_cast<aoStorage*>(nullptr)}) {
      owner.OwnStorage(handed);
      ASSERT_NE(owner.GetStreamByPath(first, "f/sub", 1, 0), nullptr) << "not released by that";
    }
    aoStorage* const second = Open().release();
    owner.OwnStorage(second);
    EXPECT_EQ(OpenDescriptors(), none + 1) << "the first is closed";
    ASSERT_NE(owner.GetStreamByPath(second, "f/a", 1, 0), nullptr);
  }
  EXPECT_EQ(OpenDescriptors(), none);
}

TEST_F(PathLoading, GoesDownVeryLongPaths) {
  std::string deep = "f";
  for (int i = 0; i < 10000; ++i) deep += "/d";
  ASSERT_NE(Walk(deep, 1, 1), nullptr);
  loader.CloseOpenStorages();
  EXPECT_EQ(Walk(deep + "/d", 0), nullptr);
  EXPECT_NE(Walk(deep, 0), nullptr);
  EXPECT_EQ(loader.DeleteStreamByPath(storage.get(), "f/d"), 1);
  EXPECT_EQ(Image().streams.size(), 5U);
}

TEST(HashWords, AreLittleEndianAtAnyAddress) {
  Bytes record(1 + 4 * 12);
  std::uint8_t* const p = record.data() + 1;
  HashStoreHashWord(p, 0x81828384);
  EXPECT_EQ(Slice(record, 1, 4), (Bytes{0x84, 0x83, 0x82, 0x81}));
  EXPECT_EQ(HashLoadHashWord(p), 0x81828384U);
  const std::uint32_t rows[][3] = {// word 4, word 11, index
                                   {0, 0xFFFFFFFF, 0x87654321},
                                   {8, 0xFF, 0x43},
                                   {31, 0xFFFFFFFF, 1},
                                   {32 + 4, 0xFFF0, 0x5430},
                                   {0xFFFFFFE0, 0x10000, 0x10000}};
  for (const auto& [shift, mask, index] : rows) {
    HashStoreHashWord(p + 16, shift);
    HashStoreHashWord(p + 44, mask);
    EXPECT_EQ(FormHashIndexDword(p, 0x87654321), index) << shift;
  }
}

}  // namespace
}  // namespace aostorage::testing
