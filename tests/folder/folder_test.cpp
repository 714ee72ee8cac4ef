// Children of a folder: where their records land, how they are found and shared, what is refused.
#include <cerrno>

#include "folder/storage_fixture.h"
#include "support/check_file.h"

namespace aostorage::testing {
namespace {

constexpr std::uint32_t kFirstBlock = kEmptyFileSize;  // of the first stream in a new file

class FolderChildren : public OneStorageTest {
 protected:
  void MakeFolder(std::uint32_t reserve = 0) {
    storage = Create(reserve);
    folder = MakeRoot("f", kFolderKind);
    ASSERT_TRUE(folder);
  }
  Stream Child(const char* name, std::uint32_t packedKind = kPlainKind) const {
    return Stream(folder->CreateStream(name, packedKind, kWriteFlags));
  }
  // Where the folder's last block lies, and how many children are counted.
  void ExpectFolder(std::uint32_t offset, std::uint32_t used, std::uint32_t count) const {
    const RawStream raw = Raw("f");
    ASSERT_FALSE(raw.blocks.empty());
    EXPECT_EQ(raw.blocks.back().offset, offset);
    EXPECT_EQ(raw.blocks.back().used, used);
    EXPECT_EQ(raw.blocks.back().capacity, used);
    EXPECT_EQ(raw.length, 4 + 80 * count);
    EXPECT_EQ(Get32(raw.chain, 0), count);
    EXPECT_EQ("", CheckFile(path));
  }

  Stream folder;
};

TEST_F(FolderChildren, LandByteForByteWhereTheFormatSays) {
  MakeFolder(1000);  // a reserve is for plain streams alone
  ExpectFolder(kFirstBlock, 24, 0);
  const Stream first = Child("a", PackKind(false, 7));
  ExpectFolder(kFirstBlock, 104, 1);
  EXPECT_EQ(Slice(File(), kFirstBlock + 24, 80), StreamRecord("a", false, 0, 0, 0, 7));
  const Stream second = Child("b");  // the folder's block is still the last of the file
  ExpectFolder(kFirstBlock, 184, 2);
  EXPECT_EQ(Raw("f/b").recordOffset, kFirstBlock + 104);

  ASSERT_TRUE(Append(*first, Pattern(10)));
  const auto end = static_cast<std::uint32_t>(File().size());
  const Stream third = Child("sub", kFolderKind);  // no longer the last: a block of its own
  ExpectFolder(end, 100, 3);
  EXPECT_EQ(Raw("f/sub").recordOffset, end + 20);
  EXPECT_EQ(Raw("f/sub").chain, Bytes(4));
  EXPECT_EQ(folder->GetNumChildren(), 3U);
  EXPECT_EQ(folder->GetLength(), 244U);
  EXPECT_EQ(folder->GetCurDataPos(), 4U) << "behind the count word";
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
    EXPECT_EQ(LastError().code, ErrorCode::kNameUnusable);
    EXPECT_FALSE(Got(folder->OpenStream(name, kReadFlags)) ||
                 Got(folder->OpenOrCreateStream(name, std::int32_t{0})) ||
                 Got(folder->OpenOrCreateStream(name, kPlainKind, kWriteFlags)) ||
                 folder->FindStream(name, header, offset) ||
                 folder->AddStreamHeader(name, kPlainKind, header, offset) ||
                 folder->IsStreamOpen(name) != nullptr);
  }
  EXPECT_FALSE(child->Rename(nullptr) || child->Rename(""));
  EXPECT_FALSE(Got(folder->CreateStream("taken", kPlainKind, kWriteFlags)));
  EXPECT_EQ(LastError().code, ErrorCode::kExists);
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
  Load(builder);
  for (const char* name : {"plain", "odd"}) {
    const Stream plain = Root(name);
    tag_aoStream header;
    tag_aoStreamOffset offset;
    std::uint32_t cookie = 4;
    EXPECT_EQ(plain->IsFolder(), 0);
    EXPECT_FALSE(Got(plain->OpenStream("a", kReadFlags)) ||
                 Got(plain->CreateStream("n", kPlainKind, kWriteFlags)) ||
                 Got(plain->OpenOrCreateStream("a", std::int32_t{0})) ||
                 Got(plain->OpenOrCreateStream("n", kPlainKind, kWriteFlags)) ||
                 plain->FindStream("a", header, offset) ||
                 plain->AddStreamHeader("n", kPlainKind, header, offset) ||
                 Got(plain->OpenStreamFirst(cookie, kReadFlags)) ||
                 Got(plain->OpenStreamNext(cookie, kReadFlags)));
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
  EXPECT_EQ(header.name, std::string("b"));
  EXPECT_TRUE(header.kindFlag == 1 && header.length == 4);
  EXPECT_EQ(offset.headerOffset, Raw("f/b").recordOffset);
  EXPECT_EQ(offset.directoryOffset + offset.directoryCount, 0U);
  EXPECT_EQ(offset.durationSeconds, 180U);
  EXPECT_EQ(folder->GetCurDataPos(), 84U);
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

TEST_F(FolderChildren, CostFewCalls) {
  MakeFolder();
  for (int i = 0; i < 1000; ++i)
    ASSERT_TRUE(Append(*Child(std::to_string(i).c_str()), Pattern(32)));
  folder = Root("f");
  {
    Watch watch;  // a whole scan, in stretches and not slot by slot
    ASSERT_TRUE(Got(folder->OpenStream("999", kReadFlags)));
    EXPECT_LE(watch.Total(), 10U) << watch.Text();
  }
  for (const char* name : {"0", "500", "999"}) {
    Watch watch;
    ASSERT_TRUE(Got(folder->OpenStream(name, kReadFlags)));
    EXPECT_EQ(watch.Text(), "1 read");
  }
  for (const char* name : {"x", "y"}) {
    Watch watch;
    ASSERT_TRUE(Child(name));
    EXPECT_EQ(watch.Count(Call::kRead), 0U) << watch.Text();
    EXPECT_LE(watch.Total(), 7U) << watch.Text();
  }
}

}  // namespace
}  // namespace aostorage::testing
