// Several objects on one stream, and several storage objects on one file.
#include <random>

#include "folder/storage_fixture.h"
#include "support/check_file.h"
#include "support/model.h"

namespace aostorage::testing {
namespace {

class TwoObjects : public OneStorageTest {
 protected:
  void SetUp() override { storage = Create(); }
  // Whatever was written must still be reachable: nothing may have been unlinked.
  void ExpectNoLoss() const {
    EXPECT_EQ(Image().orphanedBytes, 0U);
    EXPECT_EQ("", CheckFile(path));
  }
};

void Write(const Stream& stream, const Bytes& data) {
  EXPECT_EQ(stream->Write(data.data(), static_cast<std::uint32_t>(data.size())), data.size());
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
    storage = Create();
    const Stream writer = MakeRoot("a");
    Stream stale = Root("a");
    Write(writer, Pattern(100));
    if (row.change != nullptr) {
      EXPECT_TRUE(row.change(*stale));
    } else {
      EXPECT_TRUE(Remove(stale));
    }
    ExpectNoLoss();
    const RawImage image = Image();
    const RawStream& raw = image.streams.empty() ? image.vacated.at(0) : image.streams.at(0);
    EXPECT_EQ(raw.chain, Pattern(100));
  }
}

// Three objects write and read one stream at random places; another stream takes the tail away now
// and then. The chain holds what a plain array of bytes would.
TEST_F(TwoObjects, LongHistoriesAgreeWithAPlainArray) {
  for (const unsigned seed : HistorySeeds(12)) {
    SCOPED_TRACE("AOSTORAGE_TEST_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    storage = Create(seed % 3 * 40);
    Bytes expected;
    const Stream other = MakeRoot("other");
    Stream objects[3] = {MakeRoot("a"), Root("a"), Root("a")};
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
          object = Root("a");
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
      const RawStream raw = Raw("a");
      ASSERT_EQ(raw.chain, expected);
      ASSERT_EQ(raw.length, expected.size());
    }
    ExpectNoLoss();
  }
}

TEST_F(TwoObjects, TwoStoragesCreateWithoutTakingOneSlotTwice) {
  {
    const Storage second = Open();
    for (int i = 0; i < 70; ++i) {
      const Storage& maker = i % 2 == 0 ? storage : second;
      ASSERT_TRUE(Got(maker->CreateStream(std::to_string(i).c_str(), kWriteFlags)));
    }
  }
  ExpectNoLoss();
  EXPECT_EQ(Image().streams.size(), 70U);
}

}  // namespace
}  // namespace aostorage::testing
