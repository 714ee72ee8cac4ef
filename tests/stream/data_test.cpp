// Reading and writing through chains of blocks.
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <random>
#include <stdexcept>

#include "folder/storage_fixture.h"
#include "support/model.h"

namespace aostorage::testing {
namespace {

class StreamData : public OneStorageTest {
 protected:
  std::string Blocks(const char* name) const {
    std::string text;
    for (const RawBlock& block : Raw(name).blocks)
      text += std::to_string(block.used) + "/" + std::to_string(block.capacity) + " ";
    return text;
  }
};

std::uint32_t Write(const Stream& stream, const Bytes& data, bool final = false) {
  return stream->Write(data.data(), static_cast<std::uint32_t>(data.size()), final);
}

// One byte more than asked for shows whether a read goes beyond what it reports.
Bytes Read(const Stream& stream, std::uint32_t count) {
  Bytes buffer(count + 1, 0xEE);
  const std::uint32_t got = stream->Read(buffer.data(), count);
  if (got == kFailed) throw std::runtime_error("read failed");
  for (std::size_t i = got; i < buffer.size(); ++i)
    EXPECT_EQ(buffer[i], 0xEE) << "byte behind the count";
  return Slice(buffer, 0, got);
}

Bytes operator+(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

TEST_F(StreamData, EmptyWritesAndReads) {
  storage = Create(100);
  const Stream stream = MakeRoot("a");
  EXPECT_EQ(Read(stream, 10), Bytes());
  EXPECT_EQ(Blocks("a"), "");
  EXPECT_EQ(stream->Read(nullptr, 0), 0U);
  EXPECT_EQ(stream->Write(nullptr, 0), 0U);
  EXPECT_EQ(Blocks("a"), "20/120 ");
  EXPECT_EQ(Slice(File(), kEmptyFileSize + 20, 200), Bytes(100));
  EXPECT_EQ(Raw("a").length, 0U);
  Write(stream, Pattern(30));
  stream->Seek(5, 0);
  EXPECT_EQ(stream->Write(nullptr, 0, true), 0U) << "an empty flushing write commits nothing";
  EXPECT_EQ(Raw("a").length, 30U);
  EXPECT_EQ(stream->Write(nullptr, 1), kFailed);
  EXPECT_EQ(stream->Read(nullptr, 1), kFailed);
  EXPECT_EQ(Raw("a").Value(), Pattern(30));
}

TEST_F(StreamData, WithoutANextBlockWhatTheOldOneTookCounts) {
  storage = Create(50);
  const Stream stream = MakeRoot("a");
  Write(stream, Pattern(10));
  Write(MakeRoot("other"), Pattern(1));
  {
    Watch watch;  // the write behind the one that fills the old block
    watch.FailAt(2, Only(Call::kWrite), ENOSPC);
    EXPECT_EQ(Write(stream, Pattern(100, 2)), kFailed);
  }
  EXPECT_EQ(Blocks("a"), "70/70 ");
  EXPECT_EQ(stream->GetCurDataPos(), 50U);
  const Bytes before = File();
  EXPECT_EQ(Write(stream, Pattern(100)), kFailed)
      << "the cursor stands nowhere before an absolute seek";
  EXPECT_EQ(File(), before);
  ASSERT_EQ(stream->Seek(0, 1), 0U);
  EXPECT_EQ(Write(stream, Pattern(60, 3)), 60U);
  EXPECT_EQ(Raw("a").Value(), Pattern(10) + Slice(Pattern(100, 2), 0, 40) + Pattern(60, 3));
}

TEST_F(StreamData, AStaleHeaderCopyDoesNotUnlinkTheFirstBlock) {
  const std::pair<const char*, bool (*)(Stream & stale)> rows[] = {
      {"SetLength", [](Stream& stale) { return stale->SetLength(0); }},
      {"Erase", [](Stream& stale) { return stale->Erase(); }},
      {"Rename", [](Stream& stale) { return stale->Rename("renamed"); }},
      {"Remove", [](Stream& stale) { return Remove(stale); }}};
  for (const auto& [label, change] : rows) {
    SCOPED_TRACE(label);
    storage = Create();
    const Stream writer = MakeRoot("a");
    Stream stale = Root("a");
    Write(writer, Pattern(100));
    EXPECT_TRUE(change(stale));
    const RawImage image = Image();
    EXPECT_EQ(image.orphanedBytes, 0U);
    const RawStream& raw = image.streams.empty() ? image.vacated.at(0) : image.streams.at(0);
    EXPECT_EQ(raw.chain, Pattern(100));
  }
}

// Every operation on data in random order over root streams that come and go, against a model that
// foretells each block.
class StreamHistory : public StreamData {
 protected:
  struct Opened {
    Stream stream;
    ModelCursor cursor;
  };

  void Run(unsigned seed, std::uint32_t reserve) {
    random.seed(seed);
    storage = Create(reserve);
    model = std::make_unique<ModelStorage>(reserve);
    for (int step = 0; step < 600 && !HasFailure(); ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      if (opened.empty() || random() % 8 == 0) {
        ChangeStreams(reserve);
      } else {
        auto& [name, object] =
            *std::next(opened.begin(), static_cast<int>(random() % opened.size()));
        UseStream(object);
      }
      if (step % 20 == 0) {
        ASSERT_EQ("", model->Compare(Image()));
      }
    }
    opened.clear();
    ASSERT_EQ("", model->Compare(Image()));
  }

  void ChangeStreams(std::uint32_t reserve) {
    const std::string name = "s" + std::to_string(random() % 12);
    const std::uint32_t action = random() % 16;
    if (action == 0) {
      opened.clear();
      Reopen(reserve);
      model->Reopened();
    } else if (action < 4) {
      const auto found = opened.find(name);
      if (found == opened.end()) return;
      ASSERT_TRUE(Remove(found->second.stream));
      opened.erase(found);
      ModelStorage::Remove(*model->Find(name));
    } else if (ModelStream* existing = model->Find(name)) {
      Stream stream = Root(name);
      ASSERT_TRUE(stream) << name;
      opened.erase(name);
      opened.emplace(name, Opened{std::move(stream), ModelCursor(*model, *existing)});
    } else {
      const bool folder = random() % 8 == 0, fast = random() % 4 == 0;
      Stream stream(fast ? storage->CreateStreamFast(name.c_str(), PackKind(folder, 5), kWriteFlags)
                         : storage->CreateStream(name.c_str(), PackKind(folder, 5), kWriteFlags));
      ModelStream* made = model->Create(name, folder, fast, 5);
      ASSERT_EQ(stream != nullptr, made != nullptr) << name;
      // The data of a folder is not for random bytes.
      if (made != nullptr && !folder)
        opened.emplace(name, Opened{std::move(stream), ModelCursor(*model, *made)});
    }
  }

  void UseStream(Opened& object) {
    if (object.stream->IsFolder() == 1) return;
    const std::uint32_t length = object.stream->GetLength();
    const auto distance = static_cast<std::uint32_t>(random() % (length + length / 8 + 2));
    const auto action = random() % 12;
    if (action < 5) {
      const Bytes data =
          Pattern(random() % 9 == 0 ? 0 : random() % 200, static_cast<unsigned>(random()));
      const bool final = random() % 6 == 0;
      ASSERT_EQ(Write(object.stream, data, final), data.size());
      object.cursor.Write(data, final);
    } else if (action < 8) {
      ASSERT_EQ(Read(object.stream, distance), object.cursor.Read(distance));
    } else if (action < 11) {
      const auto far =
          static_cast<std::uint32_t>(random() % 16 == 0 ? 0x7FFFFFFF + random() % 3 : distance);
      const auto origin = static_cast<std::uint8_t>(random() % 4);
      const bool forward = random() % 2 == 0;
      bool went = false;
      SCOPED_TRACE("origin " + std::to_string(origin) + ", distance " + std::to_string(far));
      if (random() % 2 == 0) {
        went = object.cursor.Seek(far, origin, forward);
        ASSERT_EQ(object.stream->Seek(far, origin, forward), went ? 0U : kFailed);
      } else {
        const auto offset = static_cast<std::int32_t>(forward ? far : 0U - far);
        went = object.cursor.Seek2(offset, origin);
        ASSERT_EQ(object.stream->Seek2(offset, origin), went ? 0 : -1);
      }
      if (!went) {
        object.stream->Seek(0, 0);
        object.cursor.Seek(0, 0);
      }
    } else if (random() % 3 == 0) {
      ASSERT_TRUE(object.stream->Erase());
      object.cursor.Erase();
    } else {
      ASSERT_EQ(object.stream->SetLength(distance), object.cursor.SetLength(distance));
    }
    ASSERT_EQ(object.stream->GetCurDataPos(), object.cursor.Position());
  }

  std::mt19937 random;
  std::unique_ptr<ModelStorage> model;
  std::map<std::string, Opened> opened;
};

TEST_F(StreamHistory, AgreesWithTheModelBlockByBlock) {
  for (const unsigned seed : HistorySeeds(8)) {
    for (const std::uint32_t reserve : {0U, 1U, 60U, 1000U}) {
      SCOPED_TRACE("AOSTORAGE_TEST_SEED=" + std::to_string(seed) + ", reserve " +
                   std::to_string(reserve));
      Run(seed, reserve);
      if (HasFailure()) return;
    }
  }
}

}  // namespace
}  // namespace aostorage::testing
