// Child records that lie across blocks, and folders made over the chain of a removed stream. Whole
// file images are compared, so that no byte outside a record changes unseen.
#include <algorithm>

#include "folder/storage_fixture.h"

namespace aostorage::testing {
namespace {

constexpr std::uint32_t kRecordStart = 4 + kSlotSize;  // of slot 1, in the folder's data

// A folder with children a, b, c whose record of b lies over several blocks, and streams beside it.
class SplitRecords : public StorageFileTest {
 protected:
  // `rooms` of the folder's first blocks; what is left lies in one more.
  void Build(const std::vector<std::uint32_t>& rooms) {
    FileBuilder builder;
    builder.AddStream(6, "before", Pattern(40, 6));
    const std::uint32_t chainA = builder.AddChain(Pattern(33, 1)),
                        chainC = builder.AddChain(Pattern(34, 3));
    builder.AddStream(
        7, "f",
        FolderPayload({StreamRecord("a", false, 33, chainA), StreamRecord("b", false, 0, 0),
                       StreamRecord("c", false, 34, chainC)}),
        rooms, true);
    builder.AddStream(8, "behind", Pattern(41, 8));
    expected = builder.bytes;
    record = StreamRecord("b", false, 0, 0);
    const RawImage image = ReadImage(expected);
    ASSERT_TRUE(image.violations.empty());
    places.clear();
    for (std::uint32_t i = 0; i < kSlotSize; ++i)
      places.push_back(image.Find("f")->PlaceOf(kRecordStart + i));
    storage = OpenBytes(expected);
    folder.reset(storage->OpenStream("f", kWriteFlags));
  }
  // Lays the record over the image, byte by byte in its own places, and compares the whole file.
  void ExpectFile(const std::string& label) {
    for (std::size_t i = 0; i < places.size(); ++i) expected[places[i]] = record[i];
    ASSERT_EQ(File(), expected) << label;
    ASSERT_EQ("", CheckFile(path)) << label;
  }
  Stream OpenChild(const std::string& name) const {
    return Stream(folder->OpenStream(name.c_str(), kWriteFlags));
  }
  // A block with all of `data` at the end of the file.
  std::uint32_t AppendBlock(const Bytes& data, std::uint32_t prev) {
    const auto offset = static_cast<std::uint32_t>(expected.size());
    Bytes header(kBlockHeaderSize);
    Put32(header, 0, kBlockMagic);
    Put32(header, 4, static_cast<std::uint32_t>(kBlockHeaderSize + data.size()));
    Put32(header, 8, static_cast<std::uint32_t>(kBlockHeaderSize + data.size()));
    Put32(header, 12, prev);
    expected.insert(expected.end(), header.begin(), header.end());
    expected.insert(expected.end(), data.begin(), data.end());
    return offset;
  }
  void LiveThrough() {
    tag_aoStream header;
    tag_aoStreamOffset offset;
    ASSERT_TRUE(folder->FindStream("b", header, offset));
    ASSERT_EQ(offset.headerOffset, places[0]);
    Stream child = OpenChild("b");
    ASSERT_TRUE(Append(*child, Pattern(10)));
    const std::uint32_t first = AppendBlock(Pattern(10), 0);
    record = StreamRecord("b", false, 10, first, first);
    ExpectFile("first block");

    ASSERT_TRUE(
        Append(*OpenChild("a"), Bytes(1)));  // so that b's block is not the last of the file
    expected = File();
    ASSERT_TRUE(Append(*child, Pattern(5)));
    const std::uint32_t second = AppendBlock(Pattern(5), first);
    Put32(expected, first + 16, second);
    record = StreamRecord("b", false, 15, first, second);
    ExpectFile("second block");
    ASSERT_TRUE(child->SetLength(4));
    record = StreamRecord("b", false, 4, first, second);
    ExpectFile("shortened");
    const std::string longName(60, 'x');
    ASSERT_TRUE(child->Rename(longName.c_str()));
    record = StreamRecord(longName, false, 4, first, second);
    ExpectFile("renamed");
    child.reset();
    folder.reset(storage->OpenStream("f", kWriteFlags));
    child = OpenChild(longName);
    ASSERT_TRUE(child);
    ASSERT_TRUE(child->Erase());
    record = StreamRecord(longName, false, 0, first, second);
    ExpectFile("erased");
    ASSERT_TRUE(Remove(child));
    record = StreamRecord("", false, 0, first, second);
    ExpectFile("removed");
    child.reset(folder->CreateStream("new", PackKind(false, 9), kWriteFlags));
    ASSERT_TRUE(child);
    record = StreamRecord("new", false, 0, first, second, 9);
    ExpectFile("taken again");
    folder.reset();
    storage = Open();
    folder.reset(storage->OpenStream("f", kWriteFlags));
    ASSERT_EQ(NamesIn(*folder), (std::vector<std::string>{"a", "new", "c"}));
    ASSERT_EQ(ReadValue(*OpenChild("c")), Pattern(34, 3));
  }

