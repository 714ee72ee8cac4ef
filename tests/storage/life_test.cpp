// How storages come into being, open and are refused; the older header form; damaged directories.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include <gtest/gtest.h>

#include "support/handles.h"
#include "support/raw_file.h"
#include "support/syscalls.h"
#include "support/temp_dir.h"

namespace aostorage::testing {
namespace {

namespace fs = std::filesystem;
using Opener = aoStorage* (*)(const char*, std::uint32_t, std::uint32_t);
constexpr Opener kOpeners[] = {&aoStorage::Open, &aoStorage::OpenFast, &aoStorage::OpenOrCreate};

std::size_t OpenDescriptors() {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
}

class StorageLife : public ::testing::Test {
 protected:
  Storage Open(std::uint32_t flags = kStreamWrite) {
    return Storage(aoStorage::Open(path.c_str(), flags, 0));
  }
  TempDir dir;
  const std::string path = dir.File("store");
};

TEST_F(StorageLife, ANewFileIsItsHeaderAndOneEmptyDirectoryBlock) {
  // Something stands there already: it has to be gone.
  WriteFile(path, Pattern(9000));
  const Storage storage(aoStorage::Create(path.c_str(), 0, 100));
  ASSERT_TRUE(storage);
  const Bytes file = ReadFile(path);
  ASSERT_EQ(file.size(), kEmptyFileSize);
  const Bytes head{'@', '_', 'Q',  'X',  '_',  'S',  't', 'r', 'u', 'c', 't', 'u', 'r', 'e', 'd',
                   '_', 'S', 't',  'o',  'r',  'a',  'g', 'e', '@', '1', 0,   64,  0,   6,   0,
                   0,   0,   0xFB, 0xFB, 0xFB, 0xFB, 64,  0,   0,   0,   0,   0,   0,   0};
  EXPECT_EQ(Slice(file, 0, head.size()), head);
  Bytes emptySlot(kSlotSize);
  Put32(emptySlot, 0, 0xFCFCFCFC);
  for (std::uint32_t slot = 0; slot < 64; ++slot) {
    ASSERT_EQ(Slice(file, SlotOffset(slot), kSlotSize), emptySlot) << slot;
  }
  EXPECT_EQ(SlotOffset(6), 524U);
  EXPECT_TRUE(Stream(storage->CreateStream("a", 0))) << "open for writing whatever the flags say";
}

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
      EXPECT_EQ(LastError(), Error::kNotAStorage);
      EXPECT_EQ(ReadFile(path), row);
    }
  }
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(StorageLife, OnlyOpenOrCreateMakesAFile) {
  for (const Opener open : {kOpeners[0], kOpeners[1]}) {
    EXPECT_FALSE(Storage(open(path.c_str(), kStreamWrite, 0)));
    EXPECT_EQ(LastError(), Error::kNotFound);
    EXPECT_FALSE(fs::exists(path));
  }
  EXPECT_TRUE(Storage(aoStorage::OpenOrCreate(path.c_str(), kStreamWrite, 0)));
  EXPECT_EQ(ReadFile(path), FileBuilder().bytes);
  // A file of 0 bytes has nothing to lose, but only this one operation is asked to make a storage
  // of it.
  WriteFile(path, {});
  EXPECT_FALSE(Open());
  EXPECT_EQ(fs::file_size(path), 0U);
  const Storage storage(aoStorage::OpenOrCreate(path.c_str(), kStreamWrite, 0));
  ASSERT_TRUE(storage);
  EXPECT_EQ(ReadFile(path), FileBuilder().bytes);
  EXPECT_FALSE(
      Storage(aoStorage::OpenOrCreate(dir.File("no/such/folder").c_str(), kStreamWrite, 0)));
}

