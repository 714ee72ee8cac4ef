// What seeks leave, who may change a length, and the step to the next slot. Where seeks go, the
// random histories tell.
#include <cerrno>
#include <random>

#include "folder/storage_fixture.h"
#include "support/model.h"

namespace aostorage::testing {
namespace {

class Seeking : public OneStorageTest {
 protected:
  // One stream of 100 bytes in one block, one of 300 in four.
  void SetUp() override {
    FileBuilder builder;
    builder.AddStream(6, "one", Pattern(100));
    builder.AddStream(7, "four", Pattern(300), {100, 1, 50, 149});
    Load(builder);
  }
};

// The byte that the cursor stands before, -1 at the end of the chain, -2 when reading fails.
int Next(const Stream& stream) {
  std::uint8_t byte = 0;
  const std::uint32_t got = stream->Read(&byte, 1);
  return got == 1 ? byte : got == 0 ? -1 : -2;
}

TEST_F(Seeking, AfterAFailureOnlyAnAbsoluteSeekHelps) {
  const Stream stream = Root("four");
  ASSERT_EQ(stream->Seek(120, 0), 0U);
  {
    const Watch watch;
    EXPECT_EQ(stream->Seek(0, 3), kFailed);
    EXPECT_EQ(LastError().code, ErrorCode::kBadArgument);
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
    EXPECT_EQ(LastError().systemError, EIO);
  }
  ASSERT_EQ(stream->Seek(0, 0), 0U);
  EXPECT_EQ(stream->Read(data.data(), 300), 300U);
  EXPECT_EQ(data, Pattern(300));
}

class LongChain : public OneStorageTest {
 protected:
  // Where a seek leads and what lies there.
  static std::string Found(aoStream& stream, std::uint32_t distance, std::uint8_t origin) {
    std::string text = std::to_string(stream.Seek(distance, origin)) + ":";
    text += std::to_string(stream.GetCurDataPos()) + ":";
    char room[70];
    const std::uint32_t got = stream.Read(room, sizeof room);
    return got == kFailed ? text + "failed" : text.append(room, got);
  }
};

// What is remembered of the blocks must not show: another object that walks from the start each
// time finds the same, whoever writes in between and wherever.
TEST_F(LongChain, RemembersItsBlocksUnseen) {
  for (const unsigned seed : HistorySeeds(3)) {
    SCOPED_TRACE("AOSTORAGE_TEST_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    std::vector<std::uint32_t> rooms(300);
    for (std::uint32_t& room : rooms) room = static_cast<std::uint32_t>(random() % 40);
    FileBuilder builder;
    builder.AddStream(6, "a", Pattern(4000), rooms);
    Load(builder);
    const Stream stream = Root("a"), beside = Root("a");
    const Storage elsewhere(aoStorage::Open(path.c_str(), kWriteFlags, 0));
    const Stream far(elsewhere->OpenStream("a", kWriteFlags));
    std::size_t written = 0;
    for (int step = 0; step < 400; ++step) {
      const auto place = static_cast<std::uint32_t>(random() % 4200);
      if (random() % 8 == 0) {
        aoStream& writer = *(random() % 2 == 0 ? stream : random() % 2 == 0 ? beside : far);
        const Bytes data = Pattern(random() % 60 + 1, static_cast<std::uint8_t>(step));
        if (writer.Seek(place, 0) == 0) {
          written += writer.Write(data.data(), static_cast<std::uint32_t>(data.size()),
                                  random() % 4 == 0) != kFailed;
        }
        continue;
      }
      const Storage fresh(aoStorage::Open(path.c_str(), kReadFlags, 0));
      const Stream plain(fresh->OpenStream("a", kReadFlags));
      ASSERT_EQ(Found(*stream, place, 0), Found(*plain, place, 0)) << step;
    }
    EXPECT_GT(written, 20U);
  }
}

TEST_F(LongChain, IsNotWalkedAgain) {
  FileBuilder builder;
  builder.AddStream(6, "a", Pattern(30000), std::vector<std::uint32_t>(10000, 3));
  Load(builder);
  const Stream stream = Root("a");
  EXPECT_EQ(stream->Seek(0, 1), 0U);
  for (const std::uint32_t place : {29000U, 15001U, 200U, 29999U}) {
    Watch watch;
    std::uint8_t byte = 0;
    ASSERT_EQ(stream->Seek(place, 0), 0U);
    EXPECT_EQ(stream->Read(&byte, 1), 1U);
    EXPECT_EQ(byte, Pattern(30000)[place]);
    EXPECT_LE(watch.Total(), 3U) << "whether the file is as it was, the header, the data";
  }
}

using GoingNext = OneStorageTest;

TEST_F(GoingNext, MovesFromSlotToSlotAndIntoTheNextBlock) {
  FileBuilder builder;
  builder.AddDirectory();
  builder.AddStream(62, "a", Pattern(10));
  builder.AddStream(63, "b", Pattern(20, 2));
  const std::uint32_t first = builder.AddChain(Pattern(30, 3));
  builder.PutSlot(0, StreamRecord("c", false, 30, first), 1);
  builder.bytes[builder.SlotAt(1, 1) + 4] = 'd';
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
  EXPECT_FALSE(stream->GoNext()) << "the slot behind has no magic word";
  EXPECT_STREQ(stream->GetName(), "c");
  EXPECT_EQ(stream->GetCurDataPos(), 30U) << "the object stands as before";
  EXPECT_EQ(stream->Write("x", 1), 1U);
  EXPECT_EQ(Raw("c").length, 31U) << "at the new header";
}

}  // namespace
}  // namespace aostorage::testing