  Storage storage;
  Stream folder;
  Bytes expected, record;
  std::vector<std::uint32_t> places;  // of the record's bytes in the file
};

TEST_F(SplitRecords, AreRewrittenPieceByPieceAtEveryOffset) {
  for (std::uint32_t cut = 0; cut < kSlotSize; ++cut) {
    const std::uint32_t rest = kSlotSize - cut;
    const std::vector<std::uint32_t> shapes[] = {
        {kRecordStart + cut},                 // two blocks
        {kRecordStart + cut, rest / 2},       // three, or an empty one between
        {kRecordStart + cut, 0, 1, rest / 3}  // five, one of them empty
    };
    for (const std::vector<std::uint32_t>& rooms : shapes) {
      SCOPED_TRACE("cut at " + std::to_string(cut) + " in " + std::to_string(rooms.size() + 1) +
                   " blocks");
      ASSERT_NO_FATAL_FAILURE(Build(rooms));
      ASSERT_NO_FATAL_FAILURE(LiveThrough());
    }
  }
}

TEST_F(SplitRecords, CarryAFolderWithChildrenOfItsOwn) {
  Build({kRecordStart + 70, 4});
  Stream child = OpenChild("b");
  ASSERT_TRUE(Remove(child));
  child.reset(folder->CreateStream("b", kFolderKind, kWriteFlags));
  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(
        Append(*Stream(child->CreateStream(std::to_string(i).c_str(), kPlainKind, kWriteFlags)),
               Pattern(9)));
  }
  EXPECT_EQ(child->SetEntry("n", std::int32_t{7}), 1);
  child.reset();
  folder.reset();
  storage = Open();
  folder.reset(storage->OpenStream("f", kWriteFlags));
  child = OpenChild("b");
  EXPECT_EQ(NamesIn(*child).size(), 6U);
  EXPECT_EQ(child->GetEntry("n", std::int32_t{0}), 7);
  EXPECT_EQ("", CheckFile(path));
}

// The first block of a vacated record has room behind its `used`, and the folder was shortened to
// its count word: a new record that ran on into that room would push all that follows out of place.
TEST_F(SplitRecords, KeepTheirPlacesInAShortenedFolder) {
  const Bytes data = FolderPayload({StreamRecord("a", false, 0, 0), StreamRecord("", false, 0, 0),
                                    StreamRecord("c", false, 0, 0)});
  const std::uint32_t inFirst = kRecordStart + 65, room = inFirst + 15;
  FileBuilder builder;
  const std::uint32_t first = builder.AddChain(Slice(data, 0, inFirst), {room, 200});
  const std::uint32_t second = first + 20 + room;
  const Bytes rest = Slice(data, inFirst, data.size());
  std::copy(rest.begin(), rest.end(), builder.bytes.begin() + second + 20);
  Put32(builder.bytes, second + 4, static_cast<std::uint32_t>(20 + rest.size()));
  builder.PutSlot(6, StreamRecord("f", true, static_cast<std::uint32_t>(data.size()), first));
  storage = OpenBytes(builder.bytes);
  ASSERT_EQ("", CheckFile(path));
  folder.reset(storage->OpenStream("f", kWriteFlags));
  ASSERT_TRUE(folder->SetLength(4));
  Bytes chain = data;
  const Bytes made = StreamRecord("new", false, 0, 0);
  std::copy(made.begin(), made.end(), chain.begin() + kRecordStart);
  ASSERT_TRUE(Got(folder->CreateStream("new", kPlainKind, kWriteFlags)));
  EXPECT_EQ(Raw("f").chain, chain);
  folder.reset();
  storage = Open();
  folder.reset(storage->OpenStream("f", kWriteFlags));
  EXPECT_EQ(NamesIn(*folder), (std::vector<std::string>{"a", "new", "c"}));
}

// A count word in pieces: one byte in each block.
TEST_F(SplitRecords, AreFoundBehindACountWordInPieces) {
  Build({1, 1, 1, 1, 80, 17});
  ASSERT_TRUE(Got(folder->CreateStream("d", kPlainKind, kWriteFlags)));
  EXPECT_EQ(Get32(Raw("f").chain, 0), 4U);
  EXPECT_EQ(NamesIn(*folder), (std::vector<std::string>{"a", "b", "c", "d"}));
  EXPECT_EQ("", CheckFile(path));
}

class InheritedChains : public StorageFileTest {
 protected:
  static constexpr std::size_t kBlocks = 6;
  // A stream of several blocks with room for `room` bytes each, full of what looks like child
  // records.
  static void WriteGhosts(aoStream& stream, aoStream& other, std::uint32_t room) {
    Bytes ghosts =
        FolderPayload(std::vector<Bytes>(9, StreamRecord("ghost", false, 5, kFirstGhostBlock)));
    ghosts.resize(std::max<std::size_t>(ghosts.size(), kBlocks * room));
    for (std::size_t i = 0; i < kBlocks; ++i) {
      ASSERT_TRUE(Append(stream, Slice(ghosts, i * room, room)));
      ASSERT_TRUE(Append(other, Bytes(1)));
    }
    ASSERT_TRUE(Append(stream, Slice(ghosts, kBlocks * room, ghosts.size())));
  }
  static std::string NameOf(int i) { return "child" + std::to_string(i); }
  static bool Make(aoStream& folder, int i) {
    const Stream child(folder.CreateStream(NameOf(i).c_str(), kPlainKind, kWriteFlags));
    return child && Append(*child, Pattern(20, static_cast<unsigned>(i)));
  }
  // Children come, grow, are renamed and go.
  static void LiveIn(aoStream& folder) {
    ASSERT_TRUE(NamesIn(folder).empty());
    tag_aoStream header;
    tag_aoStreamOffset offset;
    ASSERT_FALSE(folder.FindStream("ghost", header, offset));
    for (int i = 0; i < 24; ++i) ASSERT_TRUE(Make(folder, i));
    for (int i = 0; i < 24; ++i) {
      Stream child(folder.OpenStream(NameOf(i).c_str(), kWriteFlags));
      ASSERT_TRUE(child);
      ASSERT_TRUE(i % 4 != 0 || Remove(child));
      ASSERT_TRUE(i % 4 != 1 || Append(*child, Pattern(30)));
      ASSERT_TRUE(i % 4 != 2 || child->Rename(NameOf(100 + i).c_str()));
    }
    for (int i = 24; i < 32; ++i) ASSERT_TRUE(Make(folder, i));  // six of them in vacated slots
  }
  static void CheckChildren(aoStream& folder) {
    for (int i = 1; i < 32; ++i) {
      if (i < 24 && i % 4 == 0) continue;
      const bool renamed = i < 24 && i % 4 == 2;
      const Stream child(folder.OpenStream(NameOf(renamed ? 100 + i : i).c_str(), kReadFlags));
      ASSERT_TRUE(child) << i;
      Bytes value = Pattern(20, static_cast<unsigned>(i)), more = Pattern(30);
      if (i < 24 && i % 4 == 1) value.insert(value.end(), more.begin(), more.end());
      ASSERT_EQ(ReadValue(*child), value) << i;
    }
    ASSERT_EQ(NamesIn(folder).size(), 26U);
  }
  static constexpr std::uint32_t kFirstGhostBlock = kEmptyFileSize;
};

TEST_F(InheritedChains, HoldAnyNumberOfChildrenWhateverTheirRoom) {
  for (std::uint32_t room = 1; room <= 84; ++room) {
    for (const bool atRoot : {true, false}) {
      SCOPED_TRACE("room " + std::to_string(room) + (atRoot ? " at the root" : " in a folder"));
      {
        const Storage storage = Create(room);
        const Stream other(storage->CreateStream("other", kWriteFlags));
        const Stream parent(storage->CreateStream("p", kFolderKind, kWriteFlags));
        const auto create = [&](const char* name, std::uint32_t kind) {
          return Stream(atRoot ? storage->CreateStream(name, kind, kWriteFlags)
                               : parent->CreateStream(name, kind, kWriteFlags));
        };
        Stream old = create("old", kPlainKind);
        ASSERT_NO_FATAL_FAILURE(WriteGhosts(*old, *other, room));
        const std::uint32_t chain = Raw(atRoot ? "old" : "p/old").firstBlock;
        ASSERT_TRUE(Remove(old));
        const Stream folder = create("f", kFolderKind);
        ASSERT_TRUE(folder);
        ASSERT_EQ(Raw(atRoot ? "f" : "p/f").firstBlock, chain);
        ASSERT_NO_FATAL_FAILURE(LiveIn(*folder));
        ASSERT_NO_FATAL_FAILURE(CheckChildren(*folder));
      }
      ASSERT_EQ("", CheckFile(path));
      const Storage storage = Open(room);
      const Stream parent(storage->OpenStream("p", kWriteFlags));
      const Stream folder(atRoot ? storage->OpenStream("f", kWriteFlags)
                                 : parent->OpenStream("f", kWriteFlags));
      ASSERT_TRUE(folder);
      ASSERT_NO_FATAL_FAILURE(CheckChildren(*folder));
      ASSERT_EQ(ReadValue(*Stream(storage->OpenStream("other", kReadFlags))), Bytes(kBlocks));
    }
  }
}

// A crash right before the count word: no record of the old stream is counted as a child.
TEST_F(InheritedChains, ShowNoGhostAtAnyWriteOfTheCreation) {
  const Storage storage = Create(50);
  const Stream other(storage->CreateStream("other", kWriteFlags));
  Stream old(storage->CreateStream("old", kWriteFlags));
  WriteGhosts(*old, *other, 100);
  ASSERT_TRUE(Remove(old));
  Watch watch;
  std::size_t states = 0;
  watch.BeforeEach([&](Call call, std::size_t) {
    if (call != Call::kWrite) return;
    const Storage seen = Storage(aoStorage::Open(path.c_str(), kStreamRead, 0));
    const Stream folder(seen->OpenStream("f", kReadFlags));
    EXPECT_TRUE(!folder || NamesIn(*folder).empty());
    ++states;
  });
  ASSERT_TRUE(Got(storage->CreateStream("f", kFolderKind, kWriteFlags)));
  EXPECT_GE(states, 3U);
}

}  // namespace
}  // namespace aostorage::testing
