// Children of a folder: where their records land, how they are found and shared, what is refused.
#include <cerrno>

#include "folder/storage_fixture.h"

namespace aostorage::testing {
namespace {

constexpr std::uint32_t kFirstBlock = kEmptyFileSize;  // of the first stream in a new file

class FolderChildren : public StorageFileTest {
 protected:
  void MakeFolder(std::uint32_t reserve = 0) {
    storage = Create(reserve);
    folder.reset(storage->CreateStream("f", kFolderKind, kWriteFlags));
    ASSERT_TRUE(folder);
  }
  Stream Child(const char* name, std::uint32_t packedKind = kPlainKind) {
    return Stream(folder->CreateStream(name, packedKind, kWriteFlags));
  }
  void ExpectFolder(std::size_t block, std::uint32_t offset, std::uint32_t used,
                    std::uint32_t length, std::uint32_t count) const {
    const RawStream raw = Raw("f");
    ASSERT_LT(block, raw.blocks.size());
    EXPECT_EQ(raw.blocks[block].offset, offset);
    EXPECT_EQ(raw.blocks[block].used, used);
    EXPECT_EQ(raw.blocks[block].capacity, used);
    EXPECT_EQ(raw.length, length);
    EXPECT_EQ(Get32(raw.chain, 0), count);
    EXPECT_EQ("", CheckFile(path));
  }

