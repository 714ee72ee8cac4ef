// Entries at the root: the plain family by the name map, the Fast family in the reserved slots.
#include "folder/storage_fixture.h"

namespace aostorage::testing {
namespace {

class StorageEntries : public StorageFileTest {
 protected:
  std::uint32_t SlotOf(const std::string& name) const {
    return (Raw(name).recordOffset - SlotOffset(0)) / kSlotSize;
  }
};

TEST_F(StorageEntries, OfBothFamiliesHaveTheSamePayloads) {
  const Storage storage = Create();
  const auto expect = [&](int set, const char* name, const Bytes& bytes, std::uint32_t slot) {
    EXPECT_EQ(set, 1) << name;
    EXPECT_EQ(Raw(name).Value(), bytes) << name;
    EXPECT_EQ(SlotOf(name), slot) << name;
  };
  const Bytes number{0xFE, 0xFF, 0xFF, 0xFF}, large{0xFE, 255, 255, 255, 255, 255, 255, 255};
  const Bytes real{0, 0, 0, 0, 0, 0, 0xF8, 0x3F}, text{2, 0, 'a', 'b'};
  expect(storage->SetEntry("i", std::int32_t{-2}), "i", number, 6);
  expect(storage->SetEntry("l", std::int64_t{-2}), "l", large, 7);
  expect(storage->SetEntry("d", 1.5), "d", real, 8);
  expect(storage->SetEntry("s", "ab"), "s", text, 9);
  expect(storage->SetEntryEraseOld("e", "xyz", 3) - 2, "e", {'x', 'y', 'z'}, 10);
  expect(storage->SetEntryFast("fi", std::int32_t{-2}), "fi", number, 0);
  expect(storage->SetEntryFast("fl", std::int64_t{-2}), "fl", large, 1);
  expect(storage->SetEntryFast("fd", 1.5), "fd", real, 2);
  expect(storage->SetEntryFast("fs", "ab"), "fs", text, 3);
  EXPECT_EQ(storage->GetEntryFast("i", std::int32_t{9}), 9) << "not in a reserved slot";
  const Storage mapped = Open(), fast = OpenFast();
  for (aoStorage* reader : {storage.get(), mapped.get()}) {
    EXPECT_EQ(reader->GetEntry("i", std::int32_t{0}), -2);
    EXPECT_EQ(reader->GetEntry("l", std::int64_t{0}), -2);
    EXPECT_EQ(reader->GetEntry("d", 0.0), 1.5);
    EXPECT_EQ(reader->GetEntry("s", ""), "ab");
    EXPECT_EQ(reader->GetEntry("fi", std::int32_t{0}), -2);
    char bytes[3] = {};
    EXPECT_EQ(reader->GetEntryErasedOld("e", bytes, 3), 1);
    EXPECT_EQ(std::string(bytes, 3), "xyz");
    EXPECT_EQ(reader->GetEntryErasedOld("e", bytes, 4), 0);
  }
  for (aoStorage* reader : {storage.get(), mapped.get(), fast.get()}) {
    EXPECT_EQ(reader->GetEntryFast("fi", std::int32_t{0}), -2);
    EXPECT_EQ(reader->GetEntryFast("fl", std::int64_t{0}), -2);
    EXPECT_EQ(reader->GetEntryFast("fd", 0.0), 1.5);
    EXPECT_EQ(reader->GetEntryFast("fs", ""), "ab");
  }
  EXPECT_EQ(fast->GetEntry("i", std::int32_t{9}), 9) << "the map is empty";
  EXPECT_EQ(fast->GetEntry("fi", std::int32_t{9}), 9);
  EXPECT_EQ(fast->GetEntryErasedOld("e", nullptr, 0), 0);
}

TEST_F(StorageEntries, AreRefusedOrAbsentByTheTables) {
  const Storage storage = Create();
  ASSERT_TRUE(Got(storage->CreateStream("folder", kFolderKind, kWriteFlags)));
  ASSERT_TRUE(Got(storage->CreateStreamFast("fastFolder", kFolderKind, kWriteFlags)));
  ASSERT_EQ(storage->SetEntry("held", std::int32_t{1}), 1);
  ASSERT_EQ(storage->SetEntryFast("fastHeld", std::int32_t{1}), 1);
  const Stream held(storage->OpenStream("held", kStreamRead | kShareRead));
  const Stream fastHeld(storage->OpenStream("fastHeld", kWriteFlags | kExclusive));
  const std::string tooLong(61, 'n');
  const Bytes before = File();
  for (const char* name :
       {"folder", "fastFolder", "held", "fastHeld", "", tooLong.c_str(), (const char*)nullptr}) {
    SCOPED_TRACE(name == nullptr ? "null" : name);
    EXPECT_EQ(storage->GetEntry(name, std::int32_t{5}), 5);
    EXPECT_EQ(storage->GetEntry(name, std::int64_t{5}), 5);
    EXPECT_EQ(storage->GetEntry(name, 5.5), 5.5);
    EXPECT_EQ(storage->GetEntry(name, "d"), "d");
    EXPECT_EQ(storage->GetEntry(name, static_cast<const char*>(nullptr)), "");
    EXPECT_EQ(storage->GetEntryFast(name, std::int32_t{5}), 5);
    EXPECT_EQ(storage->GetEntryFast(name, "d"), "d");
    EXPECT_EQ(storage->SetEntry(name, std::int32_t{5}), 0);
    EXPECT_EQ(storage->SetEntry(name, 5.5), 0);
    EXPECT_EQ(storage->SetEntry(name, "s"), 0);
    EXPECT_EQ(storage->SetEntryFast(name, std::int64_t{5}), 0);
    EXPECT_EQ(storage->SetEntryFast(name, "s"), 0);
    EXPECT_EQ(storage->SetEntryEraseOld(name, "s", 1), 0);
    EXPECT_EQ(storage->SetEntryEraseOld(name, "s", 0), 1);
    Bytes byte(1);
    const bool isFolder = name != nullptr && Raw(name).kind == 1;
    EXPECT_EQ(storage->GetEntryErasedOld(name, byte.data(), 1), isFolder ? 1 : 0);
  }
  EXPECT_EQ(storage->SetEntryEraseOld("new", nullptr, 3), 0);
  EXPECT_EQ(storage->GetEntryErasedOld("folder", nullptr, 3), 0);
  EXPECT_EQ(File(), before);
}

TEST_F(StorageEntries, TakeReservedSlotsOnlyInTheFastFamily) {
  for (const bool older : {false, true}) {
    const int reserved = older ? 2 : 6;
    const Storage storage = OpenBytes(
        FileBuilder(older ? FileBuilder::Form::kOlder : FileBuilder::Form::kCurrent).bytes);
    for (int i = 0; i < reserved; ++i) {
      ASSERT_EQ(storage->SetEntryFast(std::to_string(i).c_str(), std::int32_t{i}), 1);
    }
    const Bytes before = File();
    EXPECT_EQ(storage->SetEntryFast("more", std::int32_t{7}), 0) << reserved;
    EXPECT_EQ(LastError(), Error::kNoRoom);
    EXPECT_EQ(File(), before);
    EXPECT_EQ(storage->SetEntry("more", std::int32_t{7}), 1);
    EXPECT_EQ(storage->SetEntryFast("more", std::int32_t{8}), 0) << "the map holds it";
    EXPECT_EQ(storage->GetEntry("more", std::int32_t{0}), 7);

    const RawStream vacated = Raw("1");
    Stream gone(storage->OpenStreamFast("1", kWriteFlags));
    ASSERT_TRUE(Remove(gone));
    EXPECT_EQ(storage->SetEntryFast("taker", std::int64_t{3}), 1);
    EXPECT_EQ(Raw("taker").recordOffset, vacated.recordOffset);
    EXPECT_EQ(Raw("taker").firstBlock, vacated.firstBlock);
    ASSERT_TRUE(storage->RemoveStream("taker"));
    EXPECT_EQ(storage->GetEntry("taker", std::int64_t{0}), 0);
    EXPECT_EQ(storage->GetEntryFast("taker", std::int64_t{0}), 3) << "still in its slot";
    EXPECT_EQ("", CheckFile(path));
  }
}

TEST_F(StorageEntries, AfterAFastOpenMayComeTwice) {
  ASSERT_EQ(Create()->SetEntry("e", std::int32_t{1}), 1);
  {
    const Storage fast = OpenFast();
    EXPECT_EQ(fast->SetEntryFast("e", std::int32_t{2}), 1);
    EXPECT_EQ(fast->GetEntryFast("e", std::int32_t{0}), 2);
    EXPECT_EQ(fast->GetEntry("e", std::int32_t{0}), 2) << "the one that this object made";
  }
  EXPECT_EQ(Open()->GetEntry("e", std::int32_t{0}), 1) << "the later slot wins";
  EXPECT_EQ(Open()->GetEntryFast("e", std::int32_t{0}), 2);
  {
    const Storage fast = OpenFast();
    EXPECT_EQ(fast->SetEntry("e", std::int32_t{3}), 1);
  }
  EXPECT_EQ(Open()->GetEntry("e", std::int32_t{0}), 3) << "in the first free ordinary slot";
  EXPECT_EQ(Image().streams.size(), 3U);
}

TEST_F(StorageEntries, CostTwoAndThreeCalls) {
  FileBuilder builder;
  for (int i = 0; i < 20; ++i) builder.AddDirectory();
  const Storage storage = OpenBytes(builder.bytes);
  for (int i = 0; i < 200; ++i)
    ASSERT_EQ(storage->SetEntry(std::to_string(i).c_str(), std::int64_t{i}), 1);
  ASSERT_EQ(storage->SetEntryFast("fast", std::int64_t{4}), 1);
  {
    Watch watch;
    ASSERT_EQ(storage->GetEntry("150", std::int64_t{0}), 150);
    EXPECT_EQ(watch.Total(), 2U) << watch.Text();
    ASSERT_EQ(storage->SetEntry("150", std::int64_t{151}), 1);
    EXPECT_LE(watch.Total(), 5U) << watch.Text();
    ASSERT_EQ(storage->SetEntryFast("fast", std::int64_t{5}), 1);
    EXPECT_LE(watch.Total(), 8U) << watch.Text();
  }
  Watch watch;
  EXPECT_EQ(OpenFast()->GetEntryFast("fast", std::int64_t{0}), 5);
  EXPECT_EQ(watch.Count(Call::kRead), 3U)
      << "header, reserved slots, block: however long the directory";
}

}  // namespace
}  // namespace aostorage::testing
