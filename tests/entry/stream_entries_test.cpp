// Entries in a folder: payload bytes, results, share rules, cost.
#include <type_traits>

#include "folder/storage_fixture.h"

namespace aostorage::testing {
namespace {

bool operator==(const tagSIZE& a, const tagSIZE& b) { return a.cx == b.cx && a.cy == b.cy; }
bool operator==(const tagRECT& a, const tagRECT& b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

class StreamEntries : public StorageFileTest {
 protected:
  void SetUp() override {
    storage = Create();
    folder.reset(storage->CreateStream("f", kFolderKind, kWriteFlags));
  }
  void Put(const char* name, const Bytes& value) {
    const Stream child(folder->OpenOrCreateStream(name, std::int32_t{0}));
    ASSERT_EQ(child->Write(value.data(), static_cast<std::uint32_t>(value.size())), value.size());
  }
  Bytes Value(const std::string& name) const { return Raw("f/" + name).Value(); }
  // Every read gives the default; with what `entries` is and for any reason.
  void ExpectDefaults(aoStream& entries, const char* name) {
    EXPECT_EQ(entries.GetEntry(name, std::int32_t{-7}), -7);
    EXPECT_EQ(entries.GetEntry(name, std::uint32_t{7}), 7U);
    EXPECT_EQ(entries.GetEntry(name, std::int64_t{-8}), -8);
    EXPECT_EQ(entries.GetEntry(name, 2.5), 2.5);
    EXPECT_EQ(entries.GetEntry(name, "default"), "default");
    EXPECT_EQ(entries.GetEntry(name, static_cast<const char*>(nullptr)), "");
    tagSIZE size{1, 2};
    tagRECT rect{1, 2, 3, 4};
    const tagSIZE defaultSize{5, 6};
    const tagRECT defaultRect{5, 6, 7, 8};
    EXPECT_EQ(entries.GetEntry(name, &size, static_cast<const tagSIZE*>(nullptr)), &size);
    EXPECT_EQ(entries.GetEntry(name, &rect, static_cast<const tagRECT*>(nullptr)), &rect);
    EXPECT_TRUE((size == tagSIZE{1, 2}) && (rect == tagRECT{1, 2, 3, 4}))
        << "no default: as it was";
    entries.GetEntry(name, &size, &defaultSize);
    entries.GetEntry(name, &rect, &defaultRect);
    EXPECT_TRUE(size == defaultSize && rect == defaultRect);
  }
  // Every write is refused and leaves the file as it is.
  void ExpectRefused(aoStream& entries, const char* name) {
    const Bytes before = File();
    const tagSIZE size{1, 2};
    const tagRECT rect{1, 2, 3, 4};
    EXPECT_EQ(entries.SetEntry(name, std::int32_t{1}), 0);
    EXPECT_EQ(entries.SetEntry(name, std::uint32_t{1}), 0);
    EXPECT_EQ(entries.SetEntry(name, std::int64_t{1}), 0);
    EXPECT_EQ(entries.SetEntry(name, 1.0), 0);
    EXPECT_EQ(entries.SetEntry(name, "text"), 0);
    EXPECT_EQ(entries.SetEntry(name, &size), 0);
    EXPECT_EQ(entries.SetEntry(name, &rect), 0);
    EXPECT_EQ(entries.SetEntry(name, "bytes", 5), 0);
    EXPECT_EQ(entries.SetEntryEraseOld(name, "bytes", 5), 0);
    EXPECT_EQ(entries.SetEntry(name, "bytes", 0), 1) << "nothing to do, whatever the name";
    EXPECT_EQ(entries.SetEntryEraseOld(name, "bytes", 0), 1);
    EXPECT_EQ(File(), before);
  }
  static int ErasedSize(aoStream& entries, const char* name, Bytes& value) {
    std::uint8_t mark = 0;
    std::uint8_t* buffer = &mark;
    std::uint32_t size = 99;
    const int result = entries.GetEntryErasedOld(name, &buffer, &size);
    value.assign(buffer, buffer + size);
    EXPECT_EQ(buffer == nullptr, size == 0);
    aoStream::FreeBuffer(buffer);
    return result;
  }

  Storage storage;
  Stream folder;
};

TEST_F(StreamEntries, StandInTheFileByteForByte) {
  const auto expect = [&](int set, const Bytes& bytes, const auto& readsBack) {
    EXPECT_EQ(set, 1);
    EXPECT_EQ(Value("e"), bytes);
    EXPECT_TRUE(readsBack(*folder)) << bytes.size();
    EXPECT_EQ(folder->IsStreamOpen("e"), nullptr) << "the call leaves no trace in the registry";
    Stream child(folder->OpenStream("e", kWriteFlags));
    ASSERT_TRUE(Remove(child));  // so that the next value finds an old chain
  };
  const auto typed = [&](auto value, const Bytes& bytes) {
    expect(folder->SetEntry("e", value), bytes,
           [&](aoStream& f) { return f.GetEntry("e", decltype(value){}) == value; });
  };
  const auto record = [&](const auto& value, const Bytes& bytes) {
    expect(folder->SetEntry("e", &value), bytes, [&](aoStream& f) {
      std::decay_t<decltype(value)> out{};
      return f.GetEntry("e", &out, &out) == &out && out == value;
    });
  };
  const auto text = [&](const char* value, const Bytes& bytes, const std::string& back) {
    expect(folder->SetEntry("e", value), bytes,
           [&](aoStream& f) { return f.GetEntry("e", "default") == back; });
  };
  record(tagRECT{1, -1, 2, 0x01020304}, {1, 0, 0, 0, 255, 255, 255, 255, 2, 0, 0, 0, 4, 3, 2, 1});
  typed(std::int32_t{-2}, {0xFE, 0xFF, 0xFF, 0xFF});
  typed(std::uint32_t{0x89ABCDEF}, {0xEF, 0xCD, 0xAB, 0x89});
  typed(std::int64_t{0x0102030405060708}, {8, 7, 6, 5, 4, 3, 2, 1});
  typed(-1.5, {0, 0, 0, 0, 0, 0, 0xF8, 0xBF});
  record(tagSIZE{-2, 3}, {0xFE, 0xFF, 0xFF, 0xFF, 3, 0, 0, 0});
  text("abc", {3, 0, 'a', 'b', 'c'}, "abc");
  text("", {0, 0}, "");
  text(nullptr, {0, 0}, "");
  expect(folder->SetEntryEraseOld("e", "xyz", 3) - 2, {'x', 'y', 'z'}, [](aoStream& f) {
    Bytes value;
    return ErasedSize(f, "e", value) == 1 && value == Bytes{'x', 'y', 'z'};
  });
  EXPECT_EQ("", CheckFile(path));
}

TEST_F(StreamEntries, GiveTheDefaultAndRefuseWhereThereIsNoChild) {
  const Stream plain(storage->CreateStream("plain", kWriteFlags));
  ASSERT_TRUE(Append(*plain, FolderPayload({StreamRecord("e", false, 0, 0)})));
  const Stream inTheWay(folder->CreateStream("sub", kFolderKind, kWriteFlags));
  ASSERT_EQ(inTheWay->SetEntry("inside", std::int32_t{1}), 1);
  ASSERT_EQ(folder->SetEntry("held", std::int32_t{1}), 1);
  const Stream held(folder->OpenStream("held", kStreamRead | kShareRead));
  const std::string tooLong(61, 'n');
  ExpectDefaults(*folder, "absent");
  struct Row {
    aoStream* entries;
    const char* name;
  };
  for (const Row& row : {Row{plain.get(), "e"},
                         {folder.get(), "sub"},
                         {folder.get(), "held"},
                         {folder.get(), nullptr},
                         {folder.get(), ""},
                         {folder.get(), tooLong.c_str()}}) {
    SCOPED_TRACE(row.name == nullptr ? "null" : row.name);
    ExpectDefaults(*row.entries, row.name);
    ExpectRefused(*row.entries, row.name);
    if (row.name != nullptr && row.name == std::string("sub")) continue;
    Bytes value;
    EXPECT_EQ(ErasedSize(*row.entries, row.name == nullptr ? "" : row.name, value), 0);
    EXPECT_EQ(row.entries->GetEntryErasedOld(row.name, &value, 0), 0);
  }
  {
    Watch watch;
    ExpectDefaults(*plain, "e");
    EXPECT_EQ(watch.Total(), 0U) << "a plain stream is not even read";
  }
  Bytes value;
  EXPECT_EQ(ErasedSize(*folder, "sub", value), 1) << "the bytes of a folder are given";
  EXPECT_EQ(value, Raw("f/sub").Value());
  const Stream otherObject(
      storage->OpenStream("f", kReadFlags));  // a registry of its own, and no flag is asked
  EXPECT_EQ(otherObject->GetEntry("held", std::int32_t{0}), 1);
  EXPECT_EQ(otherObject->SetEntry("held", std::int32_t{2}), 1);
}

TEST_F(StreamEntries, NullPointersFailAndChangeNothing) {
  ASSERT_EQ(folder->SetEntry("e", std::int32_t{1}), 1);
  const Bytes before = File();
  EXPECT_EQ(folder->SetEntry("e", static_cast<const tagSIZE*>(nullptr)), 0);
  EXPECT_EQ(folder->SetEntry("new", static_cast<const tagRECT*>(nullptr)), 0);
  EXPECT_EQ(folder->SetEntry("e", nullptr, 3), 0);
  EXPECT_EQ(folder->SetEntryEraseOld("new", nullptr, 3), 0);
  EXPECT_EQ(folder->SetEntryEraseOld("new", nullptr, 0), 1);
  EXPECT_EQ(
      folder->GetEntry("e", static_cast<tagSIZE*>(nullptr), static_cast<const tagSIZE*>(nullptr)),
      nullptr);
  EXPECT_EQ(folder->GetEntryErasedOld("e", nullptr, 4), 0);
  EXPECT_EQ(folder->GetEntryErasedOld("e", nullptr, std::uint32_t{0}), 1);
  std::uint32_t size = 9;
  EXPECT_EQ(folder->GetEntryErasedOld("e", static_cast<std::uint8_t**>(nullptr), &size), 0);
  EXPECT_EQ(File(), before);
}

TEST_F(StreamEntries, TypedValuesOverwriteAndDoNotCut) {
  ASSERT_EQ(folder->SetEntry("e", std::int64_t{0x1111111122222222}), 1);
  ASSERT_EQ(folder->SetEntry("e", std::int32_t{3}), 1);
  EXPECT_EQ(folder->GetEntry("e", std::int64_t{0}), 0x1111111100000003);
  EXPECT_EQ(Value("e").size(), 8U);
  tagRECT rect{1, 2, 3, 4};
  EXPECT_EQ(folder->GetEntry("e", &rect, static_cast<const tagRECT*>(nullptr))->left, 1)
      << "too short";
  ASSERT_EQ(folder->SetEntry("s", "a long string"), 1);
  ASSERT_EQ(folder->SetEntry("s", "short"), 1);
  EXPECT_EQ(folder->GetEntry("s", ""), "short");
  EXPECT_EQ(Value("s").size(), 15U);
  ASSERT_EQ(folder->SetEntry("n", std::int32_t{1}), 1);
  EXPECT_EQ(folder->GetEntry("n", std::int64_t{-5}), -5);
  Stream erased(folder->OpenStream("e", kWriteFlags));
  ASSERT_TRUE(erased->Erase());
  erased.reset();
  EXPECT_EQ(folder->GetEntry("e", std::int32_t{0}), 3) << "a read does not look at the length";
  Bytes value{1};
  EXPECT_EQ(ErasedSize(*folder, "e", value), 1);
  EXPECT_TRUE(value.empty());
}

TEST_F(StreamEntries, StringsHoldWhatTheirCountPromises) {
  for (const std::size_t size : {1U, 255U, 256U, 257U, 65534U, 65535U, 65536U, 65540U}) {
    const std::string text(size, 's');
    ASSERT_EQ(folder->SetEntry("long", text.c_str()), 1);
    EXPECT_EQ(folder->GetEntry("long", "d"), text.substr(0, size & 0xFFFF)) << size;
  }
  Put("empty", {});
  EXPECT_EQ(folder->GetEntry("empty", "d"), "") << "no byte at all is the empty string";
  EXPECT_EQ(folder->GetEntry("empty", std::int32_t{4}), 4);
  Put("promise", {5, 0, 'a', 'b'});
  EXPECT_EQ(folder->GetEntry("promise", "d"), std::string("ab\0\0\0", 5));
  Put("large", {0xFF, 0xFF, 'a'});
  EXPECT_EQ(folder->GetEntry("large", "d").size(), 65535U);
  Put("half", {5});
  EXPECT_EQ(folder->GetEntry("half", "d"), "");
}

// Two blocks; the value lies in the first, and the second cannot be read.
TEST_F(StreamEntries, DamageBehindTheValueDoesNotReachIt) {
  FileBuilder builder;
  const std::uint32_t chain = builder.AddChain({3, 0, 'a', 'b', 'c', 0, 0, 0, 'o', 'l', 'd'}, {8});
  builder.AddStream(6, "f", FolderPayload({StreamRecord("e", false, 11, chain)}), {}, true);
  Put32(builder.bytes, chain + 28, 0);
  folder.reset();
  storage = OpenBytes(builder.bytes);
  folder.reset(storage->OpenStream("f", kWriteFlags));
  EXPECT_EQ(folder->GetEntry("e", std::int64_t{0}), 0x636261'0003);
  EXPECT_EQ(folder->GetEntry("e", "d"), "abc");
}

TEST_F(StreamEntries, LogsGrowAndPointToTheNewestValue) {
  ASSERT_EQ(folder->SetEntry("log", Pattern(10).data(), 10), 1);
  ASSERT_EQ(folder->SetEntry("log", Pattern(5, 2).data(), 5), 1);
  Bytes expected{14, 0, 0, 0};
  for (const Bytes& value : {Pattern(10), Pattern(5, 2)})
    expected.insert(expected.end(), value.begin(), value.end());
  EXPECT_EQ(Value("log"), expected);
  Bytes whole;
  EXPECT_EQ(ErasedSize(*folder, "log", whole), 1);
  EXPECT_EQ(whole, expected);

  struct Row {
    std::size_t oldLength;
    std::uint32_t prefix;
  };
  for (const Row& row : {Row{0, 4}, {1, 4}, {3, 4}, {4, 4}, {5, 5}, {40, 40}}) {
    SCOPED_TRACE(row.oldLength);
    Put("old", Pattern(40, 3));
    Stream child(folder->OpenStream("old", kWriteFlags));
    ASSERT_TRUE(child->SetLength(static_cast<std::uint32_t>(row.oldLength)));
    child.reset();
    ASSERT_EQ(folder->SetEntry("old", "new", 3), 1);
    const Bytes value = Value("old");
    ASSERT_EQ(value.size(), row.prefix + 3);
    EXPECT_EQ(Get32(value, 0), row.prefix);
    EXPECT_EQ(Slice(value, row.prefix, 3), (Bytes{'n', 'e', 'w'}));
    child.reset(folder->OpenStream("old", kWriteFlags));
    ASSERT_TRUE(Remove(child));
  }
}

TEST_F(StreamEntries, ErasedValuesEndWhereTheyEnd) {
  const Bytes large = Pattern(3000);
  ASSERT_EQ(folder->SetEntryEraseOld("e", large.data(), 3000), 3000);
  ASSERT_EQ(folder->SetEntryEraseOld("e", large.data() + 7, 5), 5);
  Bytes value;
  EXPECT_EQ(ErasedSize(*folder, "e", value), 1);
  EXPECT_EQ(value, Slice(large, 7, 5));
  EXPECT_EQ(Raw("f/e").blocks[0].used, 25U);
  struct Row {
    std::uint32_t size;
    int result;
  };
  for (const Row& row : {Row{0, 1}, {1, 1}, {5, 1}, {6, 0}, {3000, 0}}) {
    Bytes buffer(3000, 0x77);
    EXPECT_EQ(folder->GetEntryErasedOld("e", buffer.data(), row.size), row.result) << row.size;
    Bytes expected(3000, 0x77);
    if (row.result == 1) std::copy_n(large.begin() + 7, row.size, expected.begin());
    EXPECT_EQ(buffer, expected) << row.size;
  }
  PatchFile32(path, Raw("f/e").recordOffset + 68, 26);  // a length that the chain does not hold
  folder.reset();
  storage = Open();
  folder.reset(storage->OpenStream("f", kWriteFlags));
  EXPECT_EQ(ErasedSize(*folder, "e", value), 0);
}

TEST_F(StreamEntries, CostTwoAndThreeCalls) {
  const std::string text(200, 't');
  ASSERT_EQ(folder->SetEntry("text", text.c_str()), 1);
  for (int i = 0; i < 200; ++i)
    ASSERT_EQ(folder->SetEntry(std::to_string(i).c_str(), std::int64_t{i}), 1);
  for (int i = 0; i < 200; i += 37) {
    const std::string name = std::to_string(i);
    Watch watch;
    ASSERT_EQ(folder->GetEntry(name.c_str(), std::int64_t{-1}), i);
    EXPECT_EQ(watch.Total(), 2U) << watch.Text();
    ASSERT_EQ(folder->SetEntry(name.c_str(), std::int64_t{i + 1}), 1);
    EXPECT_LE(watch.Total(), 5U) << watch.Text();
  }
  Watch watch;
  ASSERT_EQ(folder->GetEntry("text", ""), text);
  EXPECT_EQ(watch.Total(), 2U) << watch.Text();
  ASSERT_EQ(folder->SetEntry("text", text.c_str()), 1);
  EXPECT_LE(watch.Total(), 5U) << watch.Text();
  ASSERT_EQ(folder->SetEntry("fresh", std::int32_t{1}), 1);
  EXPECT_LE(watch.Total(), 14U) << watch.Text();
}

// What lies last in the file is read as cheaply as the rest.
TEST_F(StreamEntries, CostNoMoreAtTheEndOfTheFile) {
  ASSERT_EQ(folder->SetEntry("number", std::int32_t{1}), 1);
  ASSERT_EQ(folder->SetEntry("text", "last"), 1);
  Watch watch;
  ASSERT_EQ(folder->GetEntry("text", ""), "last");
  EXPECT_EQ(watch.Total(), 2U) << watch.Text();
}

}  // namespace
}  // namespace aostorage::testing
