// Streams in memory, and streams behind the generic file interface.
#include <cstring>
#include <numeric>
#include <stdexcept>

#include "folder/storage_fixture.h"
#include "support/allocations.h"

namespace aostorage::testing {
namespace {

// A buffer of the library's heap with `bytes` in it.
std::uint8_t* HeapCopy(const Bytes& bytes) {
  std::uint8_t* block = aoStream::AllocateBuffer(bytes.size());
  if (!bytes.empty()) std::memcpy(block, bytes.data(), bytes.size());
  return block;
}

std::uint32_t Put(aoStream& stream, const Bytes& bytes, bool final = false) {
  return stream.Write(bytes.data(), static_cast<std::uint32_t>(bytes.size()), final);
}

Bytes Take(aoStream& stream, std::uint32_t count) {
  Bytes bytes(count, 0xEE);
  bytes.resize(stream.Read(bytes.data(), count));
  return bytes;
}

// What Detach gives, and an end to it.
Bytes Detached(aoStream2& stream) {
  std::int32_t size = -1;
  std::uint8_t* block = stream.Detach(size);
  const Bytes bytes = block == nullptr ? Bytes() : Bytes(block, block + size);
  aoStream::FreeBuffer(block);
  return bytes;
}

TEST(MemoryStream, GrowsByWhatIsMissingAndByAtLeast1024) {
  struct Row {
    std::size_t given;  // bytes of the caller's buffer; 0: none
    std::vector<std::size_t> writes;
    std::size_t capacity;
  };
  const Row rows[] = {{0, {0}, 0},           {0, {10}, 1024},       {0, {1025}, 1025},
                      {0, {10, 5000}, 5010}, {0, {1020, 10}, 2048}, {0, {1024, 1025}, 2049},
                      {8, {3}, 8},           {8, {8, 1}, 1032},     {8, {4, 2000}, 2004}};
  for (const Row& row : rows) {
    const std::size_t written =
        std::accumulate(row.writes.begin(), row.writes.end(), std::size_t{});
    SCOPED_TRACE(std::to_string(row.given) + " given, " + std::to_string(written) + " written");
    const Bytes given = Pattern(row.given, 7), data = Pattern(written);
    aoStream2 stream(row.given == 0 ? nullptr : HeapCopy(given),
                     static_cast<std::int32_t>(row.given));
    std::size_t at = 0;
    for (const std::size_t count : row.writes) {
      EXPECT_EQ(Put(stream, Slice(data, at, count), at == 0), count);
      at += count;
    }
    // Reading goes on behind what was written: what the caller gave, then zeros.
    Bytes rest = row.given > written ? Slice(given, written, row.given - written) : Bytes();
    rest.resize(row.capacity - written);
    EXPECT_EQ(Take(stream, 10000), rest);
    Bytes all = data;
    all.insert(all.end(), rest.begin(), rest.end());
    EXPECT_EQ(Detached(stream), all);
  }
}

// What nobody frees and what is freed twice, the sanitizers tell.
TEST(MemoryStream, DetachGivesTheBlockAwayAndLeavesAnEmptyObject) {
  std::int32_t size = -1;
  std::uint8_t* given = HeapCopy(Pattern(8));
  {
    aoStream2 over(given, 8);
    EXPECT_EQ(over.Detach(size), nullptr);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(Take(over, 100), Pattern(8)) << "the block stayed with the object";
    EXPECT_EQ(Take(over, 100), Bytes());
    EXPECT_EQ(over.Detach(size), given);
    EXPECT_EQ(Put(over, Pattern(2000)), 2000U);
  }
  { const aoStream2 untouched(given, 8); }
  auto* made = new aoStream2;
  for (const unsigned seed : {1U, 2U}) {
    EXPECT_EQ(Put(*made, Pattern(10, seed)), 10U);
    EXPECT_EQ(Detached(*made), Pattern(10, seed));
    EXPECT_EQ(Take(*made, 1), Bytes());
  }
  Put(*made, Pattern(10));
  delete made;
  aoStream::FreeBuffer(given);
}

// The source went away with the block that it lay in.
TEST(MemoryStream, TakesASourceInItsOwnBlockAlongWhenTheBlockMoves) {
  constexpr std::int32_t kSize = 200000;
  std::uint8_t* const block = aoStream::AllocateBuffer(kSize);
  for (std::int32_t i = 0; i < kSize; ++i) block[i] = static_cast<std::uint8_t>(i % 251);
  aoStream2 stream(block, kSize);
  Bytes passed(kSize);
  ASSERT_EQ(stream.Read(passed.data(), kSize), std::uint32_t{kSize});
  ASSERT_EQ(stream.Write(block, kSize), std::uint32_t{kSize});
  std::int32_t size = 0;
  std::uint8_t* grown = stream.Detach(size);
  ASSERT_EQ(size, 2 * kSize);
  EXPECT_EQ(Bytes(grown + kSize, grown + size), passed);
  aoStream::FreeBuffer(grown);
}

TEST(MemoryStream, RefusesImpossibleCountsSizesAndBuffers) {
  std::uint8_t byte = 0xEE;
  aoStream2 sizeWithoutBuffer(nullptr, 100);
  EXPECT_EQ(sizeWithoutBuffer.Read(&byte, 1), 0U);
  std::uint8_t* given = HeapCopy(Pattern(8));
  aoStream2 negative(given, -8);
  EXPECT_EQ(negative.Read(&byte, 1), 0U);
  aoStream2 stream(given, 8);
  for (const std::uint32_t count : {0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_EQ(stream.Read(&byte, count), 0U);
    EXPECT_EQ(stream.Write(&byte, count), 0U);
  }
  EXPECT_EQ(stream.Read(nullptr, 1) + stream.Write(nullptr, 1), 0U);
  EXPECT_EQ(stream.Read(nullptr, 0) + stream.Write(nullptr, 0), 0U);
  EXPECT_EQ(byte, 0xEE);
  EXPECT_EQ(Take(stream, 9), Pattern(8)) << "nothing moved and nothing was changed";
  EXPECT_EQ(Put(negative, {1}), 1U);
  EXPECT_EQ(Detached(negative), Bytes{1}) << "grown, so that the old pointer is worth nothing now";
}

TEST(MemoryStream, StoresWhatFitsWhenThereIsNoMemory) {
  aoStream2 stream;
  const Bytes data = Pattern(1034);
  {
    const FailAllocation fault(1);
    EXPECT_EQ(Put(stream, data), 0U);
    EXPECT_TRUE(fault.Fired());
  }
  EXPECT_EQ(LastError().code, ErrorCode::kNoMemory);
  EXPECT_EQ(Put(stream, Slice(data, 0, 1020)), 1020U);
  {
    const Bytes tail = Slice(data, 1020, 14);
    const FailAllocation fault(1);
    EXPECT_EQ(Put(stream, tail), 4U);
    EXPECT_EQ(stream.Write(tail.data(), 1), 1U) << "the memory is back";
  }
  EXPECT_EQ(Put(stream, Slice(data, 1025, 9)), 9U);
  Bytes expected = data;
  expected[1024] = data[1020];
  EXPECT_EQ(Detached(stream), expected);
}

class StreamAsFile : public OneStorageTest {
 protected:
  StreamAsFile() {
    storage = Create();
    stream = MakeRoot("s");
  }
  Stream stream;
};

TEST_F(StreamAsFile, ReadsWritesAndSeeksInTheStream) {
  CAoStreamFile file(stream.get());
  const Bytes data = Pattern(10);
  file.Write(data.data(), 10);
  EXPECT_EQ(file.GetLength(), 10U);
  EXPECT_EQ(file.GetStorageName(), "s");
  struct Row {
    std::int32_t offset;
    std::uint32_t origin, place;
  };
  for (const Row& row : {Row{3, 0, 3}, Row{-4, 0, 6}, Row{2, 1, 8}, Row{-5, 1, 3}, Row{0, 2, 0}}) {
    EXPECT_EQ(file.Seek(row.offset, row.origin), 0);
    EXPECT_EQ(stream->GetCurDataPos(), row.place) << row.offset << " from " << row.origin;
  }
  Bytes got(10);
  EXPECT_EQ(file.Read(got.data(), 20), 10U);
  EXPECT_EQ(got, data);
  EXPECT_EQ(file.Read(nullptr, 1), kFailed);
  EXPECT_EQ(file.Seek(11, 0), -1);
  EXPECT_EQ(file.Read(got.data(), 1), kFailed) << "what the stream says after a failed seek";
}

// A caller that knows files alone: writes, and finds that nothing else reaches the stream.
TEST_F(StreamAsFile, IsReadAndWrittenThroughTheInterface) {
  aoStream2 memory;
  CAoStreamFile inFile(stream.get()), inMemory(&memory);
  for (CAoStreamFile* stored : {&inFile, &inMemory}) {
    CFile& file = *stored;
    file.Write("abc", 3);
    EXPECT_EQ(file.Seek(0, 0) + file.GetLength() + file.GetPosition(), 0U);
    file.SetLength(std::uint64_t{1});
    stored->SetLength(1U);
    stored->LockRange(0U, 10U);
    stored->UnlockRange(0U, 10U);
    file.Abort();
    file.Flush();
    file.Close();
    EXPECT_EQ(file.Duplicate(), nullptr);
    EXPECT_FALSE(file.Open("/", kReadFlags));
    file.Write("de", 2);
    EXPECT_EQ(file.GetRuntimeClass(), &CAoStreamFile::classCAoStreamFile);
  }
  const Bytes all{'a', 'b', 'c', 'd', 'e'};
  EXPECT_EQ(Detached(memory), all);
  inFile.Seek(0, 0U);
  Bytes got(5);
  EXPECT_EQ(static_cast<CFile&>(inFile).Read(got.data(), 5), 5U);
  EXPECT_EQ(got, all);
}

TEST(StreamFile, WithoutAStreamFailsQuietly) {
  CAoStreamFile file, bound(nullptr);
  std::uint8_t byte = 0xEE;
  for (CAoStreamFile* each : {&file, &bound}) {
    each->Write(&byte, 1);
    EXPECT_TRUE(each->Read(&byte, 1) == kFailed && each->Seek(0, 0) == -1);
    EXPECT_TRUE(each->GetLength() == 0 && each->GetStorageName().empty());
  }
  const CRuntimeClass& record = *CAoStreamFile::GetThisClass();
  EXPECT_STREQ(record.className, "CAoStreamFile");
  EXPECT_TRUE(record.schema == 0xFFFF && record.create == nullptr);
  EXPECT_EQ(record.baseClass, CFile().GetRuntimeClass());
  EXPECT_EQ(CAoStreamFile::_GetBaseClass(), &CFile::classCFile);
  EXPECT_EQ(CFile::classCFile.baseClass, nullptr);
}

TEST(StreamFile, KeepsItsPathAndThrowsForNullAlone) {
  CAoStreamFile file;
  const std::string path(100, 'p'), longer(200, 'q');
  file.SetFilePath(path.c_str());
  EXPECT_THROW(file.SetFilePath(nullptr), std::invalid_argument);
  std::string withoutMemory = "x";
  {
    const FailAllocation fault(1);
    file.SetFilePath(longer.c_str());
    EXPECT_TRUE(fault.Fired());
  }
  {
    const FailAllocation fault(1);
    withoutMemory = file.GetFilePath();
    EXPECT_TRUE(fault.Fired());
  }
  EXPECT_EQ(withoutMemory, "");
  EXPECT_EQ(file.GetFilePath(), path);
  EXPECT_EQ(file.GetFileName() + file.GetFileTitle(), "") << "no file is open";
}

}  // namespace
}  // namespace aostorage::testing
