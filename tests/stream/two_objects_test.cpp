// Several objects on one stream, and several storage objects on one file.
#include <random>

#include <gtest/gtest.h>

#include "support/handles.h"
#include "support/model.h"
#include "support/raw_file.h"
#include "support/temp_dir.h"

namespace aostorage::testing {
namespace {

class TwoObjects : public ::testing::Test {
 protected:
  Stream Open(const char* name = "a") { return Stream(storage->OpenStream(name, kWriteFlags)); }
  RawStream Raw(const char* name = "a") { return *ReadImage(ReadFile(path)).Find(name); }
  // Whatever was written must still be reachable: nothing may have been unlinked.
  void ExpectNoLoss() {
    const RawImage image = ReadImage(ReadFile(path));
    EXPECT_EQ(image.orphanedBytes, 0U);
    EXPECT_EQ("", CheckFile(path));
  }

  TempDir dir;
  const std::string path = dir.File("store");
  Storage storage{aoStorage::Create(path.c_str(), 0, 0)};
};

void Write(const Stream& stream, const Bytes& data) {
  EXPECT_EQ(stream->Write(data.data(), static_cast<std::uint32_t>(data.size())), data.size());
}

TEST_F(TwoObjects, AnObjectFromBeforeTheFirstBlockTakesTheBlockThatIsThere) {
  const Stream first(storage->CreateStream("a", kWriteFlags));
  const Stream second = Open();
  Write(first, Pattern(100));
  Write(second, Pattern(30, 2));
  EXPECT_EQ(Raw().blocks.size(), 1U);
  Bytes expected = Pattern(100);
  const Bytes later = Pattern(30, 2);
  std::copy(later.begin(), later.end(), expected.begin());
  EXPECT_EQ(Raw().chain, expected) << "the later write stands";
  ExpectNoLoss();
}

TEST_F(TwoObjects, AnObjectWhoseBlockGotANextBlockGoesOnInThat) {
  const Stream first(storage->CreateStream("a", kWriteFlags));
  Write(first, Pattern(10));
  const Stream second = Open();
  Bytes data(10);
  ASSERT_EQ(second->Read(data.data(), 10), 10U) << "its block is loaded, without a next one";
  const Stream other(storage->CreateStream("other", kWriteFlags));
  Write(other, Pattern(1));
  Write(first, Pattern(50, 2));  // into a next block
  Write(other, Pattern(1));
  Write(second, Pattern(20, 3));
  EXPECT_EQ(Raw().blocks.size(), 2U);
  EXPECT_EQ(Slice(Raw().chain, 10, 20), Pattern(20, 3));
  EXPECT_EQ(Slice(Raw().chain, 30, 100), Slice(Pattern(50, 2), 20, 30));
  ExpectNoLoss();
}

TEST_F(TwoObjects, AStaleHeaderCopyDoesNotUnlinkTheFirstBlock) {
  struct Row {
    const char* label;
    bool (*change)(aoStream& stale);
  };
  const Row rows[] = {{"SetLength", [](aoStream& stale) { return stale.SetLength(0); }},
                      {"Erase", [](aoStream& stale) { return stale.Erase(); }},
                      {"Rename", [](aoStream& stale) { return stale.Rename("renamed"); }},
                      {"Remove", nullptr}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    storage.reset(aoStorage::Create(path.c_str(), 0, 0));
    const Stream writer(storage->CreateStream("a", kWriteFlags));
    Stream stale = Open();
    Write(writer, Pattern(100));
    if (row.change != nullptr) {
      EXPECT_TRUE(row.change(*stale));
    } else {
      EXPECT_TRUE(Remove(stale));
    }
    ExpectNoLoss();
    const RawImage image = ReadImage(ReadFile(path));
    const RawStream& raw = image.streams.empty() ? image.vacated.at(0) : image.streams.at(0);
    EXPECT_EQ(raw.chain, Pattern(100));
  }
}

// After a removal through one object the others must not write over what took the slot since.
TEST_F(TwoObjects, AnObjectOnARemovedStreamDoesNotDisturbTheHeir) {
  const Stream left(storage->CreateStream("a", kWriteFlags));
  Write(left, Pattern(10));
  Stream removing = Open();
  ASSERT_TRUE(Remove(removing));
  const Stream heir(storage->CreateStream("heir", kWriteFlags));
  Write(heir, Pattern(20, 2));
  const Bytes before = ReadFile(path);
  left->Erase();
  left->SetLength(0);
  left->Rename("back");
  EXPECT_EQ(Slice(ReadFile(path), SlotOffset(6), kSlotSize),
            Slice(before, SlotOffset(6), kSlotSize));
  EXPECT_EQ(Raw("heir").Value(), Pattern(20, 2));
}

// Three objects write and read one stream at random places; another stream takes the tail away now
// and then. The chain holds what a plain array of bytes would.
TEST_F(TwoObjects, LongHistoriesAgreeWithAPlainArray) {
  for (const unsigned seed : HistorySeeds(12)) {
    SCOPED_TRACE("AOSTORAGE_TEST_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    storage.reset(aoStorage::Create(path.c_str(), 0, seed % 3 * 40));
    Bytes expected;
    const Stream other(storage->CreateStream("other", kWriteFlags));
    Stream objects[3] = {Stream(storage->CreateStream("a", kWriteFlags)), Open(), Open()};
    // An object from before the first block stands at no block until it writes: it reads nothing.
    bool blind[3] = {true, true, true};
    for (int step = 0; step < 200; ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      const std::size_t chosen = random() % 3;
      Stream& object = objects[chosen];
      switch (random() % 6) {
        case 0:
          Write(other, Pattern(3));
          break;
        case 1:
          object.reset();
          object = Open();
          blind[chosen] = expected.empty();
          break;
        case 2: {
          const auto place = static_cast<std::uint32_t>(random() % (expected.size() + 1));
          if (blind[chosen]) break;
          ASSERT_EQ(object->Seek(place, 0), 0U);
          Bytes data(expected.size());
          data.resize(object->Read(data.data(), static_cast<std::uint32_t>(data.size())));
          ASSERT_EQ(data, Slice(expected, place, expected.size()));
          break;
        }
        case 3:
          object->Seek(static_cast<std::uint32_t>(random() % (expected.size() + 1)), 0);
          break;
        default: {
          const std::size_t place = object->GetCurDataPos();
          const Bytes data = Pattern(1 + random() % 60, static_cast<unsigned>(random()));
          Write(object, data);
          blind[chosen] = false;
          if (expected.size() < place + data.size()) expected.resize(place + data.size());
          std::copy(data.begin(), data.end(),
                    expected.begin() + static_cast<std::ptrdiff_t>(place));
        }
      }
      const RawStream raw = Raw();
      ASSERT_EQ(raw.chain, expected);
      ASSERT_EQ(raw.length, expected.size());
    }
    ExpectNoLoss();
  }
}

// Each storage object appends to streams of its own: no block of the other is overwritten.
TEST_F(TwoObjects, TwoStoragesOnOneFile) {
  for (const std::uint32_t reserve : {0U, 50U}) {
    for (int i = 0; i < 4; ++i)
      Stream(storage->CreateStream(std::to_string(i).c_str(), kWriteFlags));
    const Storage second(aoStorage::Open(path.c_str(), kStreamWrite, reserve));
    Stream streams[4];
    Bytes expected[4];
    for (std::size_t i = 0; i < 4; ++i) {
      streams[i].reset(
          (i % 2 == 0 ? storage : second)->OpenStream(std::to_string(i).c_str(), kWriteFlags));
    }
    std::mt19937 random(reserve);
    for (int step = 0; step < 300; ++step) {
      const std::size_t i = random() % 4;
      const Bytes data = Pattern(1 + random() % 100, static_cast<unsigned>(random()));
      Write(streams[i], data);
      expected[i].insert(expected[i].end(), data.begin(), data.end());
    }
    for (std::size_t i = 0; i < 4; ++i)
      EXPECT_EQ(Raw(std::to_string(i).c_str()).Value(), expected[i]) << i;
    ExpectNoLoss();
    for (Stream& stream : streams) stream.reset();
    storage.reset(aoStorage::Create(path.c_str(), 0, 20));
  }
}

TEST_F(TwoObjects, TwoStoragesCreateWithoutTakingOneSlotTwice) {
  {
    const Storage second(aoStorage::Open(path.c_str(), kStreamWrite, 0));
    for (int i = 0; i < 70; ++i) {
      ASSERT_TRUE(Stream(
          (i % 2 == 0 ? storage : second)->CreateStream(std::to_string(i).c_str(), kWriteFlags)));
    }
  }
  ExpectNoLoss();
  EXPECT_EQ(ReadImage(ReadFile(path)).streams.size(), 70U);
}

}  // namespace
}  // namespace aostorage::testing
