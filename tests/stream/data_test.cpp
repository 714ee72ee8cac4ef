// Reading and writing through chains of blocks.
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <random>
#include <stdexcept>

#include <gtest/gtest.h>

#include "support/handles.h"
#include "support/model.h"
#include "support/raw_file.h"
#include "support/syscalls.h"
#include "support/temp_dir.h"

namespace aostorage::testing {
namespace {

class StreamData : public ::testing::Test {
 protected:
  void Start(std::uint32_t reserve) { storage.reset(aoStorage::Create(path.c_str(), 0, reserve)); }
  void Reopen(std::uint32_t reserve) {
    storage.reset();
    storage.reset(aoStorage::Open(path.c_str(), kStreamWrite, reserve));
  }
  Stream Create(const char* name) { return Stream(storage->CreateStream(name, kWriteFlags)); }
  Stream Open(const char* name) { return Stream(storage->OpenStream(name, kWriteFlags)); }
  std::string Blocks(const char* name) {
    std::string text;
    const RawImage image = ReadImage(ReadFile(path));
    for (const RawBlock& block : image.Find(name)->blocks) {
      text += std::to_string(block.used) + "/" + std::to_string(block.capacity) + " ";
    }
    return text;
  }
  RawStream Raw(const char* name) { return *ReadImage(ReadFile(path)).Find(name); }

