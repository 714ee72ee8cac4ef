// Streams reached by path: what a walk opens, creates, keeps and lets go.
#include <filesystem>

#include "folder/storage_fixture.h"

namespace aostorage::testing {
namespace {

class PathLoading : public StorageFileTest {
 protected:
  void SetUp() override {
    storage = Create();
    const Stream folder(storage->CreateStream("f", kFolderKind, kWriteFlags));
    ASSERT_EQ(folder->SetEntry("plain", 7), 1);
    ASSERT_TRUE(Got(folder->CreateStream("sub", kFolderKind, kWriteFlags)));
  }
  aoStream* Walk(const std::string& streamPath, int write = 1, int create = 0) {
    return loader.GetStreamByPath(storage.get(), streamPath, write, create);
  }
  /// Objects open on a root stream, by the count that the last one gets at its release.
  int Users(const char* name) { return storage->OpenStream(name, kReadFlags)->Release() - 1; }
  static std::size_t OpenDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
  }

  Storage storage;
  CPathLoader loader;
};

TEST_F(PathLoading, TouchesNothingForAnUnusablePath) {
  const Stream start(storage->OpenStream("f", kWriteFlags));
  const Bytes before = File();
  using namespace std::string_literals;
  for (const std::string& unusable : {"/"s, "/n"s, "n//m"s, "n//"s, "n/m//"s, "//"s, "n\0m"s,
                                      "n/m\0"s, "/f"s, "f//sub"s, "\0"s}) {
    SCOPED_TRACE(unusable);
    ClearLastError();
    EXPECT_EQ(Walk(unusable, 1, 1), nullptr);
    EXPECT_EQ(LastError(), Error::kBadArgument);
    EXPECT_EQ(loader.GetSubStreamByPath(start.get(), unusable, 1, 1), nullptr);
    EXPECT_EQ(loader.DeleteStreamByPath(storage.get(), unusable), 0);
  }
  EXPECT_EQ(Walk("", 1, 1), nullptr);
  EXPECT_EQ(loader.GetSubStreamByPath(start.get(), "", 1, 1), start.get());
  EXPECT_EQ(loader.GetStreamByPath(nullptr, "f", 1, 1), nullptr);
  EXPECT_EQ(loader.GetSubStreamByPath(nullptr, "", 1, 1), nullptr);
  EXPECT_EQ(loader.DeleteStreamByPath(nullptr, "f"), 0);
  EXPECT_EQ(File(), before);
  EXPECT_EQ(Users("f"), 1) << "the start is not the loader's";
}

TEST_F(PathLoading, OpensAndCreatesStepByStep) {
  const std::string tooLong(61, 'n');
  struct Row {
    std::string streamPath;
    int create;
    const char* found;  // name of the stream given, null for failure
    std::vector<std::string> made;
  };
  const Row rows[] = {
      {"f", 0, "f", {}},
      {"f/", 0, "f", {}},
      {"f/sub/", 1, "sub", {}},
      {"f/plain", 1, "plain", {}},
      {"n", 0, nullptr, {}},
      {"f/n", 0, nullptr, {}},
      {"f/plain/n", 1, nullptr, {}},
      {tooLong, 1, nullptr, {}},
      {"n/m/" + tooLong + "/k", 1, nullptr, {"n", "n/m"}},
      {"f/n/m/", 1, "m", {"f/n", "f/n/m"}},
      {"n/m/k", 1, "k", {"n", "n/m", "n/m/k"}},
  };
  const Bytes start = File();
  for (const int write : {0, 1}) {
    for (const Row& row : rows) {
      SCOPED_TRACE(row.streamPath);
      loader.CloseOpenStorages();
      storage.reset();
      storage = OpenBytes(start);
      const aoStream* stream = Walk(row.streamPath, write, row.create);
      ASSERT_EQ(stream != nullptr, row.found != nullptr);
      EXPECT_STREQ(stream != nullptr ? stream->GetName() : nullptr, row.found);
      for (const std::string& made : row.made) {
        EXPECT_EQ(Raw(made).kind, 1) << made;
        EXPECT_EQ(Get32(Raw(made).chain, 0), made == row.made.back() ? 0U : 1U) << made;
      }
      EXPECT_EQ(Image().streams.size(), 3 + row.made.size());
      EXPECT_EQ("", CheckFile(path));
    }
    const Stream top(storage->OpenStream("f", kWriteFlags));
    const std::uint32_t flags = write != 0 ? kWriteFlags : kReadFlags;
    ASSERT_NE(loader.GetSubStreamByPath(top.get(), "sub/new", write, 1), nullptr);
    EXPECT_EQ(top->IsStreamOpen("sub")->openFlags, flags);
    loader.CloseOpenStorages();
    EXPECT_EQ(top->IsStreamOpen("sub"), nullptr);
  }
}

TEST_F(PathLoading, KeepsEveryStreamUntilItIsToldToClose) {
  for (int walks = 1; walks <= 3; ++walks) {
    ASSERT_NE(Walk("f/sub", 0), nullptr);
    EXPECT_EQ(Walk("f/none/x", 0), nullptr);
    EXPECT_EQ(Users("f"), 2 * walks) << "also what a failed walk has opened";
  }
  loader.CloseOpenStorages();
  loader.CloseOpenStorages();
  EXPECT_EQ(Users("f"), 0);

  const Stream exclusive(storage->OpenStream("f", kReadFlags | kExclusive));
  const Bytes before = File();
  EXPECT_EQ(Walk("f/sub", 1, 1), nullptr);
  EXPECT_EQ(LastError(), Error::kRefused) << "there, and not to be had";
  EXPECT_EQ(File(), before);
}

TEST_F(PathLoading, DeletesAStreamAndClosesAll) {
  struct Row {
    const char* streamPath;
    int result;
    std::vector<std::string> left;
  };
  const Row rows[] = {
      {"f/plain", 1, {"f", "f/sub"}},
      {"f/sub/", 1, {"f", "f/plain"}},
      {"f", 1, {}},
      {"f/none", 0, {"f", "f/plain", "f/sub"}},
      {"f/plain/x", 0, {"f", "f/plain", "f/sub"}},
      {"none", 0, {"f", "f/plain", "f/sub"}},
  };
  const Bytes start = File();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.streamPath);
    storage.reset();
    const std::size_t descriptors = OpenDescriptors();
    storage = OpenBytes(start);
    aoStorage* const owned = Open().release();
    loader.OwnStorage(owned);
    ASSERT_NE(loader.GetStreamByPath(owned, "f/sub", 0, 0), nullptr);
    ASSERT_NE(Walk("f/plain"), nullptr);
    EXPECT_EQ(loader.DeleteStreamByPath(storage.get(), row.streamPath), row.result);
    EXPECT_EQ(OpenDescriptors(), descriptors + 1) << "the storage that it owns is released";
    std::vector<std::string> left;
    for (const RawStream& stream : Image().streams) left.push_back(stream.path);
    EXPECT_EQ(left, row.left);
    EXPECT_TRUE(left.empty() || Users("f") == 0);
    EXPECT_EQ("", CheckFile(path));
  }
}

