// Folders in files made by hand: records and count words in pieces, bad slots, chains that overlap.
#include "folder/storage_fixture.h"
#include "support/check_file.h"

namespace aostorage::testing {
namespace {

using Names = std::vector<std::string>;

class FolderDamage : public OneStorageTest {
 protected:
  FolderDamage() {
    builder.AddStream(6, "before", Pattern(40, 6));
    const std::uint32_t inside = builder.AddChain(Pattern(20, 2));
    builder.AddStream(7, "sound", FolderPayload({StreamRecord("x", false, 20, inside)}), {}, true);
    sound = builder;
  }
  // Offset of the chain that the next AddChain makes.
  std::uint32_t Next() const { return static_cast<std::uint32_t>(builder.bytes.size()); }
  void AddFolder(const Bytes& data, const std::vector<std::uint32_t>& rooms = {}) {
    builder.AddStream(8, "f", data, rooms, true);
  }
  void OpenFolder() {
    folder.reset();
    Load(builder);
    folder = Root("f");
    ASSERT_TRUE(folder);
  }
  bool HasChild(const char* name) const { return Got(folder->OpenStream(name, kReadFlags)); }
  bool MakeChild(const char* name, std::uint32_t kind = kPlainKind) const {
    return Got(folder->CreateStream(name, kind, kWriteFlags));
  }
  void ExpectOthersWhole() {
    folder.reset();
    Reopen();
    const Stream around = Root("sound");
    const Stream inside(around->OpenStream("x", kReadFlags));
    ASSERT_TRUE(inside);
    EXPECT_EQ(ReadValue(*inside), Pattern(20, 2));
    EXPECT_EQ(ReadValue(*Root("before")), Pattern(40, 6));
  }

  FileBuilder builder, sound;
  Stream folder;
};

// A count word in pieces: one byte in each block.
TEST_F(FolderDamage, ACountWordInPiecesIsReadAndWritten) {
  AddFolder(FolderPayload({StreamRecord("a", false, 0, 0), StreamRecord("b", false, 0, 0)}),
            {1, 1, 1, 1, 80, 17});
  OpenFolder();
  ASSERT_TRUE(MakeChild("c"));
  EXPECT_EQ(Get32(Raw("f").chain, 0), 3U);
  EXPECT_EQ(NamesIn(*folder), (Names{"a", "b", "c"}));
  EXPECT_EQ("", CheckFile(path));
}

// The first block of a vacated record has room behind its `used`, and the folder was shortened to
// its count word: a new record that ran on into that room would push all that follows out of place.
TEST_F(FolderDamage, RecordsKeepTheirPlacesInAShortenedFolder) {
  const Bytes data = FolderPayload({StreamRecord("a", false, 0, 0), StreamRecord("", false, 0, 0),
                                    StreamRecord("c", false, 0, 0)});
  const std::uint32_t inFirst = 4 + kSlotSize + 65, room = inFirst + 15;
  const std::uint32_t second = Next() + 20 + room;
  AddFolder(Slice(data, 0, inFirst), {room, 200});
  const Bytes rest = Slice(data, inFirst, data.size());
  std::copy(rest.begin(), rest.end(), builder.bytes.begin() + second + 20);
  Put32(builder.bytes, second + 4, static_cast<std::uint32_t>(20 + rest.size()));
  Put32(builder.bytes, builder.SlotAt(8) + 68, static_cast<std::uint32_t>(data.size()));
  OpenFolder();
  ASSERT_TRUE(folder->SetLength(4));
  ASSERT_TRUE(MakeChild("new"));
  EXPECT_EQ(Raw("f").chain,
            FolderPayload({StreamRecord("a", false, 0, 0), StreamRecord("new", false, 0, 0),
                           StreamRecord("c", false, 0, 0)}));
}

TEST_F(FolderDamage, AVacatedChildWithTheFoldersOwnChainDoesNotEmptyIt) {
  AddFolder(FolderPayload({StreamRecord("b", false, 0, 0), StreamRecord("", false, 0, Next()),
                           StreamRecord("c", false, 0, 0)}));
  OpenFolder();
  ASSERT_TRUE(MakeChild("sub", kFolderKind));
  EXPECT_EQ(NamesIn(*folder), (Names{"b", "sub", "c"}));
  folder.reset();
  Reopen();
  EXPECT_EQ(NamesIn(*Root("f")), (Names{"b", "sub", "c"}));
}

// The count word lies low: the slots behind it are walked, each read once.
TEST_F(FolderDamage, AWalkGoesOnBehindTheCountAndReadsEachSlotOnce) {
  std::vector<Bytes> records;
  for (int i = 0; i < 3000; ++i)
    records.push_back(StreamRecord("c" + std::to_string(i), false, 0, 0));
  Bytes data = FolderPayload(records);
  Put32(data, 0, 1);
  AddFolder(data);
  OpenFolder();
  std::uint32_t cookie = 0, met = 0;
  const Watch watch;
  for (Stream child(folder->OpenStreamFirst(cookie, kReadFlags)); child; ++met)
    child.reset(folder->OpenStreamNext(cookie, kReadFlags));
  EXPECT_EQ(met, 3000U);
  EXPECT_LT(watch.Total(), 4 * 3000U) << watch.Text();
}

TEST_F(FolderDamage, BadSlotsStopWhatWouldRelyOnThem) {
  Bytes noMagic = StreamRecord("bad", false, 0, 0),
        endless = StreamRecord(std::string(60, 'e'), false, 0, 0);
  Put32(noMagic, 0, 0);
  endless[64] = 'e';
  AddFolder(FolderPayload({StreamRecord("a", false, 0, 0), endless, noMagic,
                           StreamRecord("", false, 0, 0), StreamRecord("c", false, 0, 0)}));
  OpenFolder();
  EXPECT_FALSE(MakeChild("new")) << "a bad slot before the vacated one";
  EXPECT_EQ(LastError().code, ErrorCode::kBadMagic);
  EXPECT_EQ(folder->SetEntry("new", std::int32_t{1}), 0);
  EXPECT_EQ(NamesIn(*folder), (Names{"a"}));
  EXPECT_TRUE(HasChild("c")) << "a lookup does not ask for the magic word";
  EXPECT_EQ(File(), builder.bytes);
  folder->ClearFolder();
  EXPECT_FALSE(HasChild("a"));
  EXPECT_TRUE(HasChild("c"));
  ExpectOthersWhole();
}

TEST_F(FolderDamage, AFolderWithoutItsCountHasNoChildrenAndTakesNone) {
  for (const std::size_t bytes : {0U, 3U}) {
    builder = sound;
    AddFolder(Bytes(bytes, 1));
    if (bytes == 0) builder.PutSlot(8, StreamRecord("f", true, 0, 0));
    OpenFolder();
    std::uint32_t cookie = 77;
    EXPECT_FALSE(Got(folder->OpenStreamFirst(cookie, kReadFlags)));
    EXPECT_EQ(cookie, 77U);
    EXPECT_FALSE(MakeChild("a") || HasChild("a"));
    EXPECT_TRUE(NamesIn(*folder).empty());
    EXPECT_EQ(folder->GetNumChildren(), 0U);
    EXPECT_EQ(File(), builder.bytes);
  }
}

}  // namespace
}  // namespace aostorage::testing
