// System calls of the hot roads, and what the platform layer makes of interrupted and short ones.
#include <cerrno>

#include "folder/storage_fixture.h"
#include "support/check_file.h"
#include "support/life.h"

namespace aostorage::testing {
namespace {

class SystemCalls : public OneStorageTest {
 protected:
  template <class Operation>
  static std::string Calls(Operation operation) {
    Watch watch;
    operation();
    return watch.Text();
  }
  static void Write(const Stream& stream, std::size_t count) {
    EXPECT_EQ(stream->Write(Pattern(count).data(), static_cast<std::uint32_t>(count)), count);
  }
};

TEST_F(SystemCalls, Opening) {
  FileBuilder builder;
  builder.AddDirectory();
  builder.AddDirectory();
  builder.AddStream(0, "fast", Pattern(10));
  builder.AddStream(6, "a", Pattern(10));
  Load(builder);
  EXPECT_EQ(Calls([&] { Reopen(); }), "1 open, 1 state, 3 read");
  EXPECT_EQ(Calls([&] { OpenFast(); }), "1 open, 1 state, 1 read");
  EXPECT_EQ(Calls([&] { EXPECT_TRUE(Root("a")); }), "1 read");
  EXPECT_EQ(Calls([&] { EXPECT_FALSE(Root("none")); }), "no call");
  EXPECT_EQ(Calls([&] { EXPECT_TRUE(Stream(storage->OpenStreamFast("fast", kReadFlags))); }),
            "1 read");
}

TEST_F(SystemCalls, Reading) {
  FileBuilder builder;
  builder.AddStream(6, "a", Pattern(5000), {4000});
  Load(builder);
  const Stream stream = Root("a");
  Bytes data(5000);
  EXPECT_EQ(Calls([&] { stream->Read(data.data(), 100); }), "1 read") << "header and data at once";
  EXPECT_EQ(Calls([&] { stream->Read(data.data(), 100); }), "1 read") << "loaded";
  EXPECT_EQ(Calls([&] { stream->Read(data.data(), 5000); }), "2 read") << "one for each block";
  EXPECT_EQ(Calls([&] { EXPECT_EQ(stream->Read(data.data(), 5000), 0U); }), "no call");
}

TEST_F(SystemCalls, Writing) {
  Load(FileBuilder(), 100);
  const Stream stream = MakeRoot("a");
  EXPECT_EQ(Calls([&] { Write(stream, 10); }), "1 state, 2 write") << "first block";
  EXPECT_EQ(Calls([&] { Write(stream, 10); }), "3 write") << "in the reserve";
  stream->Seek(5, 0);
  EXPECT_EQ(Calls([&] { Write(stream, 10); }), "1 write") << "overwrite";
  stream->Seek(20, 0);
  EXPECT_EQ(Calls([&] { Write(stream, 100); }), "1 state, 3 write") << "tail past its capacity";
  const Stream other = MakeRoot("b");
  Write(other, 10);
  EXPECT_EQ(Calls([&] { Write(stream, 50); }), "1 state, 3 write")
      << "over the end of a full block";
}

TEST_F(SystemCalls, WritingOverTheEndOfABlock) {
  FileBuilder builder;
  builder.AddStream(6, "a", Pattern(10), {30});
  Load(builder);
  const Stream stream = Root("a");
  stream->Seek(10, 0);
  EXPECT_EQ(Calls([&] { Write(stream, 50); }), "1 state, 4 write");
  EXPECT_EQ("", CheckFile(path));
}

TEST_F(SystemCalls, CreatingAndRemovingCostTheSameInAnyDirectory) {
  Load(FileBuilder());
  for (int i = 0; i < 1000; ++i) {
    Stream stream;
    const auto create = [&] { stream = MakeRoot(std::to_string(i)); };
    const std::string calls = Calls(create);
    if (i != 10 && i != 999) continue;
    EXPECT_EQ(calls, "1 read, 1 write");
    EXPECT_EQ(Calls([&] { EXPECT_TRUE(Remove(stream)); }), "1 write");
    EXPECT_EQ(Calls(create), calls) << "the place is free again and found as fast";
  }
}

// A whole life of a file through a system that interrupts and shortens every transfer.
TEST_F(SystemCalls, InterruptedAndShortTransfersAreFinished) {
  const std::pair<std::size_t, std::size_t> rows[] = {
      {0, SIZE_MAX}, {50, SIZE_MAX}, {0, 1}, {0, 7}, {3, 100}};
  const Life life = DrawLife(1, 150);
  Bytes expectedFile;
  for (const auto& [interruptions, limit] : rows) {
    WriteFile(path, life.start);
    {
      Watch watch;
      watch.Interrupt(interruptions);
      watch.LimitTransfers(limit);
      Session session(path);
      for (const Step& step : life.steps) ASSERT_TRUE(step.Run(session)) << step.label;
    }
    if (expectedFile.empty()) expectedFile = File();
    EXPECT_EQ(File(), expectedFile) << interruptions << ", " << limit;
  }
}

TEST_F(SystemCalls, ASystemThatNeverMovesAByteEndsInFailure) {
  FileBuilder builder;
  builder.AddStream(6, "a", Pattern(10));
  Load(builder);
  const Stream stream = Root("a");
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
    EXPECT_NE(LastError().code, ErrorCode::kNone);
    EXPECT_EQ(Root("a"), nullptr);
    EXPECT_EQ(Open(), nullptr);
  }
  EXPECT_EQ(File(), builder.bytes);
}

}  // namespace
}  // namespace aostorage::testing