TEST_F(PathLoading, ReleasesOnceWhatItOwns) {
  storage.reset();
  const std::size_t none = OpenDescriptors();
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
    ASSERT_NE(owner.GetStreamByPath(second, "f/plain", 1, 0), nullptr);
  }
  EXPECT_EQ(OpenDescriptors(), none);
}

TEST_F(PathLoading, GoesDownVeryLongPaths) {
  std::string deep = "f";
  for (int i = 0; i < 10000; ++i) deep += "/d";
  ASSERT_NE(Walk(deep, 1, 1), nullptr);
  loader.CloseOpenStorages();
  EXPECT_EQ(Walk(deep + "/d", 0), nullptr);
  const aoStream* bottom = Walk(deep, 0);
  ASSERT_NE(bottom, nullptr);
  EXPECT_EQ(bottom->GetLength(), 4U) << "no child";
  EXPECT_EQ(loader.DeleteStreamByPath(storage.get(), "f/d"), 1);
  EXPECT_EQ(Image().streams.size(), 3U);
}

TEST(HashWords, AreLittleEndianAtAnyAddress) {
  Bytes record(1 + 4 * 12);
  std::uint8_t* const p = record.data() + 1;
  HashStoreHashWord(p, 0x81828384);
  EXPECT_EQ(Slice(record, 1, 4), (Bytes{0x84, 0x83, 0x82, 0x81}));
  EXPECT_EQ(HashLoadHashWord(p), 0x81828384U);
  const std::uint32_t rows[][4] = {// word 4, word 11, value, index
                                   {0, 0xFFFFFFFF, 0x87654321, 0x87654321},
                                   {8, 0xFF, 0x87654321, 0x43},
                                   {31, 0xFFFFFFFF, 0x87654321, 1},
                                   {32 + 4, 0xFFF0, 0x87654321, 0x5430},
                                   {0xFFFFFFE0, 0x10000, 0x87654321, 0x10000}};
  for (const auto& [shift, mask, value, index] : rows) {
    HashStoreHashWord(p + 16, shift);
    HashStoreHashWord(p + 44, mask);
    EXPECT_EQ(FormHashIndexDword(p, value), index) << shift;
  }
}

}  // namespace
}  // namespace aostorage::testing