TEST_F(StorageLife, PathsThatAreNoRegularFileGiveNullWithoutWaiting) {
  const std::string pipe = dir.File("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const std::size_t descriptors = OpenDescriptors();
  for (const std::string& odd : {dir.Path(), pipe, std::string("/dev/null"), std::string()}) {
    EXPECT_FALSE(Storage(aoStorage::Create(odd.c_str(), 0, 0))) << odd;
    for (const Opener open : kOpeners) EXPECT_FALSE(Storage(open(odd.c_str(), 0, 0))) << odd;
  }
  EXPECT_FALSE(Storage(aoStorage::Create(nullptr, 0, 0)));
  for (const Opener open : kOpeners) EXPECT_FALSE(Storage(open(nullptr, 0, 0)));
  EXPECT_TRUE(fs::is_fifo(pipe));
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(StorageLife, LongPathsAreKeptWhole) {
  std::string deep = dir.Path();
  for (int i = 0; i < 6; ++i) deep += "/" + std::string(100, static_cast<char>('a' + i));
  fs::create_directories(deep);
  deep += "/store";
  const Storage storage(aoStorage::Create(deep.c_str(), 0, 0));
  ASSERT_TRUE(storage);
  EXPECT_EQ(storage->GetPath(), deep);
  EXPECT_TRUE(fs::exists(deep));
}

TEST_F(StorageLife, WithoutWriteAccessTheFileStaysAsItIs) {
  FileBuilder builder;
  builder.AddStream(6, "a", Pattern(10));
  WriteFile(path, builder.bytes);
  const Storage storage = Open(kStreamRead);
  const Stream stream(storage->OpenStream("a", kWriteFlags));
  EXPECT_EQ(stream->Write("x", 1), kFailed);
  EXPECT_EQ(LastError(), Error::kAccessDenied);
  EXPECT_FALSE(stream->Erase());
  EXPECT_FALSE(stream->Remove());
  EXPECT_FALSE(Stream(storage->CreateStream("b", kWriteFlags)));
  EXPECT_EQ(ReadFile(path), builder.bytes);
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
  WriteFile(path, builder.bytes);
  {
    const Storage storage = Open();
    ASSERT_TRUE(storage);
    EXPECT_TRUE(Stream(storage->OpenStreamFast("fast", kReadFlags)));
    EXPECT_FALSE(Stream(storage->OpenStreamFast("old", kReadFlags)));
    const Stream old(storage->OpenStream("old", kReadFlags));
    Bytes data(70);
    EXPECT_EQ(old->Read(data.data(), 70), 70U);
    EXPECT_EQ(data, Pattern(70));
    EXPECT_TRUE(Stream(storage->CreateStreamFast("fast2", kWriteFlags)));
    EXPECT_FALSE(Stream(storage->CreateStreamFast("fast3", kWriteFlags)));
    for (int i = 0; i < 62; ++i) {
      ASSERT_TRUE(Stream(storage->CreateStream(std::to_string(i).c_str(), kWriteFlags)));
    }
  }
  const Bytes file = ReadFile(path);
  const RawImage image = ReadImage(file);
  EXPECT_EQ("", CheckFile(path));
  EXPECT_EQ(Slice(file, 0, 30), Slice(builder.bytes, 0, 30));
  EXPECT_EQ(image.Find("fast2")->recordOffset, 118U);
  EXPECT_EQ(image.Find("0")->recordOffset, 198U);
  // 61 fit beside "old"; the next makes the directory grow.
  const auto appended = static_cast<std::uint32_t>(builder.bytes.size());
  EXPECT_EQ(image.Find("60")->recordOffset, 38U + 63 * kSlotSize);
  EXPECT_EQ(image.Find("61")->recordOffset, appended + 12);
  EXPECT_EQ(image.directories, (std::vector<std::uint32_t>{26, appended}));
  EXPECT_EQ(Get32(file, appended + 4), 64U);
}

TEST_F(StorageLife, OfTwoSlotsWithOneNameTheLaterWins) {
  FileBuilder builder;
  builder.AddDirectory();
  builder.AddStream(2, "twin", Pattern(1));
  builder.AddStream(9, "twin", Pattern(2));
  const std::uint32_t first = builder.AddChain(Pattern(3));
  builder.PutSlot(0, StreamRecord("twin", false, 3, first), 1);
  WriteFile(path, builder.bytes);
  const Storage storage = Open();
  EXPECT_EQ(Stream(storage->OpenStream("twin", kReadFlags))->GetLength(), 3U);
  EXPECT_EQ(Stream(storage->OpenStreamFast("twin", kReadFlags))->GetLength(), 1U);
}

// Rows of damage to the second directory block or the link to it: the names before it are there.
TEST_F(StorageLife, ADirectoryThatBreaksOffGivesTheNamesBeforeIt) {
  struct Row {
    const char* label;
    void (*damage)(FileBuilder&, std::uint32_t secondBlock);
  };
  const Row rows[] = {
      {"magic word",
       [](FileBuilder& b, std::uint32_t second) { Put32(b.bytes, second, 0xFBFBFBFA); }},
      {"cut short", [](FileBuilder& b, std::uint32_t) { b.bytes.pop_back(); }},
      {"behind the end", [](FileBuilder& b, std::uint32_t) { Put32(b.bytes, 40, 0x7FFFFFFF); }},
      {"out of reach", [](FileBuilder& b, std::uint32_t) { Put32(b.bytes, 40, 0x80000000); }},
      {"last offset", [](FileBuilder& b, std::uint32_t) { Put32(b.bytes, 40, 0xFFFFFFFF); }},
      {"a circle of one", [](FileBuilder& b, std::uint32_t) { Put32(b.bytes, 40, 32); }},
      {"a circle of two",
       [](FileBuilder& b, std::uint32_t second) { Put32(b.bytes, second + 8, 32); }},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    FileBuilder builder;
    for (std::uint32_t slot = 6; slot < 64; ++slot)
      builder.AddStream(slot, "s" + std::to_string(slot), Pattern(3));
    const std::uint32_t second = builder.AddDirectory();
    for (std::uint32_t slot = 0; slot < 64; ++slot) {
      builder.PutSlot(slot, StreamRecord("t" + std::to_string(slot), false, 0, 0), 1);
    }
    row.damage(builder, second);
    WriteFile(path, builder.bytes);
    const Storage storage = Open();
    ASSERT_TRUE(storage);
    EXPECT_TRUE(Stream(storage->OpenStream("s63", kReadFlags)));
    EXPECT_FALSE(Stream(storage->CreateStream("new", kWriteFlags))) << "no free slot is in reach";
    EXPECT_EQ(ReadFile(path), builder.bytes);
  }
}

// slotCount and reservedSlotCount of a file that states what this library never writes.
TEST_F(StorageLife, SlotCountsOutOfRange) {
  struct Row {
    std::uint32_t slotCount, reservedSlots;
    unsigned fastRoom;        // how many Fast creations succeed
    std::uint32_t firstSlot;  // where the first ordinary stream goes; 64: into a new block
  };
  const Row rows[] = {{64, 0, 0, 0},   {64, 5, 5, 5},      {64, 7, 6, 7},        {64, 63, 6, 63},
                      {64, 64, 6, 64}, {64, 65535, 6, 64}, {0, 6, 0, 64},        {3, 6, 3, 64},
                      {7, 6, 6, 6},    {65, 6, 6, 6},      {0xFFFFFFFF, 6, 6, 6}};
  for (const Row& row : rows) {
    SCOPED_TRACE(std::to_string(row.slotCount) + " slots, " + std::to_string(row.reservedSlots) +
                 " reserved");
    FileBuilder builder(FileBuilder::Form::kCurrent, static_cast<std::uint16_t>(row.reservedSlots));
    Put32(builder.bytes, 36, row.slotCount);
    WriteFile(path, builder.bytes);
    const Storage storage = Open();
    ASSERT_TRUE(storage);
    ASSERT_TRUE(Stream(storage->CreateStream("ordinary", kWriteFlags)));
    unsigned fast = 0;
    while (fast < 20 &&
           Stream(storage->CreateStreamFast(("f" + std::to_string(fast)).c_str(), kWriteFlags)))
      ++fast;
    const Bytes file = ReadFile(path);
    const std::uint32_t place =
        row.firstSlot == 64 ? kEmptyFileSize + 12 : SlotOffset(row.firstSlot);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(file.data()) + place + 4), "ordinary");
    EXPECT_EQ(fast, row.fastRoom);
    if (fast > 0) {
      EXPECT_TRUE(
          Stream(storage->OpenStreamFast(("f" + std::to_string(fast - 1)).c_str(), kReadFlags)));
    }
    EXPECT_TRUE(Stream(Open()->OpenStream("ordinary", kReadFlags)));
  }
}

