// Faults that a reading of the code found, each named after what went wrong.
#include "folder/storage_fixture.h"

namespace aostorage::testing {
namespace {

class FoundFaults : public StorageFileTest {};

TEST_F(FoundFaults, AVacatedChildWithTheFoldersOwnChainEmptiedTheFolder) {
  FileBuilder builder;
  const auto chain = static_cast<std::uint32_t>(builder.bytes.size());
  builder.AddStream(
      6, "f",
      FolderPayload({StreamRecord("b", false, 0, 0), StreamRecord("", false, 0, chain),
                     StreamRecord("c", false, 0, 0)}),
      {}, true);
  Storage storage = OpenBytes(builder.bytes);
  Stream folder(storage->OpenStream("f", kWriteFlags));
  ASSERT_TRUE(Got(folder->CreateStream("sub", kFolderKind, kWriteFlags)));
  const std::vector<std::string> all{"b", "sub", "c"};
  EXPECT_EQ(NamesIn(*folder), all);
  folder.reset();
  storage = Open();
  EXPECT_EQ(NamesIn(*Stream(storage->OpenStream("f", kReadFlags))), all);
}

TEST_F(FoundFaults, AStaleObjectTookTheNameOfALiveStreamOutOfTheMap) {
  const Storage storage = Create();
  Stream(storage->CreateStream("x", kWriteFlags));
  Stream first(storage->OpenStream("x", kWriteFlags));
  Stream second(storage->OpenStream("x", kWriteFlags));
  ASSERT_TRUE(Remove(first));
  ASSERT_TRUE(Got(storage->CreateStream("x", kWriteFlags)));
  EXPECT_TRUE(Remove(second));
  EXPECT_TRUE(Got(storage->OpenStream("x", kReadFlags)));
  EXPECT_FALSE(Got(storage->CreateStream("x", kWriteFlags)));

  first.reset(storage->OpenStream("x", kWriteFlags));
  second.reset(storage->OpenStream("x", kWriteFlags));
  ASSERT_TRUE(first->Rename("y"));
  ASSERT_TRUE(Got(storage->CreateStream("x", kWriteFlags)));
  ASSERT_TRUE(second->Rename("z"));
  EXPECT_TRUE(Got(storage->OpenStream("x", kReadFlags)));
  EXPECT_FALSE(Got(storage->OpenStream("y", kReadFlags))) << "the slot has one name";
  EXPECT_TRUE(Got(storage->OpenStream("z", kReadFlags)));
}

TEST_F(FoundFaults, ANegativeCountWordLetARemovalReachTheChildren) {
  FileBuilder builder;
  Bytes data = FolderPayload({StreamRecord("a", false, 0, 0), StreamRecord("b", false, 0, 0)});
  Put32(data, 0, 0x80000001);
  builder.AddStream(6, "f", data, {}, true);
  const Storage storage = OpenBytes(builder.bytes);
  const Stream folder(storage->OpenStream("f", kWriteFlags));
  folder->ClearFolder();
  EXPECT_EQ(File(), builder.bytes);
}

// Each block's `used` reaches to the end of the file, so that the chain seems to hold far more than
// it.
TEST_F(FoundFaults, BlocksThatOverlapTookMemoryWithoutBound) {
  constexpr std::uint32_t kBlocks = 200, kStep = 40;
  FileBuilder builder;
  const auto first = static_cast<std::uint32_t>(builder.bytes.size());
  builder.bytes.resize(first + kBlocks * kStep + 8000, 0xFC);
  const auto size = static_cast<std::uint32_t>(builder.bytes.size());
  for (std::uint32_t i = 0; i < kBlocks; ++i) {
    const std::uint32_t block = first + i * kStep;
    const std::uint32_t words[] = {0xFAFAFAFA, size - block, size - block, 0,
                                   i + 1 < kBlocks ? block + kStep : 0};
    for (std::uint32_t w = 0; w < 5; ++w) Put32(builder.bytes, block + 4 * w, words[w]);
  }
  Put32(builder.bytes, first + 20, 0x7FFFFFFF);  // the count word
  builder.PutSlot(6, StreamRecord("f", true, 84, first));
  builder.PutSlot(7, StreamRecord("plain", false, 84, first));
  const Storage storage = OpenBytes(builder.bytes);
  const Stream folder(storage->OpenStream("f", kWriteFlags));
  EXPECT_EQ(folder->GetEntry("none", -1), -1);
  EXPECT_EQ(LastError(), Error::kDamaged);
  const Stream plain(storage->OpenStream("plain", kWriteFlags));
  Bytes all(std::size_t{kBlocks} * size);
  EXPECT_EQ(plain->Read(all.data(), static_cast<std::uint32_t>(all.size())), kFailed);
  EXPECT_EQ(File(), builder.bytes);
}

// The count word lies low: the slots behind it are walked, each read once.
TEST_F(FoundFaults, AWalkBehindTheCountReadEverySlotAtEachStep) {
  std::vector<Bytes> records;
  for (int i = 0; i < 3000; ++i)
    records.push_back(StreamRecord("c" + std::to_string(i), false, 0, 0));
  FileBuilder builder;
  Bytes data = FolderPayload(records);
  Put32(data, 0, 1);
  builder.AddStream(6, "f", data, {}, true);
  const Storage storage = OpenBytes(builder.bytes);
  const Stream folder(storage->OpenStream("f", kReadFlags));
  std::uint32_t cookie = 0, met = 0;
  const Watch watch;
  for (Stream child(folder->OpenStreamFirst(cookie, kReadFlags)); child; ++met)
    child.reset(folder->OpenStreamNext(cookie, kReadFlags));
  EXPECT_EQ(met, 3000U);
  EXPECT_LT(watch.Total(), 4 * 3000U) << watch.Text();
}

TEST_F(FoundFaults, AChildOpenedByItsLocatorWasRenamedBehindTheIndex) {
  const Storage storage = Create();
  const Stream folder(storage->CreateStream("f", kFolderKind, kWriteFlags));
  ASSERT_EQ(folder->SetEntry("a", 1), 1);
  ASSERT_EQ(folder->SetEntry("b", 2), 1);
  tag_aoStream header;
  tag_aoStreamOffset offset;
  ASSERT_TRUE(folder->FindStream("a", header, offset));
  Stream child(storage->OpenStreamByOffset(offset, "a", kWriteFlags));
  ASSERT_TRUE(child->Rename("zz"));
  EXPECT_EQ(folder->GetEntry("zz", 0), 1);
  EXPECT_EQ(folder->GetEntry("a", -1), -1);
  EXPECT_FALSE(Got(storage->OpenStream("zz", kReadFlags))) << "a child is no root stream";
}

}  // namespace
}  // namespace aostorage::testing
