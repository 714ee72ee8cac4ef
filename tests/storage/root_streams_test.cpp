// Root streams: which slot they take, what a vacated one hands on, and who may open them.
#include "folder/storage_fixture.h"
#include "support/allocations.h"
#include "support/check_file.h"

namespace aostorage::testing {
namespace {

class RootStreams : public OneStorageTest {
 protected:
  void SetUp() override { storage = Create(); }
  Stream Make(const std::string& name, const Bytes& data = {}) const {
    Stream stream = MakeRoot(name);
    if (!data.empty()) stream->Write(data.data(), static_cast<std::uint32_t>(data.size()));
    return stream;
  }
  void RemoveRoot(const std::string& name) const {
    Stream stream = Root(name);
    ASSERT_TRUE(Remove(stream));
  }
  std::uint32_t PlaceOf(const std::string& name) const { return Raw(name).recordOffset; }
};

TEST_F(RootStreams, The59thMakesTheDirectoryGrow) {
  const Stream before = Make("0", Pattern(10));
  for (int i = 1; i < 58; ++i) Make(std::to_string(i));
  EXPECT_EQ(PlaceOf("57"), SlotOffset(63));
  const std::size_t size = File().size();
  Make("58");
  EXPECT_EQ(File().size(), size + kDirectorySize);
  EXPECT_EQ(PlaceOf("58"), size + 12);
  EXPECT_EQ(Get32(File(), size + 12 + kSlotSize), 0U) << "no magic word before its first use";
  // The block written before is no longer the last thing in the file.
  before->Write("more", 4);
  EXPECT_EQ(Raw("0").blocks.size(), 2U);
  // The first free slot is taken, whichever way it became free.
  for (int i = 59; i < 130; ++i) Make(std::to_string(i));
  for (const char* name : {"100", "3", "40"}) RemoveRoot(name);
  Make("x");
  EXPECT_EQ(PlaceOf("x"), SlotOffset(9));
  Reopen();
  for (int i = 0; i < 130; ++i)
    EXPECT_EQ(Root(std::to_string(i)) == nullptr, Raw(std::to_string(i)).name.empty());
  Make("y");
  EXPECT_EQ(PlaceOf("y"), SlotOffset(46));
  Make("z");
  EXPECT_EQ(PlaceOf("z"), Image().directories[1] + 12 + kSlotSize * (100 - 58));
  EXPECT_EQ("", CheckFile(path));
}

TEST_F(RootStreams, OfTwoStorageObjectsTakeNoSlotTwice) {
  {
    const Storage second = Open();
    for (int i = 0; i < 70; ++i) {
      const Storage& maker = i % 2 == 0 ? storage : second;
      ASSERT_TRUE(Got(maker->CreateStream(std::to_string(i).c_str(), kWriteFlags)));
    }
  }
  EXPECT_EQ(Image().streams.size(), 70U);
  EXPECT_EQ("", CheckFile(path));
}

TEST_F(RootStreams, UnusableNamesAreRefusedWithoutACallOnTheFile) {
  const std::string longest(60, 'n'), tooLong(61, 'n');
  EXPECT_TRUE(Make(longest));
  Reopen();
  EXPECT_STREQ(Root(longest)->GetName(), longest.c_str());
  const tag_aoStreamOffset locator{PlaceOf(longest), 32, 64, 0};
  for (const char* name : {static_cast<const char*>(nullptr), "", tooLong.c_str()}) {
    Watch watch;
    ClearLastError();
    for (const std::uint32_t kind : {kPlainKind, kFolderKind}) {
      EXPECT_FALSE(Got(storage->CreateStream(name, kind, kWriteFlags)));
      EXPECT_EQ(LastError().code, ErrorCode::kNameUnusable);
      EXPECT_FALSE(Got(storage->CreateStreamFast(name, kind, kWriteFlags)));
    }
    EXPECT_FALSE(Got(storage->OpenStream(name, kReadFlags)));
    EXPECT_FALSE(Got(storage->OpenStreamFast(name, kReadFlags)));
    EXPECT_FALSE(Got(storage->OpenStreamByOffset(locator, name, kReadFlags)));
    EXPECT_FALSE(Got(storage->OpenOrCreateStream(name, 0)));
    EXPECT_FALSE(Got(storage->OpenOrCreateStreamFast(name, 0)));
    EXPECT_FALSE(storage->RemoveStream(name));
    EXPECT_EQ(watch.Total(), 0U) << watch.Text();
  }
  Watch watch;
  EXPECT_FALSE(Make(longest)) << "a name that the map holds is taken";
  EXPECT_EQ(LastError().code, ErrorCode::kExists);
  EXPECT_FALSE(Got(storage->CreateStreamFast(longest.c_str(), kWriteFlags)));
  EXPECT_EQ(watch.Total(), 0U) << watch.Text();
}

TEST_F(RootStreams, ReservedSlotsAreForFastStreamsAlone) {
  for (const char* name : {"f0", "f1", "f2", "f3", "f4", "f5"})
    EXPECT_TRUE(Got(storage->CreateStreamFast(name, kWriteFlags)));
  EXPECT_FALSE(Got(storage->CreateStreamFast("f6", kWriteFlags)));
  EXPECT_EQ(LastError().code, ErrorCode::kFull);
  Make("plain", Pattern(6));
  EXPECT_EQ(PlaceOf("f0"), SlotOffset(0));
  EXPECT_EQ(PlaceOf("f5"), SlotOffset(5));
  EXPECT_EQ(PlaceOf("plain"), SlotOffset(6));
  EXPECT_FALSE(Got(storage->OpenStreamFast("plain", kReadFlags)));
  EXPECT_TRUE(Root("f5")) << "the map has it too";

  // A fast open knows what it makes and the reserved slots.
  storage = OpenFast();
  EXPECT_FALSE(Root("f3") || Root("plain") || storage->RemoveStream("plain"));
  Stream fast(storage->OpenStreamFast("f3", kWriteFlags));
  ASSERT_TRUE(fast);
  EXPECT_TRUE(Remove(fast));
  EXPECT_TRUE(Got(storage->CreateStreamFast("new", kWriteFlags)));
  EXPECT_EQ(PlaceOf("new"), SlotOffset(3));
  EXPECT_TRUE(Root("new")) << "the creation made a map entry";
  EXPECT_EQ(Stream(storage->OpenOrCreateStream("plain", 0))->GetLength(), 0U) << "a second one";
  Reopen();
  EXPECT_EQ(Root("plain")->GetLength(), 0U) << "the later slot wins";
}

TEST_F(RootStreams, OpenOrCreateFastStandsAtTheEndWhenAsked) {
  {
    const Stream stream(storage->OpenOrCreateStreamFast("log", 1));
    EXPECT_EQ(stream->GetCurDataPos(), 0U);
    stream->Write(Pattern(60).data(), 60);
    Make("other", Pattern(5));
    stream->Write(Pattern(50, 2).data(), 50);  // a second block
    ASSERT_TRUE(stream->SetLength(100));
  }
  EXPECT_EQ(Stream(storage->OpenOrCreateStreamFast("log", 0))->GetCurDataPos(), 0U);
  const Stream end(storage->OpenOrCreateStreamFast("log", 1));
  EXPECT_EQ(end->GetCurDataPos(), 100U);
  end->Write("x", 1);
  EXPECT_EQ(Slice(Raw("log").Value(), 100, 10), Bytes{'x'});
}

TEST_F(RootStreams, ALocatorOpensWhatLiesThere) {
  Make("a", Pattern(10));
  tag_aoStreamOffset locator{PlaceOf("a"), 32, 64, 0};
  EXPECT_EQ(Stream(storage->OpenStreamByOffset(locator, "any key", kReadFlags))->GetLength(), 10U);
  for (const std::uint32_t offset :
       {0U, locator.headerOffset + 1, 5164U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_FALSE(Got(storage->OpenStreamByOffset({offset, 32, 64, 0}, "key", kReadFlags)))
        << offset;
  }
  locator.directoryOffset = 0;
  EXPECT_FALSE(Stream(storage->OpenStreamByOffset(locator, "key", kReadFlags))->GoNext());
  EXPECT_EQ(LastError().code, ErrorCode::kWrongKind) << "of no directory";
  // A child opened so is renamed behind the folder's index.
  const Stream folder = MakeRoot("f", kFolderKind);
  ASSERT_EQ(folder->SetEntry("a", 1) + folder->SetEntry("b", 2), 2);
  tag_aoStream header;
  ASSERT_TRUE(folder->FindStream("a", header, locator));
  ASSERT_TRUE(Stream(storage->OpenStreamByOffset(locator, "a", kWriteFlags))->Rename("zz"));
  EXPECT_EQ(folder->GetEntry("zz", 0), 1);
  EXPECT_EQ(folder->GetEntry("a", -1), -1);
  EXPECT_FALSE(Root("zz")) << "a child is no root stream";
}

TEST_F(RootStreams, AndChildrenShareByTheFlagsOfTheFirstOpen) {
  constexpr std::uint32_t kNone = kStreamRead;
  struct Row {
    std::uint32_t first, second;
    bool opens;
  };
  const Row rows[] = {{kExclusive, kNone, false},
                      {kWriteFlags | kExclusive, kReadFlags, false},
                      {kExclusive | kShareRead, kNone, false},
                      {kExclusive | kShareReadWrite, kShareRead, false},
                      {kShareRead, kNone, true},
                      {kShareRead, kShareRead, true},
                      {kShareRead, kReadFlags, false},
                      {kShareRead, kExclusive, false},
                      {kShareRead | kShareReadWrite, kReadFlags, false},
                      {kShareReadWrite, kExclusive, true},
                      {kWriteFlags, kWriteFlags, true},
                      {kNone, kExclusive | kWriteFlags, true}};
  Make("a");
  const Stream folder = MakeRoot("f", kFolderKind), otherFolder = Root("f");
  ASSERT_TRUE(Got(folder->CreateStream("a", kPlainKind, kWriteFlags)));
  for (const Row& row : rows) {
    SCOPED_TRACE(std::to_string(row.first) + " then " + std::to_string(row.second));
    Stream first = Root("a", row.first);
    ASSERT_TRUE(first);
    EXPECT_EQ(Root("a", row.second) != nullptr, row.opens);
    EXPECT_EQ(Root("b", row.second), nullptr);
    EXPECT_TRUE(row.opens || !Got(storage->OpenOrCreateStream("a", 0)));

    first.reset(folder->OpenStream("a", row.first));
    EXPECT_TRUE(Got(otherFolder->OpenStream("a", row.second))) << "it has its own registry";
    Stream second(folder->OpenStream("a", row.second));
    ASSERT_EQ(second != nullptr, row.opens);
    const t_OpenStream* record = folder->IsStreamOpen("a");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->name, "a");
    EXPECT_EQ(record->openFlags, row.first);
    EXPECT_EQ(record->useCount, row.opens ? 2U : 1U);
    if (row.opens) {
      EXPECT_EQ(second.release()->Release(), 2);
    }
    EXPECT_EQ(first.release()->Release(), 1);
    EXPECT_EQ(folder->IsStreamOpen("a"), nullptr);
  }
  EXPECT_TRUE(Root("a", kExclusive)) << "the records of the rows are gone";
}

// It was in the file and not in the map: the second try made another stream of that name.
TEST(RootCreationWithoutMemory, LeavesNoStreamThatTheMapDoesNotHave) {
  const TempDir dir;
  const std::string path = dir.File("storage");
  bool fired = true;
  for (std::size_t k = 1; fired; ++k) {
    SCOPED_TRACE(k);
    {
      const Storage storage(aoStorage::Create(path.c_str(), 0, 0));
      {
        const FailAllocation fault(k);
        const Stream first(storage->CreateStream("a", kWriteFlags));
        fired = fault.Fired();
      }
      const Stream again(storage->OpenOrCreateStream("a", 0));
      ASSERT_TRUE(again);
    }
    ASSERT_EQ(ReadImage(ReadFile(path)).streams.size(), 1U);
  }
}

}  // namespace
}  // namespace aostorage::testing
