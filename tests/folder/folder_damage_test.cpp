// Folders in damaged files: trees that lead back into themselves, count words that lie, bad slots.
#include <algorithm>
#include <functional>

#include "folder/storage_fixture.h"

namespace aostorage::testing {
namespace {

using Names = std::vector<std::string>;

class FolderDamage : public StorageFileTest {
 protected:
  FolderDamage() {
    builder.AddStream(6, "before", Pattern(40, 6));
    const std::uint32_t inside = builder.AddChain(Pattern(20, 2));
    builder.AddStream(7, "sound", FolderPayload({StreamRecord("x", false, 20, inside)}), {}, true);
  }
  // Offsets of the chain that the next AddChain makes.
  std::uint32_t Next() const { return static_cast<std::uint32_t>(builder.bytes.size()); }
  void AddFolder(const Bytes& data, const std::vector<std::uint32_t>& rooms = {}) {
    builder.AddStream(8, "f", data, rooms, true);
  }
  void OpenFolder() {
    folder.reset();
    storage = OpenBytes(builder.bytes);
    folder.reset(storage->OpenStream("f", kWriteFlags));
    ASSERT_TRUE(folder);
  }
  void ExpectOthersWhole() {
    folder.reset();
    storage = Open();
    const Stream sound(storage->OpenStream("sound", kReadFlags));
    ASSERT_TRUE(sound);
    const Stream inside(sound->OpenStream("x", kReadFlags));
    ASSERT_TRUE(inside);
    EXPECT_EQ(ReadValue(*inside), Pattern(20, 2));
    EXPECT_EQ(ReadValue(*Stream(storage->OpenStream("before", kReadFlags))), Pattern(40, 6));
  }

