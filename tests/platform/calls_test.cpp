// System calls of the hot roads, and what the platform layer makes of interrupted and short ones.
#include <cerrno>

#include <gtest/gtest.h>

#include "support/handles.h"
#include "support/life.h"
#include "support/raw_file.h"
#include "support/syscalls.h"
#include "support/temp_dir.h"

namespace aostorage::testing {
namespace {

class SystemCalls : public ::testing::Test {
 protected:
  void Start(const FileBuilder& builder, std::uint32_t reserve = 0) {
    WriteFile(path, builder.bytes);
    storage.reset(aoStorage::Open(path.c_str(), kStreamWrite, reserve));
  }
  Stream Open(const char* name) { return Stream(storage->OpenStream(name, kWriteFlags)); }
  template <class Operation>
  static std::string Calls(Operation operation) {
    Watch watch;
    operation();
    return watch.Text();
  }
  static void Write(const Stream& stream, std::size_t count) {
    EXPECT_EQ(stream->Write(Pattern(count).data(), static_cast<std::uint32_t>(count)), count);
  }

  TempDir dir;
  const std::string path = dir.File("store");
  Storage storage;
};

TEST_F(SystemCalls, Opening) {
  FileBuilder builder;
  builder.AddDirectory();
  builder.AddDirectory();
  builder.AddStream(0, "fast", Pattern(10));
  builder.AddStream(6, "a", Pattern(10));
  Start(builder);
  const auto open = [&] { storage.reset(aoStorage::Open(path.c_str(), kStreamWrite, 0)); };
  EXPECT_EQ(Calls(open), "1 open, 1 state, 3 read");
  const auto openFast = [&] { Storage(aoStorage::OpenFast(path.c_str(), kStreamWrite, 0)); };
  EXPECT_EQ(Calls(openFast), "1 open, 1 state, 1 read");
  EXPECT_EQ(Calls([&] { EXPECT_TRUE(Open("a")); }), "1 read");
  EXPECT_EQ(Calls([&] { EXPECT_FALSE(Open("none")); }), "no call");
  EXPECT_EQ(Calls([&] { EXPECT_TRUE(Stream(storage->OpenStreamFast("fast", kReadFlags))); }),
            "1 read");
}

TEST_F(SystemCalls, Reading) {
  FileBuilder builder;
  builder.AddStream(6, "a", Pattern(5000), {4000});
  Start(builder);
  const Stream stream = Open("a");
  Bytes data(5000);
  EXPECT_EQ(Calls([&] { stream->Read(data.data(), 100); }), "1 read") << "header and data at once";
  EXPECT_EQ(Calls([&] { stream->Read(data.data(), 100); }), "1 read") << "loaded";
  EXPECT_EQ(Calls([&] { stream->Read(data.data(), 5000); }), "2 read") << "one for each block";
  EXPECT_EQ(Calls([&] { EXPECT_EQ(stream->Read(data.data(), 5000), 0U); }), "no call");
}

TEST_F(SystemCalls, Writing) {
  Start(FileBuilder(), 100);
  const Stream stream(storage->CreateStream("a", kWriteFlags));
  EXPECT_EQ(Calls([&] { Write(stream, 10); }), "1 state, 2 write") << "first block";
  EXPECT_EQ(Calls([&] { Write(stream, 10); }), "3 write") << "in the reserve";
  stream->Seek(5, 0);
  EXPECT_EQ(Calls([&] { Write(stream, 10); }), "1 write") << "overwrite";
  stream->Seek(20, 0);
  EXPECT_EQ(Calls([&] { Write(stream, 100); }), "1 state, 3 write") << "tail past its capacity";
  const Stream other(storage->CreateStream("b", kWriteFlags));
  Write(other, 10);
  EXPECT_EQ(Calls([&] { Write(stream, 50); }), "1 state, 3 write")
      << "over the end of a full block";
  Write(other, 200);
  Write(stream, 20);
  storage.reset();
}

TEST_F(SystemCalls, WritingOverTheEndOfABlock) {
  FileBuilder builder;
  const std::uint32_t first = builder.AddChain(Pattern(10), {30});
  builder.PutSlot(6, StreamRecord("a", false, 10, first, first));
  Start(builder);
  const Stream stream = Open("a");
  stream->Seek(10, 0);
  EXPECT_EQ(Calls([&] { Write(stream, 50); }), "1 state, 4 write");
  EXPECT_EQ("", CheckFile(path));
}

TEST_F(SystemCalls, CreatingAndRemovingCostTheSameInAnyDirectory) {
  Start(FileBuilder());
  std::string createdEarly, removedEarly;
  for (int i = 0; i < 1000; ++i) {
    Stream stream;
    const std::string name = std::to_string(i);
    const std::string create =
        Calls([&] { stream.reset(storage->CreateStream(name.c_str(), kWriteFlags)); });
    if (i != 10 && i != 999) continue;
    const std::string remove = Calls([&] { EXPECT_TRUE(Remove(stream)); });
    // The place is free again and found as fast.
    EXPECT_EQ(Calls([&] { Stream(storage->CreateStream(name.c_str(), kWriteFlags)); }), create);
    if (i == 10) {
      createdEarly = create;
      removedEarly = remove;
    }
    EXPECT_EQ(create, createdEarly);
    EXPECT_EQ(remove, removedEarly);
    EXPECT_EQ(remove, "1 write");
    EXPECT_EQ(create, "1 read, 1 write");
  }
}

// A whole life of a file through a system that interrupts and shortens every transfer.
TEST_F(SystemCalls, InterruptedAndShortTransfersAreFinished) {
  const std::pair<std::size_t, std::size_t> rows[] = {
      {0, SIZE_MAX}, {50, SIZE_MAX}, {0, 1}, {0, 7}, {3, 100}};
  Bytes expectedFile;
  for (const auto& [interruptions, limit] : rows) {
    WriteFile(path, LifeStart());
    Values values;
    {
      Watch watch;
      watch.Interrupt(interruptions);
      watch.LimitTransfers(limit);
      storage.reset(aoStorage::Open(path.c_str(), kStreamWrite, kLifeReserve));
      for (const Step& step : ScriptedLife()) {
        ASSERT_TRUE(step.perform(*storage, false)) << step.label;
        step.expect(values);
      }
      EXPECT_EQ("", CheckBetween(path, values, values));
    }
    if (expectedFile.empty()) expectedFile = ReadFile(path);
    EXPECT_EQ(ReadFile(path), expectedFile) << interruptions << ", " << limit;
  }
}

TEST_F(SystemCalls, ASystemThatNeverMovesAByteEndsInFailure) {
  FileBuilder builder;
  builder.AddStream(6, "a", Pattern(10));
  Start(builder);
  const Stream stream = Open("a");
  Bytes data(10);
  for (const bool interrupted : {true, false}) {
    Watch watch;
    if (interrupted) {
      watch.Interrupt(SIZE_MAX);
    } else {
      watch.LimitTransfers(0);
    }
    EXPECT_EQ(stream->Read(data.data(), 10), kFailed);
    EXPECT_EQ(stream->Write("x", 1), kFailed);
    EXPECT_NE(LastError(), Error::kNone);
    EXPECT_EQ(Stream(storage->OpenStream("a", kReadFlags)), nullptr);
    EXPECT_EQ(Storage(aoStorage::Open(path.c_str(), kStreamRead, 0)), nullptr);
  }
  EXPECT_EQ(ReadFile(path), builder.bytes);
}

}  // namespace
}  // namespace aostorage::testing
