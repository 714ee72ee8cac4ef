// Root streams: which slot they take, what a vacated one hands on, and who may open them.
#include <gtest/gtest.h>

#include "support/handles.h"
#include "support/raw_file.h"
#include "support/syscalls.h"
#include "support/temp_dir.h"

namespace aostorage::testing {
namespace {

class RootStreams : public ::testing::Test {
 protected:
  void Reopen() {
    storage.reset();
    storage.reset(aoStorage::Open(path.c_str(), kStreamWrite, 0));
  }
  Stream Create(const std::string& name, const Bytes& data = {}) {
    Stream stream(storage->CreateStream(name.c_str(), kWriteFlags));
    if (!data.empty()) stream->Write(data.data(), static_cast<std::uint32_t>(data.size()));
    return stream;
  }
  Stream Open(const std::string& name, std::uint32_t flags = kWriteFlags) {
    return Stream(storage->OpenStream(name.c_str(), flags));
  }
  RawImage Image() { return ReadImage(ReadFile(path)); }
  std::uint32_t PlaceOf(const std::string& name) { return Image().Find(name)->recordOffset; }

  TempDir dir;
  const std::string path = dir.File("store");
  Storage storage{aoStorage::Create(path.c_str(), 0, 0)};
};

TEST_F(RootStreams, RecordsOfANewFolderByteForByte) {
  const Stream folder(storage->CreateStream("abc", PackKind(true, 0x0102), kWriteFlags));
  ASSERT_TRUE(folder);
  EXPECT_EQ(folder->GetDuration(), 0x0102);
  EXPECT_EQ(folder->GetLength(), 4U);
  const Bytes file = ReadFile(path);
  Bytes record(kSlotSize);
  const Bytes head{0xFC, 0xFC, 0xFC, 0xFC, 'a', 'b', 'c'};
  std::copy(head.begin(), head.end(), record.begin());
  const Bytes tail{2, 1, 1, 4, 0, 0, 0, 0x2C, 0x14, 0, 0, 0x2C, 0x14, 0, 0};  // both blocks at 5164
  std::copy(tail.begin(), tail.end(), record.begin() + 65);
  EXPECT_EQ(Slice(file, 524, kSlotSize), record);
  EXPECT_EQ(Slice(file, 5164, 99), (Bytes{0xFA, 0xFA, 0xFA, 0xFA, 24, 0, 0, 0, 24, 0, 0, 0,
                                          0,    0,    0,    0,    0,  0, 0, 0, 0,  0, 0, 0}));
}

TEST_F(RootStreams, The59thMakesTheDirectoryGrow) {
  const Stream before = Create("0", Pattern(10));
  for (int i = 1; i < 58; ++i) Create(std::to_string(i));
  EXPECT_EQ(PlaceOf("57"), SlotOffset(63));
  const std::size_t size = ReadFile(path).size();
  Create("58");
  EXPECT_EQ(ReadFile(path).size(), size + kDirectorySize);
  EXPECT_EQ(PlaceOf("58"), size + 12);
  EXPECT_EQ(Get32(ReadFile(path), size + 12 + kSlotSize), 0U)
      << "no magic word before its first use";
  // The block written before is no longer the last thing in the file.
  before->Write("more", 4);
  EXPECT_EQ(Image().Find("0")->blocks.size(), 2U);
  Reopen();
  for (int i = 0; i < 59; ++i) EXPECT_TRUE(Open(std::to_string(i))) << i;
  EXPECT_EQ("", CheckFile(path));
}

TEST_F(RootStreams, UnusableNamesAreRefusedWithoutACallOnTheFile) {
  const std::string longest(60, 'n'), tooLong(61, 'n');
  EXPECT_TRUE(Create(longest));
  Reopen();
  EXPECT_TRUE(Open(longest));
  EXPECT_STREQ(Open(longest)->GetName(), longest.c_str());
  const tag_aoStreamOffset locator{PlaceOf(longest), 32, 64, 0};
  for (const char* name : {static_cast<const char*>(nullptr), "", tooLong.c_str()}) {
    Watch watch;
    ClearLastError();
    EXPECT_FALSE(Stream(storage->CreateStream(name, kWriteFlags)));
    EXPECT_EQ(LastError(), Error::kBadArgument);
    EXPECT_FALSE(Stream(storage->CreateStream(name, PackKind(true), kWriteFlags)));
    EXPECT_FALSE(Stream(storage->CreateStreamFast(name, kWriteFlags)));
    EXPECT_FALSE(Stream(storage->CreateStreamFast(name, PackKind(true), kWriteFlags)));
    EXPECT_FALSE(Stream(storage->OpenStream(name, kReadFlags)));
    EXPECT_FALSE(Stream(storage->OpenStreamFast(name, kReadFlags)));
    EXPECT_FALSE(Stream(storage->OpenStreamByOffset(locator, name, kReadFlags)));
    EXPECT_FALSE(Stream(storage->OpenOrCreateStream(name, 0)));
    EXPECT_FALSE(Stream(storage->OpenOrCreateStreamFast(name, 0)));
    EXPECT_FALSE(storage->RemoveStream(name));
    EXPECT_EQ(watch.Total(), 0U) << watch.Text();
  }
}

TEST_F(RootStreams, ANameThatTheMapHoldsIsTaken) {
  Create("a");
  Watch watch;
  EXPECT_FALSE(Create("a"));
  EXPECT_EQ(LastError(), Error::kExists);
  EXPECT_FALSE(Stream(storage->CreateStreamFast("a", kWriteFlags)));
  EXPECT_EQ(watch.Total(), 0U) << watch.Text();
}

TEST_F(RootStreams, ReservedSlotsAreForFastStreamsAlone) {
  for (int i = 0; i < 6; ++i) {
    EXPECT_TRUE(Stream(storage->CreateStreamFast(("f" + std::to_string(i)).c_str(), kWriteFlags)));
  }
  EXPECT_FALSE(Stream(storage->CreateStreamFast("f6", kWriteFlags)));
  EXPECT_EQ(LastError(), Error::kNoRoom);
  Create("plain");
  EXPECT_EQ(PlaceOf("f0"), SlotOffset(0));
  EXPECT_EQ(PlaceOf("f5"), SlotOffset(5));
  EXPECT_EQ(PlaceOf("plain"), SlotOffset(6));
  EXPECT_FALSE(Stream(storage->OpenStreamFast("plain", kReadFlags)));
  EXPECT_TRUE(Open("f5")) << "the map has it too";
  storage.reset(aoStorage::OpenFast(path.c_str(), kStreamWrite, 0));
  Stream fast(storage->OpenStreamFast("f3", kWriteFlags));
  ASSERT_TRUE(fast);
  EXPECT_TRUE(Remove(fast));
  EXPECT_TRUE(Stream(storage->CreateStreamFast("new", kWriteFlags)));
  EXPECT_EQ(PlaceOf("new"), SlotOffset(3));
}

TEST_F(RootStreams, AVacatedSlotHandsItsChainOn) {
  Stream old = Create("old", Pattern(300));
  Create("other", Pattern(40));
  old->Seek(0, 1);
  old->Write(Pattern(100, 2).data(), 100);  // a second block
  ASSERT_TRUE(Remove(old));
  Reopen();
  EXPECT_FALSE(Open("old")) << "gone for good";
  const std::uint32_t firstBlock = Image().vacated.at(0).firstBlock;
  const std::size_t size = ReadFile(path).size();
  const Stream heir = Create("heir");
  const RawImage image = Image();
  EXPECT_EQ(image.Find("heir")->recordOffset, SlotOffset(6));
  EXPECT_EQ(image.Find("heir")->firstBlock, firstBlock);
  EXPECT_EQ(heir->GetLength(), 0U);
  Bytes data(500);
  EXPECT_EQ(heir->Read(data.data(), 500), 400U) << "old bytes lie behind the length";
  heir->Seek(0, 0);
  EXPECT_EQ(heir->Write(Pattern(350, 3).data(), 350), 350U);
  EXPECT_EQ(ReadFile(path).size(), size) << "no new block before the chain is used up";
  EXPECT_EQ(Image().Find("heir")->Value(), Pattern(350, 3));
  EXPECT_EQ("", CheckFile(path));
}

TEST_F(RootStreams, AFolderOverAnInheritedChainShowsNoChildren) {
  // The bytes that are left behind look like a folder with a child.
  Stream old = Create("old", FolderPayload({StreamRecord("ghost", false, 0, 0)}));
  Create("other", Pattern(40));
  old->Seek(0, 1);
  old->Write(Pattern(100).data(), 100);
  ASSERT_TRUE(Remove(old));
  EXPECT_TRUE(Stream(storage->CreateStream("folder", PackKind(true), kWriteFlags)));
  const RawImage image = Image();
  const RawStream* folder = image.Find("folder");
  ASSERT_EQ(folder->blocks.size(), 2U);
  EXPECT_EQ(folder->blocks[0].used, 24U);
  EXPECT_EQ(folder->blocks[1].used, 20U);
  EXPECT_EQ(folder->chain, Bytes(4));
  EXPECT_EQ(folder->length, 4U);
  EXPECT_EQ("", CheckFile(path));
}

TEST_F(RootStreams, TheFirstFreeSlotIsTakenWhicheverWayItBecameFree) {
  for (int i = 0; i < 130; ++i) Create(std::to_string(i));
  for (const char* name : {"100", "3", "40"}) {
    Stream stream = Open(name);
    ASSERT_TRUE(Remove(stream));
  }
  const std::uint32_t slots[] = {SlotOffset(9), SlotOffset(46)};
  Create("x");
  EXPECT_EQ(PlaceOf("x"), slots[0]);
  Reopen();
  Create("y");
  EXPECT_EQ(PlaceOf("y"), slots[1]);
  Create("z");
  EXPECT_EQ(PlaceOf("z"), Image().directories[1] + 12 + kSlotSize * (100 - 58));
}

TEST_F(RootStreams, OpenOrCreateFastStandsAtTheEndWhenAsked) {
  {
    const Stream stream(storage->OpenOrCreateStreamFast("log", 1));
    EXPECT_EQ(stream->GetCurDataPos(), 0U);
    stream->Write(Pattern(60).data(), 60);
    Create("other", Pattern(5));
    stream->Write(Pattern(40, 2).data(), 40);  // a second block
    stream->Write(Pattern(10, 3).data(), 10);
    ASSERT_TRUE(stream->SetLength(100));
  }
  const Stream start(storage->OpenOrCreateStreamFast("log", 0));
  EXPECT_EQ(start->GetCurDataPos(), 0U);
  const Stream end(storage->OpenOrCreateStreamFast("log", 1));
  EXPECT_EQ(end->GetCurDataPos(), 100U);
  end->Write(Pattern(20, 4).data(), 20);
  Bytes expected = Pattern(60);
  for (const Bytes& piece : {Pattern(40, 2), Pattern(20, 4)})
    expected.insert(expected.end(), piece.begin(), piece.end());
  EXPECT_EQ(Image().Find("log")->Value(), expected);
}

TEST_F(RootStreams, ANameTakenOutOfTheMapLeavesTheStreamInTheFile) {
  Create("a", Pattern(10));
  EXPECT_TRUE(storage->RemoveStream("a"));
  EXPECT_FALSE(storage->RemoveStream("a"));
  EXPECT_FALSE(Open("a"));
  Create("a", Pattern(20));
  EXPECT_EQ(Image().streams.size(), 2U);
  Reopen();
  EXPECT_EQ(Open("a")->GetLength(), 20U) << "the later slot wins";
  Stream second = Open("a");
  ASSERT_TRUE(Remove(second));
  Reopen();
  EXPECT_EQ(Open("a")->GetLength(), 10U);
}

TEST_F(RootStreams, ALocatorOpensWhatLiesThere) {
  Create("a", Pattern(10));
  const tag_aoStreamOffset good{PlaceOf("a"), 32, 64, 0};
  EXPECT_EQ(Stream(storage->OpenStreamByOffset(good, "any key", kReadFlags))->GetLength(), 10U);
  for (const std::uint32_t offset :
       {0U, good.headerOffset + 1, 5164U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_FALSE(Stream(storage->OpenStreamByOffset({offset, 32, 64, 0}, "key", kReadFlags)))
        << offset;
  }
}

TEST_F(RootStreams, SharingRule) {
  constexpr std::uint32_t kNone = kStreamRead;
  struct Row {
    std::uint32_t first, second;
    bool allowed;
  };
  const Row rows[] = {
      {kExclusive, kNone, false},
      {kExclusive, kReadFlags, false},
      {kExclusive | kShareRead, kNone, false},
      {kExclusive | kShareReadWrite, kShareRead, false},
      {kShareRead, kNone, true},
      {kShareRead, kShareRead, true},
      {kShareRead, kReadFlags, false},
      {kShareRead, kExclusive, false},
      {kShareRead | kShareReadWrite, kReadFlags, false},
      {kShareReadWrite, kExclusive, true},
      {kWriteFlags, kWriteFlags, true},
      {kNone, kExclusive, true},
  };
  Create("a");
  for (const Row& row : rows) {
    SCOPED_TRACE(std::to_string(row.first) + " then " + std::to_string(row.second));
    const Stream first = Open("a", row.first);
    ASSERT_TRUE(first);
    EXPECT_EQ(Open("a", row.second) != nullptr, row.allowed);
    EXPECT_EQ(Open("b", row.second), nullptr);
    if (!row.allowed) {
      EXPECT_FALSE(Stream(storage->OpenOrCreateStream("a", 0)));
    }
  }
  EXPECT_TRUE(Open("a", kExclusive)) << "the records of the rows are gone";
}

TEST_F(RootStreams, ReleaseTellsTheUseCount) {
  aoStream* created = storage->CreateStream("a", kExclusive);
  aoStream* first = storage->OpenStream("a", kWriteFlags);
  ASSERT_TRUE(first) << "a created stream has no record, so its flags forbid nothing";
  aoStream* second = storage->OpenStream("a", kExclusive);
  aoStream* third = storage->OpenStream("a", kReadFlags);
  ASSERT_TRUE(third) << "the first open's flags count";
  EXPECT_EQ(second->Release(), 3);
  EXPECT_EQ(created->Release(), 2) << "takes a use away from the record of its name";
  EXPECT_EQ(first->Release(), 1);
  EXPECT_EQ(third->Release(), -1);
}

}  // namespace
}  // namespace aostorage::testing
