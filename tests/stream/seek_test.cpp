// Positions, length and the step to the next slot.
#include <cerrno>

#include "folder/storage_fixture.h"

namespace aostorage::testing {
namespace {

class Seeking : public OneStorageTest {
 protected:
  // One stream of 100 bytes in one block, one of 300 in four, one without a block.
  void SetUp() override {
    FileBuilder builder;
    builder.AddStream(6, "one", Pattern(100));
    builder.AddStream(7, "four", Pattern(300), {100, 1, 50, 149});
    builder.PutSlot(8, StreamRecord("none", false, 0, 0));
    Load(builder);
  }
};

// The byte that the cursor stands before, -1 at the end of the chain, -2 when reading fails.
int Next(const Stream& stream) {
  std::uint8_t byte = 0;
  const std::uint32_t got = stream->Read(&byte, 1);
  return got == 1 ? byte : got == 0 ? -1 : -2;
}

// What lies inside, the random histories try.
TEST_F(Seeking, AtTheBorders) {
  struct Row {
    const char* name;
    std::uint32_t start, distance;
    std::uint8_t origin;
    bool forward;
    std::int64_t position;  // -1: the seek fails
  };
  const Row rows[] = {
      {"one", 50, 101, 0, true, -1},       {"one", 50, 101, 1, true, -1},
      {"one", 0, 0xFFFFFFFF, 0, true, -1}, {"one", 0, 0xFFFFFFFF, 1, true, -1},
      {"one", 50, 51, 2, true, -1},        {"one", 50, 51, 2, false, -1},
      {"four", 0, 100, 0, true, 100},      {"four", 0, 101, 0, true, 101},
      {"four", 0, 300, 0, true, 300},      {"four", 100, 1, 2, true, 101},
      {"four", 101, 1, 2, false, 100},     {"four", 300, 149, 2, false, 151},
      {"four", 300, 150, 2, false, 150},   {"four", 7, 300, 1, false, 0},
      {"none", 0, 0, 0, true, -1},         {"none", 0, 0, 1, true, 0},
      {"none", 0, 1, 1, true, -1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(&row - rows);
    const Stream stream = Root(row.name);
    if (row.start != 0) {
      ASSERT_EQ(stream->Seek(row.start, 0), 0U);
    }
    EXPECT_EQ(stream->Seek(row.distance, row.origin, row.forward), row.position < 0 ? kFailed : 0U);
    if (row.position < 0) continue;
    EXPECT_EQ(stream->GetCurDataPos(), row.position);
    const Bytes rest = Slice(Raw(row.name).chain, static_cast<std::size_t>(row.position), 1);
    EXPECT_EQ(Next(stream), rest.empty() ? -1 : rest[0]);
  }
}

TEST_F(Seeking, Seek2Table) {
  struct Row {
    std::int32_t offset;
    std::uint32_t origin;
    std::int64_t position;
  };
  const Row rows[] = {{120, 0, 120}, {0, 0, 0},          {-10, 0, 290},     {-300, 0, 0},
                      {-301, 0, -1}, {301, 0, -1},       {30, 1, 180},      {0, 1, 150},
                      {-60, 1, 90},  {-151, 1, -1},      {151, 1, -1},      {99, 2, 0},
                      {-99, 7, 0},   {INT32_MIN, 0, -1}, {INT32_MIN, 1, -1}};
  for (const Row& row : rows) {
    SCOPED_TRACE(std::to_string(row.offset) + " origin " + std::to_string(row.origin));
    const Stream stream = Root("four");
    ASSERT_EQ(stream->Seek(150, 0), 0U);
    EXPECT_EQ(stream->Seek2(row.offset, row.origin), row.position < 0 ? -1 : 0);
    if (row.position < 0) continue;
    EXPECT_EQ(stream->GetCurDataPos(), row.position);
    EXPECT_EQ(Next(stream), Pattern(300)[static_cast<std::size_t>(row.position)]);
  }
}

TEST_F(Seeking, AfterAFailureOnlyAnAbsoluteSeekHelps) {
  const Stream stream = Root("four");
  ASSERT_EQ(stream->Seek(120, 0), 0U);
  {
    const Watch watch;
    EXPECT_EQ(stream->Seek(0, 3), kFailed);
    EXPECT_EQ(LastError(), Error::kBadArgument);
    EXPECT_EQ(watch.Total(), 0U);
  }
  EXPECT_EQ(stream->GetCurDataPos(), 120U) << "an unknown origin moves nothing";
  EXPECT_EQ(Next(stream), Pattern(300)[120]);
  ASSERT_EQ(stream->Seek(500, 2), kFailed);
  const Bytes before = File();
  EXPECT_EQ(Next(stream), -2);
  EXPECT_EQ(stream->Write("x", 1), kFailed);
  EXPECT_EQ(File(), before);
  ASSERT_EQ(stream->Seek(10, 1), 0U);
  EXPECT_EQ(Next(stream), Pattern(300)[290]);
  ASSERT_EQ(stream->Seek(0, 0), 0U);
  Bytes data(300);
  {
    Watch watch;
    watch.FailAt(2, Only(Call::kRead), EIO);
    EXPECT_EQ(stream->Read(data.data(), 300), kFailed);
    EXPECT_EQ(LastSystemError(), EIO);
  }
  ASSERT_EQ(stream->Seek(0, 0), 0U);
  EXPECT_EQ(stream->Read(data.data(), 300), 300U);
  EXPECT_EQ(data, Pattern(300));
}

TEST_F(Seeking, AStreamWithoutABlockTakesAWriteAfterAFailedSeek) {
  const Stream stream = Root("none");
  EXPECT_EQ(stream->Seek(0, 0), kFailed);
  EXPECT_TRUE(stream->SetLength(0) && stream->Erase());
  EXPECT_EQ(stream->Write("x", 1), 1U);
  EXPECT_EQ("", CheckFile(path));
}

TEST_F(Seeking, WithoutWriteFlagLengthStays) {
  const Bytes before = File();
  Stream stream = Root("one", kReadFlags);
  stream->Seek(5, 0);
  EXPECT_FALSE(stream->SetLength(1));
  EXPECT_FALSE(stream->Erase());
  EXPECT_FALSE(Remove(stream));
  EXPECT_EQ(LastError(), Error::kRefused);
  EXPECT_EQ(stream->GetLength(), 100U);
  EXPECT_EQ(stream->GetCurDataPos(), 5U);
  EXPECT_EQ(File(), before);
}

// A length above what the chain holds, as a broken-off flushing write leaves it.
TEST_F(Seeking, ALengthAboveTheChain) {
  PatchFile32(path, SlotOffset(6) + 68, 150);
  Reopen();
  const Stream stream = Root("one");
  Bytes data(150);
  EXPECT_EQ(stream->Read(data.data(), 150), 100U);
  stream->Seek(0, 1);  // whatever it gives, the object must not write outside its chain
  stream->Write("x", 1);
  Reopen();
  EXPECT_EQ("", CheckFile(path, Rules::kAfterFault));
}

using GoingNext = OneStorageTest;

TEST_F(GoingNext, MovesFromSlotToSlotAndIntoTheNextBlock) {
  FileBuilder builder;
  builder.AddDirectory();
  builder.AddStream(62, "a", Pattern(10));
  builder.AddStream(63, "b", Pattern(20, 2));
  const std::uint32_t first = builder.AddChain(Pattern(30, 3));
  builder.PutSlot(0, StreamRecord("c", false, 30, first), 1);
  Load(builder);
  const Stream stream = Root("a", kExclusive);
  Bytes data(100);
  stream->Read(data.data(), 5);
  const Stream other = Root("c", kExclusive);
  ASSERT_TRUE(stream->GoNext());
  EXPECT_STREQ(stream->GetName(), "b");
  EXPECT_EQ(stream->GetCurDataPos(), 0U);
  EXPECT_TRUE(Root("a", kReadFlags)) << "closed in the registry";
  EXPECT_FALSE(Root("b", kReadFlags)) << "open with the flags of the object";
  ASSERT_TRUE(stream->GoNext()) << "no sharing rule applies here";
  EXPECT_STREQ(stream->GetName(), "c");
  EXPECT_EQ(stream->Read(data.data(), 100), 30U);
  EXPECT_EQ(Slice(data, 0, 30), Pattern(30, 3));
  EXPECT_FALSE(stream->GoNext());
  EXPECT_STREQ(stream->GetName(), "c");
  EXPECT_EQ(stream->GetCurDataPos(), 30U) << "the object stands as before";
  EXPECT_EQ(stream->Write("x", 1), 1U);
  EXPECT_EQ(Raw("c").length, 31U) << "at the new header";
}

TEST_F(GoingNext, DamageEndsTheWalk) {
  const std::uint32_t second = kEmptyFileSize;
  const std::pair<std::size_t, std::uint32_t> rows[] = {
      {second, 0}, {second + 12, 0}, {40, 0}, {40, 0x7FFFFFFF}, {40, 0xFFFFFFFF}, {40, second + 1}};
  for (const auto& [offset, value] : rows) {
    FileBuilder builder;
    builder.AddDirectory();
    builder.PutSlot(63, StreamRecord("a", false, 0, 0));
    builder.PutSlot(0, StreamRecord("b", false, 0, 0), 1);
    Put32(builder.bytes, offset, value);
    Load(builder);
    const Stream stream = Root("a", kReadFlags);
    EXPECT_FALSE(stream->GoNext()) << offset << " is " << value;
    EXPECT_STREQ(stream->GetName(), "a");
  }
}

}  // namespace
}  // namespace aostorage::testing