// slotsPerDirectory goes into blocks appended later, when it is a number that a block can have.
TEST_F(StorageLife, SlotCountOfAnAppendedBlock) {
  const std::pair<std::uint16_t, std::uint32_t> rows[] = {{0, 64},  {1, 1},   {63, 63},
                                                          {64, 64}, {65, 64}, {65535, 64}};
  for (const auto& [slotsPerDirectory, expected] : rows) {
    FileBuilder builder(FileBuilder::Form::kCurrent, 64);
    Put16(builder.bytes, 26, slotsPerDirectory);
    WriteFile(path, builder.bytes);
    const Storage storage = Open();
    EXPECT_TRUE(Stream(storage->CreateStream("a", kWriteFlags)));
    EXPECT_TRUE(Stream(storage->CreateStream("b", kWriteFlags)));
    EXPECT_EQ(Get32(ReadFile(path), kEmptyFileSize + 4), expected) << slotsPerDirectory;
    EXPECT_TRUE(Stream(Open()->OpenStream("b", kReadFlags))) << slotsPerDirectory;
  }
}

TEST_F(StorageLife, OpenFastKnowsOnlyWhatItMakesAndTheReservedSlots) {
  FileBuilder builder;
  builder.AddStream(1, "fast", Pattern(5));
  builder.AddStream(6, "plain", Pattern(6));
  WriteFile(path, builder.bytes);
  {
    const Storage storage(aoStorage::OpenFast(path.c_str(), kStreamWrite, 0));
    ASSERT_TRUE(storage);
    EXPECT_EQ(Stream(storage->OpenStreamFast("fast", kReadFlags))->GetLength(), 5U);
    EXPECT_FALSE(Stream(storage->OpenStream("fast", kReadFlags)));
    EXPECT_FALSE(Stream(storage->OpenStream("plain", kReadFlags)));
    EXPECT_FALSE(storage->RemoveStream("plain"));
    EXPECT_TRUE(Stream(storage->CreateStreamFast("fast2", kWriteFlags)));
    EXPECT_TRUE(Stream(storage->OpenStream("fast2", kReadFlags)))
        << "the creation made a map entry";
    const Stream second(storage->OpenOrCreateStream("plain", 0));
    EXPECT_EQ(second->GetLength(), 0U) << "a second stream of that name";
  }
  EXPECT_EQ(ReadImage(ReadFile(path)).streams.size(), 4U);
  EXPECT_EQ(Stream(Open()->OpenStream("plain", kReadFlags))->GetLength(), 0U)
      << "the later slot wins";
}

}  // namespace
}  // namespace aostorage::testing