  FileBuilder builder;
  Storage storage;
  Stream folder;
};

TEST_F(FolderDamage, ATreeThatLeadsBackEndsInFailure) {
  const FileBuilder sound = builder;
  const std::function<void()> shapes[] = {
      [&] { AddFolder(FolderPayload({StreamRecord("self", true, 84, Next())})); },
      [&] {  // a child whose child is the folder
        const std::uint32_t child = Next(), top = child + 20 + 84;
        builder.AddChain(FolderPayload({StreamRecord("up", true, 84, top)}));
        AddFolder(FolderPayload({StreamRecord("child", true, 84, child)}));
      },
      [&] {  // a child whose chain begins in the middle of the folder's, with its own record in it
        const std::uint32_t top = Next(), middle = top + 20 + 80;
        Bytes data =
            FolderPayload({StreamRecord("a", false, 0, 1), StreamRecord("part", true, 84, middle)});
        AddFolder(data, {80});  // the last word of the first record, 1, is the count of the part
      },
      [&] {  // a chain in a circle, with a count above it
        const std::uint32_t top = Next();
        AddFolder(FolderPayload({StreamRecord("a", false, 0, 0)}));
        Put32(builder.bytes, top + 16, top);
        Put32(builder.bytes, top + 20, 1000000);
      },
  };
  int shape = 0;
  for (const auto& build : shapes) {
    SCOPED_TRACE("shape " + std::to_string(shape++));
    builder = sound;
    build();
    OpenFolder();
    std::vector<Stream> levels;
    Stream child(storage->OpenStream("f", kWriteFlags));
    while (child && levels.size() < 100) {
      NamesIn(*child);
      levels.push_back(std::move(child));
      std::uint32_t cookie = 0;
      child.reset(levels.back()->OpenStreamFirst(cookie, kWriteFlags));
      while (child && child->IsFolder() == 0)
        child.reset(levels.back()->OpenStreamNext(cookie, kWriteFlags));
    }
    EXPECT_LT(levels.size(), 4U);
    while (!levels.empty()) levels.pop_back();
    folder->ClearFolder();
    const bool removed = Remove(folder);
    EXPECT_TRUE(removed || LastError() == Error::kDamaged);
    ExpectOthersWhole();
  }
}

TEST_F(FolderDamage, OneChainUnderTwoNamesIsRemovedInBoundedTime) {
  // Each level holds two records of the one folder below: 2^40 ways down.
  std::uint32_t below = 0;
  for (int level = 0; level < 40; ++level) {
    const std::uint32_t chain = Next();
    builder.AddChain(FolderPayload(
        {StreamRecord("l", below != 0, 0, below), StreamRecord("r", below != 0, 0, below)}));
    below = chain;
  }
  AddFolder(FolderPayload({StreamRecord("l", true, 0, below), StreamRecord("r", true, 0, below)}));
  OpenFolder();
  EXPECT_TRUE(Remove(folder));
  ExpectOthersWhole();
}

TEST_F(FolderDamage, CountWordsThatLieServeTheSlotsThatAreThere) {
  struct Row {
    std::uint32_t count;
    std::size_t cutBytes;  // off the last slot
    Names found;           // by name
    std::uint32_t newSlot;
  };
  const Row rows[] = {
      {2, 0, {"a", "b"}, 2},
      {1, 0, {"a"}, 1},
      {0, 0, {}, 0},
      {3, 0, {"a", "b"}, 2},
      {2, 1, {"a"}, 1},
      {5, 79, {"a"}, 1},
      {0x7FFFFFFF, 0, {"a", "b"}, 2},
      {0x80000000, 0, {"a", "b"}, 2},
      {0xFFFFFFFF, 40, {"a"}, 1},
  };
  const FileBuilder sound = builder;
  for (const Row& row : rows) {
    SCOPED_TRACE(std::to_string(row.count) + " less " + std::to_string(row.cutBytes));
    builder = sound;
    Bytes data = FolderPayload({StreamRecord("a", false, 0, 0), StreamRecord("b", false, 0, 0)});
    Put32(data, 0, row.count);
    data.resize(data.size() - row.cutBytes);
    AddFolder(data);
    OpenFolder();
    Names found;
    for (const char* name : {"a", "b"}) {
      if (Got(folder->OpenStream(name, kReadFlags))) found.emplace_back(name);
    }
    EXPECT_EQ(found, row.found);
    EXPECT_EQ(folder->GetNumChildren(), row.count);
    const bool negative = row.count == 0 || row.count >= 0x80000000;
    EXPECT_EQ(NamesIn(*folder).empty(), negative) << "a walk takes the count as signed";
    const Stream made(folder->CreateStream("new", kPlainKind, kWriteFlags));
    ASSERT_TRUE(made);
    EXPECT_EQ(Slice(Raw("f").chain, 4 + row.newSlot * kSlotSize, kSlotSize),
              StreamRecord("new", false, 0, 0));
    EXPECT_TRUE(Append(*made, Pattern(10)));
    ExpectOthersWhole();
  }
}

TEST_F(FolderDamage, AWalkBeginsWithinTheCountAndGoesOnBehindIt) {
  const Bytes vacated = StreamRecord("", false, 0, 0), b = StreamRecord("b", false, 0, 0);
  Bytes data = FolderPayload({vacated, b, b});
  std::uint32_t cookie = 0;
  Put32(data, 0, 1);
  AddFolder(data);
  OpenFolder();
  EXPECT_FALSE(Got(folder->OpenStreamFirst(cookie, kReadFlags)));
  EXPECT_EQ(cookie, 84U);
  EXPECT_TRUE(NamesIn(*folder).empty());
  EXPECT_TRUE(Got(folder->OpenStreamNext(cookie, kReadFlags)));
  Put32(builder.bytes, builder.bytes.size() - data.size(), 2);
  OpenFolder();
  EXPECT_EQ(NamesIn(*folder), (Names{"b", "b"}));
}

TEST_F(FolderDamage, BadSlotsStopWhatWouldRelyOnThem) {
  Bytes noMagic = StreamRecord("bad", false, 0, 0),
        endless = StreamRecord(std::string(60, 'e'), false, 0, 0);
  Put32(noMagic, 0, 0);
  endless[64] = 'e';
  AddFolder(FolderPayload({StreamRecord("a", false, 0, 0), endless, noMagic,
                           StreamRecord("", false, 0, 0), StreamRecord("c", false, 0, 0)}));
  OpenFolder();
  EXPECT_FALSE(Got(folder->CreateStream("new", kPlainKind, kWriteFlags)))
      << "a bad slot before the vacated one";
  EXPECT_EQ(LastError(), Error::kDamaged);
  EXPECT_EQ(folder->SetEntry("new", std::int32_t{1}), 0);
  EXPECT_EQ(NamesIn(*folder), (Names{"a"}));
  EXPECT_TRUE(Got(folder->OpenStream("c", kReadFlags)))
      << "a lookup does not ask for the magic word";
  EXPECT_EQ(File(), builder.bytes);
  folder->ClearFolder();
  EXPECT_FALSE(Got(folder->OpenStream("a", kReadFlags)));
  EXPECT_TRUE(Got(folder->OpenStream("c", kReadFlags)));
  ExpectOthersWhole();
}

TEST_F(FolderDamage, AFolderWithoutItsCountHasNoChildrenAndTakesNone) {
  for (const std::size_t bytes : {0U, 3U}) {
    const FileBuilder sound = builder;
    AddFolder(Bytes(bytes, 1));
    if (bytes == 0) builder.PutSlot(8, StreamRecord("f", true, 0, 0));
    OpenFolder();
    std::uint32_t cookie = 77;
    EXPECT_FALSE(Got(folder->OpenStreamFirst(cookie, kReadFlags)));
    EXPECT_EQ(cookie, 77U);
    EXPECT_FALSE(Got(folder->CreateStream("a", kPlainKind, kWriteFlags)));
    EXPECT_FALSE(Got(folder->OpenStream("a", kReadFlags)));
    EXPECT_TRUE(NamesIn(*folder).empty());
    EXPECT_EQ(folder->GetNumChildren(), 0U);
    EXPECT_EQ(File(), builder.bytes);
    ExpectOthersWhole();
    builder = sound;
  }
}

}  // namespace
}  // namespace aostorage::testing