  Storage storage;
  Stream folder;
};

TEST_F(FolderChildren, LandByteForByteWhereTheFormatSays) {
  MakeFolder(1000);  // a reserve is for plain streams alone
  ExpectFolder(0, kFirstBlock, 24, 4, 0);
  const Stream first = Child("a", PackKind(false, 7));
  ExpectFolder(0, kFirstBlock, 104, 84, 1);
  EXPECT_EQ(Slice(File(), kFirstBlock + 24, 80), StreamRecord("a", false, 0, 0, 0, 7));
  const Stream second = Child("b");  // the folder's block is still the last of the file
  ExpectFolder(0, kFirstBlock, 184, 164, 2);
  EXPECT_EQ(Raw("f/b").recordOffset, kFirstBlock + 104);

  ASSERT_TRUE(Append(*first, Pattern(10)));
  const auto end = static_cast<std::uint32_t>(File().size());
  const Stream third = Child("sub", kFolderKind);  // no longer the last: a block of its own
  ExpectFolder(1, end, 100, 244, 3);
  EXPECT_EQ(Raw("f/sub").recordOffset, end + 20);
  EXPECT_EQ(Raw("f/sub").length, 4U);
  EXPECT_EQ(Raw("f/sub").chain, Bytes(4));
  EXPECT_EQ(folder->GetNumChildren(), 3U);
  EXPECT_EQ(folder->GetLength(), 244U);
  EXPECT_EQ(folder->GetCurDataPos(), 4U) << "behind the count word";
}

TEST_F(FolderChildren, TakeTheFirstVacatedSlotWithItsChain) {
  MakeFolder(50);
  for (const char* name : {"a", "b", "c"}) ASSERT_TRUE(Append(*Child(name), Pattern(80)));
  for (const char* name : {"c", "b"}) {
    Stream child(folder->OpenStream(name, kWriteFlags));
    ASSERT_TRUE(Remove(child));
  }
  const Bytes before = File();
  const RawStream vacated = Image().vacated.at(0);
  Stream taker = Child("new", PackKind(false, 2));
  const RawStream raw = Raw("f/new");
  EXPECT_EQ(raw.recordOffset, vacated.recordOffset);
  EXPECT_EQ(raw.firstBlock, vacated.firstBlock);
  EXPECT_EQ(raw.lastBlock, vacated.lastBlock);
  EXPECT_EQ(raw.length, 0U);
  EXPECT_EQ(raw.duration, 2);
  EXPECT_EQ(folder->GetNumChildren(), 3U);
  EXPECT_EQ(folder->GetLength(), 244U);
  EXPECT_EQ(File().size(), before.size());
  EXPECT_TRUE(Got(folder->OpenStream("a", kReadFlags)));
  ASSERT_TRUE(Remove(taker));
  EXPECT_EQ(Raw("f/a").Value(), Pattern(80));

  // A folder there starts empty over the same chain.
  ASSERT_TRUE(Child("sub", kFolderKind));
  EXPECT_EQ(Raw("f/sub").firstBlock, vacated.firstBlock);
  EXPECT_EQ(Raw("f/sub").chain, Bytes(4));
  ASSERT_TRUE(Child("behind"));  // found behind a slot that is vacated
  Stream sub(folder->OpenStream("sub", kWriteFlags));
  ASSERT_TRUE(Remove(sub));
  EXPECT_TRUE(Got(folder->OpenStream("behind", kReadFlags)));
  EXPECT_EQ("", CheckFile(path));
}

TEST_F(FolderChildren, AreRefusedUnderUnusableNames) {
  MakeFolder();
  const std::string longest(60, 'n'), tooLong(61, 'n');
  const Stream child = Child("taken");
  const Bytes before = File();
  tag_aoStream header;
  tag_aoStreamOffset offset;
  for (const char* name : {static_cast<const char*>(nullptr), "", tooLong.c_str()}) {
    SCOPED_TRACE(name == nullptr ? "null" : name);
    ClearLastError();
    EXPECT_FALSE(Got(folder->CreateStream(name, kPlainKind, kWriteFlags)));
    EXPECT_EQ(LastError(), Error::kBadArgument);
    EXPECT_FALSE(Got(folder->OpenStream(name, kReadFlags)));
    EXPECT_FALSE(Got(folder->OpenOrCreateStream(name, std::int32_t{0})));
    EXPECT_FALSE(Got(folder->OpenOrCreateStream(name, kPlainKind, kWriteFlags)));
    EXPECT_FALSE(folder->FindStream(name, header, offset));
    EXPECT_FALSE(folder->AddStreamHeader(name, kPlainKind, header, offset));
    EXPECT_EQ(folder->IsStreamOpen(name), nullptr);
  }
  EXPECT_FALSE(child->Rename(nullptr));
  EXPECT_FALSE(child->Rename(""));
  EXPECT_FALSE(Got(folder->CreateStream("taken", kPlainKind, kWriteFlags)));
  EXPECT_EQ(LastError(), Error::kExists);
  EXPECT_EQ(File(), before);
  for (const std::string& name : {longest, std::string("Taken"), std::string("a/b\x01\xff")}) {
    EXPECT_TRUE(Child(name.c_str())) << name;
    EXPECT_TRUE(folder->FindStream(name.c_str(), header, offset));
    EXPECT_EQ(header.name, name);
  }
}

TEST_F(FolderChildren, AreNotLookedForInAPlainStream) {
  FileBuilder builder;
  builder.AddStream(6, "plain", FolderPayload({StreamRecord("a", false, 0, 0)}));
  builder.AddStream(7, "odd", FolderPayload({StreamRecord("a", false, 0, 0)}));
  builder.bytes[builder.SlotAt(7) + 67] = 3;  // a kind that nobody writes is plain
  storage = OpenBytes(builder.bytes);
  for (const char* name : {"plain", "odd"}) {
    const Stream plain(storage->OpenStream(name, kWriteFlags));
    tag_aoStream header;
    tag_aoStreamOffset offset;
    std::uint32_t cookie = 4;
    EXPECT_EQ(plain->IsFolder(), 0);
    EXPECT_FALSE(Got(plain->OpenStream("a", kReadFlags)));
    EXPECT_FALSE(Got(plain->CreateStream("n", kPlainKind, kWriteFlags)));
    EXPECT_FALSE(Got(plain->OpenOrCreateStream("a", std::int32_t{0})));
    EXPECT_FALSE(Got(plain->OpenOrCreateStream("n", kPlainKind, kWriteFlags)));
    EXPECT_FALSE(plain->FindStream("a", header, offset));
    EXPECT_FALSE(plain->AddStreamHeader("n", kPlainKind, header, offset));
    EXPECT_FALSE(Got(plain->OpenStreamFirst(cookie, kReadFlags)));
    EXPECT_FALSE(Got(plain->OpenStreamNext(cookie, kReadFlags)));
    EXPECT_TRUE(NamesIn(*plain).empty());
    plain->ClearFolder();
  }
  EXPECT_EQ(File(), builder.bytes);
}

TEST_F(FolderChildren, HeadersCanBeFoundAndAddedWithoutAnOpen) {
  MakeFolder();
  ASSERT_TRUE(Child("a"));
  ASSERT_TRUE(Child("b", PackKind(true, 3)));
  tag_aoStream header;
  tag_aoStreamOffset offset{9, 9, 9, 9};
  ASSERT_TRUE(folder->FindStream("b", header, offset));
  EXPECT_STREQ(header.name, "b");
  EXPECT_EQ(header.kindFlag, 1);
  EXPECT_EQ(header.length, 4U);
  EXPECT_EQ(offset.headerOffset, Raw("f/b").recordOffset);
  EXPECT_EQ(offset.directoryOffset + offset.directoryCount, 0U);
  EXPECT_EQ(offset.durationSeconds, 180U);
  EXPECT_EQ(folder->GetCurDataPos(), 84U);
  Bytes record(80);
  EXPECT_EQ(folder->Read(record.data(), 80), 80U);
  EXPECT_EQ(record, Slice(Raw("f").chain, 84, 80));

  const auto end = static_cast<std::uint32_t>(File().size());
  ASSERT_TRUE(folder->AddStreamHeader("c", PackKind(false, 1), header, offset));
  EXPECT_EQ(offset.headerOffset, end + 20);
  EXPECT_EQ(offset.durationSeconds, 60U);
  EXPECT_EQ(header.firstBlock, 0U);
  EXPECT_EQ(Slice(File(), end + 20, 80), StreamRecord("c", false, 0, 0, 0, 1));
  EXPECT_EQ(folder->GetCurDataPos(), 244U);
  EXPECT_EQ(folder->GetNumChildren(), 3U);
  EXPECT_EQ(Get32(Raw("f").chain, 0), 2U) << "the count word is the creation's to write";
  EXPECT_FALSE(Got(folder->OpenStream("c", kReadFlags))) << "behind the counted slots";
  ASSERT_TRUE(Child("d"));  // takes the place of the header that nobody counted
  EXPECT_EQ(Raw("f/d").recordOffset, end + 20);
  EXPECT_EQ(Get32(Raw("f").chain, 0), 3U);
}

TEST_F(FolderChildren, AreOpenedOrCreatedOnce) {
  MakeFolder();
  for (int round = 0; round < 2; ++round) {
    const Stream shortForm(folder->OpenOrCreateStream("s", std::int32_t{1}));
    const Stream longForm(
        folder->OpenOrCreateStream("l", PackKind(false, 5), kStreamRead | kShareRead));
    ASSERT_TRUE(shortForm && longForm);
    EXPECT_EQ(shortForm->IsFolder(), 1);
    EXPECT_EQ(longForm->GetDuration(), 5);
    EXPECT_EQ(folder->IsStreamOpen("s")->openFlags, kWriteFlags);
    EXPECT_EQ(folder->IsStreamOpen("l")->openFlags, kStreamRead | kShareRead);
    const Bytes before = File();
    EXPECT_FALSE(Got(folder->OpenOrCreateStream("l", std::int32_t{0})))
        << "there, and not to be shared";
    EXPECT_EQ(LastError(), Error::kRefused);
    EXPECT_EQ(File(), before);
  }
  EXPECT_EQ(NamesIn(*folder), (std::vector<std::string>{"s", "l"}));
}

TEST_F(FolderChildren, ShareByTheFlagsOfTheFirstOpen) {
  struct Row {
    std::uint32_t first, second;
    bool opens;
  };
  const Row rows[] = {
      {kWriteFlags | kExclusive, kStreamRead, false},
      {kWriteFlags | kExclusive, kWriteFlags, false},
      {kStreamRead | kShareRead, kReadFlags, false},
      {kStreamRead | kShareRead, kExclusive, false},
      {kStreamRead | kShareRead, kStreamRead, true},
      {kStreamRead | kShareRead, kShareRead, true},
      {kReadFlags, kExclusive, true},
      {kReadFlags, kWriteFlags, true},
      {0, kExclusive | kWriteFlags, true},
  };
  MakeFolder();
  ASSERT_TRUE(Child("a"));
  for (const Row& row : rows) {
    SCOPED_TRACE(std::to_string(row.first) + ", " + std::to_string(row.second));
    Stream first(folder->OpenStream("a", row.first));
    const Stream otherFolder(storage->OpenStream("f", kReadFlags));
    EXPECT_TRUE(Got(otherFolder->OpenStream("a", row.second)))
        << "each folder object has its own registry";
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
}

TEST_F(FolderChildren, CountAsOpenFromTheirCreationOn) {
  MakeFolder();
  Stream held(folder->CreateStream("a", kPlainKind, kWriteFlags | kExclusive));
  EXPECT_FALSE(Got(folder->OpenStream("a", kReadFlags)));
  {
    // Removed through another object; this one's registry still guards the name.
    const Stream other(storage->OpenStream("f", kWriteFlags));
    Stream child(other->OpenStream("a", kWriteFlags));
    ASSERT_TRUE(Remove(child));
  }
  EXPECT_FALSE(Got(folder->CreateStream("a", kPlainKind, kWriteFlags)));
  EXPECT_EQ(Get32(Raw("f").chain, 0), 1U) << "no child is open, but the slot is taken";
  EXPECT_EQ(Raw("f/a").name, "a");
  EXPECT_EQ(held.release()->Release(), 1);
  EXPECT_TRUE(Got(folder->OpenStream("a", kReadFlags)));
  folder.reset();
  EXPECT_EQ(storage->CreateStream("root", kWriteFlags)->Release(), -1) << "unlike a root stream";
}

TEST_F(FolderChildren, CostFewCalls) {
  MakeFolder();
  const std::uint32_t children = 1000;
  for (std::uint32_t i = 0; i < children; ++i) {
    ASSERT_TRUE(Append(*Child(std::to_string(i).c_str()), Pattern(32)));
  }
  folder.reset(storage->OpenStream("f", kWriteFlags));
  std::size_t firstCreation = 0;
  {
    Watch watch;  // a whole scan, in stretches and not slot by slot
    ASSERT_TRUE(Got(folder->OpenStream("999", kReadFlags)));
    EXPECT_LE(watch.Total(), 10U) << watch.Text();
  }
  for (const char* name : {"0", "500", "999"}) {
    Watch watch;
    ASSERT_TRUE(Got(folder->OpenStream(name, kReadFlags)));
    EXPECT_EQ(watch.Total(), 1U) << watch.Text();
    EXPECT_EQ(watch.Count(Call::kRead), 1U);
  }
  for (const char* name : {"x", "y"}) {
    Watch watch;
    ASSERT_TRUE(Child(name));
    EXPECT_EQ(watch.Count(Call::kRead), 0U) << watch.Text();
    if (firstCreation == 0) firstCreation = watch.Total();
    EXPECT_LE(watch.Total(), firstCreation) << watch.Text();
  }
  EXPECT_LE(firstCreation, 7U);
}

}  // namespace
}  // namespace aostorage::testing