  TempDir dir;
  const std::string path = dir.File("store");
  Storage storage;
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

TEST_F(StreamData, FirstBlockByteForByte) {
  Start(8);
  Write(Create("a"), {1, 2, 3});
  EXPECT_EQ(Slice(ReadFile(path), kEmptyFileSize, 100),
            (Bytes{0xFA, 0xFA, 0xFA, 0xFA, 23, 0, 0, 0, 28, 0, 0, 0, 0, 0,
                   0,    0,    0,    0,    0,  0, 1, 2, 3,  0, 0, 0, 0, 0}));
  const Bytes record = Slice(ReadFile(path), SlotOffset(6), kSlotSize);
  EXPECT_EQ(Slice(record, 68, 12), (Bytes{3, 0, 0, 0, 0x2C, 0x14, 0, 0, 0x2C, 0x14, 0, 0}));
}

TEST_F(StreamData, TheTailGrowsAndEveryOtherBlockEndsAtItsCapacity) {
  Start(1000);
  const Stream tail = Create("tail");
  EXPECT_EQ(Write(tail, Pattern(10)), 10U);
  EXPECT_EQ(Blocks("tail"), "30/1020 ");
  EXPECT_EQ(tail->GetCurDataPos(), 10U);
  EXPECT_EQ(Write(tail, Pattern(5000)), 5000U);
  EXPECT_EQ(Blocks("tail"), "5030/5030 ");

  const Stream stream = Create("a");
  Write(stream, Pattern(10));
  Write(Create("b"), Pattern(1));
  EXPECT_EQ(Write(stream, Pattern(5000, 2)), 5000U);
  EXPECT_EQ(Blocks("a"), "1020/1020 4030/4030 ");
  const RawStream raw = Raw("a");
  EXPECT_EQ(raw.Value(), Pattern(10) + Pattern(5000, 2));
  EXPECT_EQ(raw.lastBlock, raw.blocks[1].offset);
  EXPECT_EQ(raw.blocks[1].prev, raw.blocks[0].offset);
  EXPECT_EQ("", CheckFile(path));
}

TEST_F(StreamData, WithoutAReserveTheTailGrowsWithEachWrite) {
  Start(0);
  const Stream stream = Create("a");
  Write(stream, Pattern(1));
  EXPECT_EQ(Blocks("a"), "21/21 ");
  Write(stream, Pattern(7, 2));
  EXPECT_EQ(Blocks("a"), "28/28 ");
  Reopen(0);
  const Stream again = Open("a");
  again->Seek(0, 1);
  Write(again, Pattern(5, 3));
  EXPECT_EQ(Blocks("a"), "28/28 25/25 ") << "no block grows after a reopen";
  EXPECT_EQ(Raw("a").Value(), Pattern(1) + Pattern(7, 2) + Pattern(5, 3));
}

TEST_F(StreamData, EmptyWritesAndReads) {
  Start(100);
  const Stream stream = Create("a");
  EXPECT_EQ(Read(stream, 10), Bytes());
  EXPECT_EQ(Blocks("a"), "");
  EXPECT_EQ(stream->Read(nullptr, 0), 0U);
  EXPECT_EQ(stream->Write(nullptr, 0), 0U);
  EXPECT_EQ(Blocks("a"), "20/120 ");
  EXPECT_EQ(Raw("a").length, 0U);
  Write(stream, Pattern(30));
  stream->Seek(5, 0);
  EXPECT_EQ(stream->Write(nullptr, 0, true), 0U) << "an empty flushing write commits nothing";
  EXPECT_EQ(Raw("a").length, 30U);
  for (const auto count : {1U, 100U}) {
    EXPECT_EQ(stream->Write(nullptr, count), kFailed);
    EXPECT_EQ(stream->Read(nullptr, count), kFailed);
  }
  EXPECT_EQ(Raw("a").Value(), Pattern(30));
}

TEST_F(StreamData, AFlushingWriteEndsTheStreamThere) {
  Start(0);
  const Stream one = Create("one");
  Write(one, Pattern(3000));
  one->Seek(0, 0);
  EXPECT_EQ(Write(one, Pattern(5, 2), true), 5U);
  EXPECT_EQ(Blocks("one"), "25/3020 ");
  EXPECT_EQ(one->GetLength(), 5U);
  one->Seek(0, 0);
  EXPECT_EQ(Read(one, 100), Pattern(5, 2));
  EXPECT_EQ(Read(one, 100), Bytes());

  const Stream two = Create("two");
  Write(two, Pattern(50));
  Write(Create("other"), Pattern(1));
  Write(two, Pattern(70, 3));
  two->Seek(0, 0);
  Write(two, Pattern(5, 2), true);
  EXPECT_EQ(Blocks("two"), "25/70 90/90 ") << "the block behind stays linked";
  two->Seek(0, 0);
  EXPECT_EQ(Read(two, 75), Pattern(5, 2) + Pattern(70, 3)) << "and readable";
  EXPECT_EQ(two->GetLength(), 5U);
}

// Asking for more than there is must not touch the caller's memory behind what came, whichever
// block it is in.
TEST_F(StreamData, ReadsOfAnySizeOverManyBlocks) {
  FileBuilder builder;
  const Bytes data = Pattern(300);
  builder.AddStream(6, "a", data, {1, 1, 100, 3, 150});
  WriteFile(path, builder.bytes);
  Reopen(0);
  for (const std::uint32_t size : {1U, 2U, 3U, 99U, 100U, 101U, 299U, 300U, 301U, 100000U}) {
    const Stream stream = Open("a");
    Bytes all;
    for (Bytes piece = Read(stream, size); !piece.empty(); piece = Read(stream, size))
      all = all + piece;
    EXPECT_EQ(all, data) << size;
    EXPECT_EQ(stream->GetCurDataPos(), 300U);
  }
  Bytes exact(300);  // a count above what the stream holds may exceed the buffer
  EXPECT_EQ(Open("a")->Read(exact.data(), 0x7FFFFFFF), 300U);
  EXPECT_EQ(exact, data);
}

TEST_F(StreamData, StreamsMayBeUsedInTurnsWithoutRepositioning) {
  Start(10);
  Stream streams[3] = {Create("0"), Create("1"), Create("2")};
  for (unsigned i = 0; i < 50; ++i) {
    for (unsigned s = 0; s < 3; ++s) ASSERT_EQ(Write(streams[s], Pattern(7, 3 * i + s)), 7U);
  }
  for (const Stream& stream : streams) stream->Seek(0, 0);
  for (unsigned i = 0; i < 50; ++i) {
    for (unsigned s = 0; s < 3; ++s) ASSERT_EQ(Read(streams[s], 7), Pattern(7, 3 * i + s));
  }
}

TEST_F(StreamData, WithoutANextBlockWhatTheOldOneTookCounts) {
  Start(50);
  const Stream stream = Create("a");
  Write(stream, Pattern(10));
  Write(Create("other"), Pattern(1));
  const std::uint32_t firstBlock = Raw("a").firstBlock;
  {
    Watch watch;
    watch.FailAt(2, Only(Call::kWrite),
                 ENOSPC);  // the write behind the one that fills the old block
    EXPECT_EQ(Write(stream, Pattern(100, 2)), kFailed);
  }
  EXPECT_EQ(Blocks("a"), "70/70 ");
  EXPECT_EQ(Raw("a").Value(), Pattern(10) + Slice(Pattern(100, 2), 0, 40));
  EXPECT_EQ(stream->GetCurDataPos(), 50U);
  const Bytes before = ReadFile(path);
  EXPECT_EQ(Write(stream, Pattern(100)), kFailed)
      << "the cursor stands nowhere before an absolute seek";
  EXPECT_EQ(ReadFile(path), before);
  ASSERT_EQ(stream->Seek(0, 1), 0U);
  EXPECT_EQ(Write(stream, Pattern(60, 3)), 60U);
  EXPECT_EQ(Raw("a").firstBlock, firstBlock);
  EXPECT_EQ(Raw("a").Value(), Pattern(10) + Slice(Pattern(100, 2), 0, 40) + Pattern(60, 3));
}

TEST_F(StreamData, NothingAtOrBehind2GiBIsReached) {
  Start(0);
  const Stream early = Create("early");
  Write(early, Pattern(100));
  // A file with a hole, that ends shortly before the border.
  ASSERT_EQ(truncate(path.c_str(), 0x7FFFFFF0), 0);
  const Stream late = Create("late");
  EXPECT_EQ(Write(late, Pattern(100)), kFailed);
  EXPECT_EQ(LastError(), Error::kNoRoom);
  EXPECT_EQ(late->GetLength(), 0U);
  EXPECT_EQ(Write(early, Pattern(100)), kFailed) << "the block no longer ends the file";
  early->Seek(0, 0);
  EXPECT_EQ(Write(early, Pattern(100, 2)), 100U) << "inside, all goes on";
  EXPECT_EQ(std::filesystem::file_size(path), 0x7FFFFFF0U);
  ASSERT_EQ(truncate(path.c_str(), 0x80000010), 0);
  EXPECT_EQ(Write(late, Pattern(1)), kFailed);
  Reopen(0);
  EXPECT_EQ(Read(Open("early"), 1000), Pattern(100, 2));
  EXPECT_EQ(Open("late")->GetLength(), 0U);
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
    Start(reserve);
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
        ASSERT_EQ("", model->Compare(ReadImage(ReadFile(path))));
      }
    }
    opened.clear();
    ASSERT_EQ("", model->Compare(ReadImage(ReadFile(path))));
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
      Stream stream(storage->OpenStream(name.c_str(), kWriteFlags));
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
    switch (random() % 12) {
      case 0:
      case 1:
      case 2:
      case 3:
      case 4: {
        const Bytes data =
            Pattern(random() % 9 == 0 ? 0 : random() % 200, static_cast<unsigned>(random()));
        const bool final = random() % 6 == 0;
        ASSERT_EQ(Write(object.stream, data, final), data.size());
        object.cursor.Write(data, final);
        break;
      }
      case 5:
      case 6:
      case 7: {
        const Bytes got = Read(object.stream, distance);
        const std::vector<ModelByte> expected = object.cursor.Read(distance);
        ASSERT_EQ(got.size(), expected.size());
        for (std::size_t i = 0; i < got.size(); ++i) {
          if (expected[i] != kUnknownByte) {
            ASSERT_EQ(got[i], expected[i]) << "byte " << i;
          }
        }
        break;
      }
      case 8:
      case 9:
      case 10: {
        const auto origin = static_cast<std::uint8_t>(random() % 4);
        const bool forward = random() % 2 == 0;
        const bool went = object.cursor.Seek(distance, origin, forward);
        ASSERT_EQ(object.stream->Seek(distance, origin, forward), went ? 0U : kFailed)
            << "origin " << int{origin} << ", distance " << distance;
        if (!went) {
          object.stream->Seek(0, 0);
          object.cursor.Seek(0, 0);
        }
        break;
      }
      default:
        if (random() % 3 == 0) {
          ASSERT_TRUE(object.stream->Erase());
          object.cursor.Erase();
        } else {
          ASSERT_EQ(object.stream->SetLength(distance), object.cursor.SetLength(distance));
        }
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
