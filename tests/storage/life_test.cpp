// How storages come into being, open and are refused; the older header form; damaged directories.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "folder/storage_fixture.h"
#include "support/check_file.h"

namespace aostorage::testing {
namespace {

namespace fs = std::filesystem;
using Opener = aoStorage* (*)(const char*, std::uint32_t, std::uint32_t);
constexpr Opener kOpeners[] = {&aoStorage::Open, &aoStorage::OpenFast, &aoStorage::OpenOrCreate};

std::size_t OpenDescriptors() {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
}

using StorageLife = OneStorageTest;

TEST_F(StorageLife, WhatIsNoStorageIsRefusedAndUntouched) {
  const Bytes good = FileBuilder().bytes;
  Bytes firstByte = good, lastByte = good, version2 = good, version0 = good;
  firstByte[0] ^= 1;
  lastByte[23] ^= 1;
  version2[24] = '2';
  version0[24] = 0;
  const Bytes rows[] = {
      Slice(good, 0, 1), Slice(good, 0, 31),
      firstByte,         lastByte,
      version2,          version0,
      Bytes(10000),      Slice(FileBuilder(FileBuilder::Form::kOlder).bytes, 0, 26)};
  const std::size_t descriptors = OpenDescriptors();
  for (const Bytes& row : rows) {
    WriteFile(path, row);
    for (const Opener open : kOpeners) {
      ClearLastError();
      EXPECT_FALSE(Storage(open(path.c_str(), kStreamWrite, 0)));
      EXPECT_EQ(LastError().code, ErrorCode::kNotAStorage);
      EXPECT_EQ(File(), row);
    }
  }
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(StorageLife, OnlyCreateAndOpenOrCreateMakeAFile) {
  for (const Opener open : {kOpeners[0], kOpeners[1]}) {
    EXPECT_FALSE(Storage(open(path.c_str(), kStreamWrite, 0)));
    EXPECT_EQ(LastError().code, ErrorCode::kNotFound);
    EXPECT_FALSE(fs::exists(path));
  }
  EXPECT_TRUE(Storage(aoStorage::OpenOrCreate(path.c_str(), kStreamWrite, 0)));
  EXPECT_EQ(File(), FileBuilder().bytes);
  // A file of 0 bytes has nothing to lose, but only this one operation is asked to make a storage
  // of it.
  WriteFile(path, {});
  EXPECT_FALSE(Open());
  EXPECT_EQ(fs::file_size(path), 0U);
  EXPECT_TRUE(Storage(aoStorage::OpenOrCreate(path.c_str(), kStreamWrite, 0)));
  EXPECT_EQ(File(), FileBuilder().bytes);
  WriteFile(path, Pattern(9000));  // what stands there already has to be gone
  storage = Create(100);
  EXPECT_EQ(File(), FileBuilder().bytes);
  EXPECT_TRUE(Got(storage->CreateStream("a", 0))) << "open for writing whatever the flags say";
  for (const char* none : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_FALSE(Storage(aoStorage::Create(none, 0, 0)));
    for (const Opener open : kOpeners) EXPECT_FALSE(Storage(open(none, kStreamWrite, 0)));
  }
}

TEST_F(StorageLife, WithoutWriteAccessTheFileStaysAsItIs) {
  FileBuilder builder;
  builder.AddStream(6, "a", Pattern(10));
  WriteFile(path, builder.bytes);
  storage.reset(aoStorage::Open(path.c_str(), kStreamRead, 0));
  const Stream stream = Root("a");
  EXPECT_EQ(stream->Write("x", 1), kFailed);
  EXPECT_EQ(LastError().code, ErrorCode::kNotWritable);
  EXPECT_FALSE(stream->Erase());
  EXPECT_FALSE(stream->Remove());
  EXPECT_FALSE(MakeRoot("b"));
  EXPECT_EQ(File(), builder.bytes);
}

TEST_F(StorageLife, DescriptorsAreClosedOnExecAndNeverAStandardStream) {
  const int saved = dup(STDIN_FILENO);
  ASSERT_EQ(close(STDIN_FILENO), 0);
  const std::size_t descriptors = OpenDescriptors();
  {
    const Storage moved(aoStorage::Create(path.c_str(), 0, 0));
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
    dup2(saved, STDIN_FILENO);
    const Storage opened = Open();
    EXPECT_TRUE(moved && opened);
    int found = 0;
    for (int descriptor = 0; descriptor < 100; ++descriptor) {
      std::error_code none;
      if (fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor), none) != path) continue;
      ++found;
      EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
    }
    EXPECT_EQ(found, 2);
  }
  EXPECT_EQ(OpenDescriptors(), descriptors + 1) << "standard input is back, all else is closed";
  close(saved);
}

TEST_F(StorageLife, TheOlderFormIsReadInFullAndGrowsByOrdinaryBlocks) {
  FileBuilder builder(FileBuilder::Form::kOlder);
  builder.AddStream(0, "fast", Pattern(50));
  builder.AddStream(3, "old", Pattern(70));
  Load(builder);
  EXPECT_TRUE(Got(storage->OpenStreamFast("fast", kReadFlags)));
  EXPECT_FALSE(Got(storage->OpenStreamFast("old", kReadFlags)));
  EXPECT_EQ(ReadValue(*Root("old")), Pattern(70));
  EXPECT_TRUE(Got(storage->CreateStreamFast("fast2", kWriteFlags)));
  EXPECT_FALSE(Got(storage->CreateStreamFast("fast3", kWriteFlags)));
  for (int i = 0; i < 62; ++i) ASSERT_TRUE(MakeRoot(std::to_string(i)));
  EXPECT_EQ("", CheckFile(path));
  EXPECT_EQ(Slice(File(), 0, 30), Slice(builder.bytes, 0, 30));
  EXPECT_EQ(Raw("fast2").recordOffset, 118U);
  EXPECT_EQ(Raw("0").recordOffset, 198U);
  // 61 fit beside "old"; the next makes the directory grow.
  const auto appended = static_cast<std::uint32_t>(builder.bytes.size());
  EXPECT_EQ(Raw("60").recordOffset, 38U + 63 * kSlotSize);
  EXPECT_EQ(Raw("61").recordOffset, appended + 12);
  EXPECT_EQ(Get32(File(), appended + 4), 64U);
}

// Damage to the second directory block or the link to it: what lies before it is there.
TEST_F(StorageLife, ADirectoryThatBreaksOffGivesWhatLiesBeforeIt) {
  struct Row {
    std::size_t offset;  // 0: the last byte is missing
    std::uint32_t value;
    const char* last;  // where a walk from slot to slot ends
  };
  const Row rows[] = {{kEmptyFileSize, 0xFBFBFBFA, "s63"},
                      {40, 0x7FFFFFFF, "s63"},
                      {40, 0x80000000, "s63"},
                      {40, 0xFFFFFFFF, "s63"},
                      {40, 32, "s63"},
                      {kEmptyFileSize + 8, 32, "s127"},
                      {kEmptyFileSize + 8, kEmptyFileSize, "s127"},
                      {0, 0, "s126"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(&row - rows);
    FileBuilder builder;
    builder.AddDirectory();
    for (std::uint32_t slot = 6; slot < 128; ++slot) {
      builder.PutSlot(slot % 64, StreamRecord("s" + std::to_string(slot), false, 0, 0), slot / 64);
    }
    if (row.offset == 0) builder.bytes.pop_back();
    if (row.offset != 0) Put32(builder.bytes, row.offset, row.value);
    Load(builder);
    ASSERT_TRUE(storage);
    const Stream walking = Root("s6");
    for (int steps = 0; walking->GoNext(); ++steps) ASSERT_LT(steps, 200);
    EXPECT_STREQ(walking->GetName(), row.last);
    {
      const Watch watch;
      int position = 0;
      EXPECT_FALSE(Got(storage->OpenStreamFirst2(position, kReadFlags)));
      EXPECT_LT(watch.Total(), 10U) << "not until memory ends";
    }
    EXPECT_FALSE(MakeRoot("new")) << "no free slot is in reach";
    EXPECT_EQ(File(), builder.bytes);
  }
}

// Counts that this library never writes. slotsPerDirectory goes into blocks appended later, when it
// is a number that a block can have.
TEST_F(StorageLife, SlotCountsOutOfRange) {
  struct Row {
    std::uint32_t slotCount, reservedSlots;
    unsigned fastRoom;        // how many Fast creations succeed
    std::uint32_t firstSlot;  // where the first ordinary stream goes; 64: into a new block
    std::uint16_t slotsPerDirectory = 64;
    std::uint32_t appendedSlots = 64;
  };
  const Row rows[] = {
      {64, 0, 0, 0},           {64, 5, 5, 5},           {64, 7, 6, 7},
      {64, 63, 6, 63},         {64, 64, 6, 64, 0, 64},  {64, 64, 6, 64, 1, 1},
      {64, 64, 6, 64, 63, 63}, {64, 64, 6, 64, 65, 64}, {64, 65535, 6, 64, 65535, 64},
      {0, 6, 0, 64},           {3, 6, 3, 64},           {7, 6, 6, 6},
      {65, 6, 6, 6},           {0xFFFFFFFF, 6, 6, 6}};
  for (const Row& row : rows) {
    SCOPED_TRACE(&row - rows);
    FileBuilder builder(FileBuilder::Form::kCurrent, static_cast<std::uint16_t>(row.reservedSlots));
    Put32(builder.bytes, 36, row.slotCount);
    Put16(builder.bytes, 26, row.slotsPerDirectory);
    Load(builder);
    ASSERT_TRUE(storage && MakeRoot("ordinary") && MakeRoot("second"));
    std::string fast = "f";  // a longer name each time
    while (Got(storage->CreateStreamFast((fast + "f").c_str(), kWriteFlags))) fast += "f";
    EXPECT_EQ(fast.size() - 1, row.fastRoom);
    EXPECT_EQ(Got(storage->OpenStreamFast(fast.c_str(), kReadFlags)), row.fastRoom > 0);
    const Bytes file = File();
    const std::uint32_t place =
        row.firstSlot == 64 ? kEmptyFileSize + 12 : SlotOffset(row.firstSlot);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(file.data()) + place + 4), "ordinary");
    if (row.firstSlot == 64) {
      EXPECT_EQ(Get32(file, kEmptyFileSize + 4), row.appendedSlots);
    }
    Reopen();
    EXPECT_TRUE(Root("ordinary") && Root("second"));
  }
}

}  // namespace
}  // namespace aostorage::testing
