// Child records that lie across blocks. Whole file images are compared, so that no byte outside a
// record changes unseen.
#include <algorithm>

#include "folder/storage_fixture.h"

namespace aostorage::testing {
namespace {

constexpr std::uint32_t kRecordStart = 4 + kSlotSize;  // of slot 1, in the folder's data

// A folder with children a, b, c whose record of b lies over several blocks, and streams beside it.
class SplitRecords : public OneStorageTest {
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
    folder.reset();
    Load(builder);
    folder = Root("f");
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
    folder = Root("f");
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
    Reopen();
    folder = Root("f");
    ASSERT_EQ(NamesIn(*folder), (std::vector<std::string>{"a", "new", "c"}));
    ASSERT_EQ(ReadValue(*OpenChild("c")), Pattern(34, 3));
  }

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
  Load(builder);
  ASSERT_EQ("", CheckFile(path));
  folder = Root("f");
  ASSERT_TRUE(folder->SetLength(4));
  Bytes chain = data;
  const Bytes made = StreamRecord("new", false, 0, 0);
  std::copy(made.begin(), made.end(), chain.begin() + kRecordStart);
  ASSERT_TRUE(Got(folder->CreateStream("new", kPlainKind, kWriteFlags)));
  EXPECT_EQ(Raw("f").chain, chain);
}

// A count word in pieces: one byte in each block.
TEST_F(SplitRecords, AreFoundBehindACountWordInPieces) {
  Build({1, 1, 1, 1, 80, 17});
  ASSERT_TRUE(Got(folder->CreateStream("d", kPlainKind, kWriteFlags)));
  EXPECT_EQ(Get32(Raw("f").chain, 0), 4U);
  EXPECT_EQ(NamesIn(*folder), (std::vector<std::string>{"a", "b", "c", "d"}));
  EXPECT_EQ("", CheckFile(path));
}

}  // namespace
}  // namespace aostorage::testing
