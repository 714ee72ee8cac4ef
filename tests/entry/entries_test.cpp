// Entries in a folder and at the root, there by the name map or in the reserved slots: payload
// bytes, results, share rules, cost.
#include <type_traits>

#include "folder/storage_fixture.h"
#include "support/check_file.h"

namespace aostorage::testing {
namespace {

bool operator==(const tagSIZE& a, const tagSIZE& b) { return a.cx == b.cx && a.cy == b.cy; }
bool operator==(const tagRECT& a, const tagRECT& b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

class Entries : public OneStorageTest {
 protected:
  void SetUp() override {
    storage = Create();
    folder = MakeRoot("f", kFolderKind);
  }
  void Put(const char* name, const Bytes& value) {
    const Stream child(folder->OpenOrCreateStream(name, std::int32_t{0}));
    ASSERT_EQ(child->Write(value.data(), static_cast<std::uint32_t>(value.size())), value.size());
  }
  Bytes Value(const std::string& name) const { return Raw("f/" + name).Value(); }
  void RemoveEntry(const char* name) const {
    Stream child(folder->OpenStream(name, kWriteFlags));
    ASSERT_TRUE(Remove(child));
  }

  // Sets, looks at the bytes, reads back; the next value finds an old chain.
  template <class Given>
  void ExpectInFolder(const Given& value, const Bytes& bytes) {
    EXPECT_EQ(folder->SetEntry("e", value), 1);
    EXPECT_EQ(Value("e"), bytes);
    EXPECT_EQ(folder->IsStreamOpen("e"), nullptr) << "the call leaves no trace in the registry";
    if constexpr (std::is_pointer_v<Given> && !std::is_same_v<Given, const char*>) {
      std::remove_const_t<std::remove_pointer_t<Given>> out{};
      EXPECT_EQ(folder->GetEntry("e", &out, &out), &out);
      EXPECT_TRUE(out == *value);
    }
    RemoveEntry("e");
  }
  template <class Given, class Read>
  void Expect(const Given& value, const Bytes& bytes, const Read& back, const Given& none) {
    ExpectInFolder(value, bytes);
    folder->SetEntry("again", value);
    EXPECT_EQ(folder->GetEntry("again", none), back);
    if constexpr (!std::is_same_v<Given, std::uint32_t>) ExpectAtRoot(value, bytes, back, none);
  }
  template <class Given, class Read>
  void ExpectAtRoot(const Given& value, const Bytes& bytes, const Read& back, const Given& none) {
    EXPECT_EQ(storage->SetEntry("e", value) + storage->SetEntryFast("fast", value), 2);
    EXPECT_EQ(Raw("e").Value(), bytes);
    EXPECT_EQ(Raw("fast").Value(), bytes);
    EXPECT_EQ(Raw("fast").recordOffset, SlotOffset(0));
    EXPECT_EQ(Raw("e").recordOffset, SlotOffset(7));
    const Storage mapped = Open(), unmapped = OpenFast();
    for (aoStorage* reader : {storage.get(), mapped.get()}) {
      EXPECT_EQ(reader->GetEntry("e", none), back);
      EXPECT_EQ(reader->GetEntry("fast", none), back);
    }
    for (aoStorage* reader : {storage.get(), mapped.get(), unmapped.get()})
      EXPECT_EQ(reader->GetEntryFast("fast", none), back);
    EXPECT_EQ(unmapped->GetEntry("e", none), none) << "the map is empty";
    EXPECT_EQ(storage->GetEntryFast("e", none), none) << "not in a reserved slot";
    for (const char* name : {"e", "fast"}) {
      Stream stream = Root(name);
      ASSERT_TRUE(Remove(stream));
    }
  }

  // Every read gives the default; with what `entries` is and for any reason.
  template <class Holder>
  void ExpectDefaults(Holder& entries, const char* name) {
    const auto each = [&](const auto& get) {
      EXPECT_EQ(get(std::int32_t{-7}), -7);
      EXPECT_EQ(get(std::int64_t{-8}), -8);
      EXPECT_EQ(get(2.5), 2.5);
      EXPECT_EQ(get("default"), "default");
      EXPECT_EQ(get(static_cast<const char*>(nullptr)), "");
    };
    each([&](auto value) { return entries.GetEntry(name, value); });
    if constexpr (std::is_same_v<Holder, aoStorage>) {
      each([&](auto value) { return entries.GetEntryFast(name, value); });
    } else {
      EXPECT_EQ(entries.GetEntry(name, std::uint32_t{7}), 7U);
      tagSIZE size{1, 2};
      tagRECT rect{1, 2, 3, 4};
      const tagSIZE defaultSize{5, 6};
      const tagRECT defaultRect{5, 6, 7, 8};
      EXPECT_EQ(entries.GetEntry(name, &size, static_cast<const tagSIZE*>(nullptr)), &size);
      EXPECT_EQ(entries.GetEntry(name, &rect, static_cast<const tagRECT*>(nullptr)), &rect);
      EXPECT_TRUE((size == tagSIZE{1, 2}) && (rect == tagRECT{1, 2, 3, 4})) << "as it was";
      entries.GetEntry(name, &size, &defaultSize);
      entries.GetEntry(name, &rect, &defaultRect);
      EXPECT_TRUE(size == defaultSize && rect == defaultRect);
    }
  }
  // Every write is refused and leaves the file as it is.
  template <class Holder>
  void ExpectRefused(Holder& entries, const char* name) {
    const Bytes before = File();
    const auto each = [](const auto& set) {
      EXPECT_EQ(set(std::int32_t{1}) + set(std::int64_t{1}) + set(1.0) + set("text"), 0);
    };
    each([&](auto value) { return entries.SetEntry(name, value); });
    if constexpr (std::is_same_v<Holder, aoStorage>) {
      each([&](auto value) { return entries.SetEntryFast(name, value); });
    } else {
      const tagSIZE size{1, 2};
      const tagRECT rect{1, 2, 3, 4};
      EXPECT_EQ(entries.SetEntry(name, std::uint32_t{1}) + entries.SetEntry(name, &size) +
                    entries.SetEntry(name, &rect) + entries.SetEntry(name, "bytes", 5),
                0);
      EXPECT_EQ(entries.SetEntry(name, "bytes", 0), 1) << "nothing to do, whatever the name";
    }
    EXPECT_EQ(entries.SetEntryEraseOld(name, "bytes", 5), 0);
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

  Stream folder;
  const std::string tooLong = std::string(61, 'n');
};

TEST_F(Entries, StandInTheFileByteForByte) {
  const tagRECT rect{1, -1, 2, 0x01020304};
  const tagSIZE size{-2, 3};
  ExpectInFolder(&rect, {1, 0, 0, 0, 255, 255, 255, 255, 2, 0, 0, 0, 4, 3, 2, 1});
  ExpectInFolder(&size, {0xFE, 0xFF, 0xFF, 0xFF, 3, 0, 0, 0});
  Expect(std::int32_t{-2}, {0xFE, 0xFF, 0xFF, 0xFF}, -2, 9);
  Expect(std::uint32_t{0x89ABCDEF}, {0xEF, 0xCD, 0xAB, 0x89}, 0x89ABCDEF, 9U);
  Expect(std::int64_t{0x0102030405060708}, {8, 7, 6, 5, 4, 3, 2, 1}, 0x0102030405060708,
         std::int64_t{9});
  Expect(-1.5, {0, 0, 0, 0, 0, 0, 0xF8, 0xBF}, -1.5, 9.0);
  const char* const none = "default";
  for (const char* text : {"abc", "", static_cast<const char*>(nullptr)}) {
    const std::string back = text == nullptr ? "" : text;
    Bytes bytes{static_cast<std::uint8_t>(back.size()), 0};
    bytes.insert(bytes.end(), back.begin(), back.end());
    Expect(text, bytes, back, none);
  }
  EXPECT_EQ("", CheckFile(path));
}

TEST_F(Entries, GiveTheDefaultAndRefuseWhereThereIsNoValue) {
  const Stream plain = MakeRoot("plain"), root = MakeRoot("folder", kFolderKind);
  ASSERT_TRUE(Append(*plain, FolderPayload({StreamRecord("e", false, 0, 0)})));
  ASSERT_TRUE(Got(storage->CreateStreamFast("fastFolder", kFolderKind, kWriteFlags)));
  ASSERT_EQ(storage->SetEntry("held", 1) + storage->SetEntryFast("fastHeld", 1), 2);
  const Stream rootHeld = Root("held", kStreamRead | kShareRead);
  const Stream fastHeld = Root("fastHeld", kWriteFlags | kExclusive);
  const Stream inTheWay(folder->CreateStream("sub", kFolderKind, kWriteFlags));
  ASSERT_EQ(inTheWay->SetEntry("inside", 1) + folder->SetEntry("held", 1), 2);
  const Stream held(folder->OpenStream("held", kStreamRead | kShareRead));
  ExpectDefaults(*folder, "absent");
  Bytes value(1);
  for (const char* name : {"sub", "held", "", tooLong.c_str(), static_cast<const char*>(nullptr)}) {
    SCOPED_TRACE(name == nullptr ? "null" : name);
    ExpectDefaults(*folder, name);
    ExpectRefused(*folder, name);
    // The bytes of a folder are given.
    const int isFolder = name != nullptr && name == std::string("sub") ? 1 : 0;
    EXPECT_EQ(ErasedSize(*folder, name, value), isFolder);
    EXPECT_EQ(value, isFolder == 1 ? Value("sub") : Bytes());
    EXPECT_EQ(folder->GetEntryErasedOld(name, &value, 0), isFolder);
  }
  ExpectRefused(*plain, "e");
  {
    const Watch watch;
    ExpectDefaults(*plain, "e");
    EXPECT_EQ(ErasedSize(*plain, "e", value), 0);
    EXPECT_EQ(watch.Total(), 0U) << "a plain stream is not even read";
  }
  value.resize(1);
  for (const char* name : {"folder", "fastFolder", "held", "fastHeld", "", tooLong.c_str(),
                           static_cast<const char*>(nullptr)}) {
    SCOPED_TRACE(name == nullptr ? "null" : name);
    ExpectDefaults(*storage, name);
    ExpectRefused(*storage, name);
    const int isFolder = name != nullptr && Raw(name).kind == 1 ? 1 : 0;
    EXPECT_EQ(storage->GetEntryErasedOld(name, value.data(), 1), isFolder);
  }
  // A registry of its own, and no flag is asked.
  const Stream otherObject = Root("f", kReadFlags);
  EXPECT_EQ(otherObject->GetEntry("held", 0), 1);
  EXPECT_EQ(otherObject->SetEntry("held", 2), 1);
}

TEST_F(Entries, NullPointersFailAndChangeNothing) {
  ASSERT_EQ(folder->SetEntry("e", 1), 1);
  const Bytes before = File();
  const tagSIZE* const noSize = nullptr;
  const tagRECT* const noRect = nullptr;
  std::uint8_t** const nowhere = nullptr;
  std::uint32_t size = 9;
  EXPECT_EQ(folder->SetEntry("e", noSize) + folder->SetEntry("new", noRect) +
                folder->SetEntry("e", nullptr, 3) + folder->SetEntryEraseOld("new", nullptr, 3) +
                storage->SetEntryEraseOld("new", nullptr, 3) +
                folder->GetEntryErasedOld("e", nullptr, 4) +
                storage->GetEntryErasedOld("f", nullptr, 3) +
                folder->GetEntryErasedOld("e", nowhere, &size),
            0);
  EXPECT_EQ(folder->GetEntry("e", static_cast<tagSIZE*>(nullptr), noSize), nullptr);
  EXPECT_EQ(folder->GetEntryErasedOld("e", nullptr, std::uint32_t{0}), 1);
  EXPECT_EQ(File(), before);
}

TEST_F(Entries, TypedValuesOverwriteAndDoNotCut) {
  ASSERT_EQ(folder->SetEntry("e", std::int64_t{0x1111111122222222}), 1);
  ASSERT_EQ(folder->SetEntry("e", std::int32_t{3}), 1);
  EXPECT_EQ(folder->GetEntry("e", std::int64_t{0}), 0x1111111100000003);
  EXPECT_EQ(Value("e").size(), 8U);
  tagRECT rect{1, 2, 3, 4};
  folder->GetEntry("e", &rect, static_cast<const tagRECT*>(nullptr));
  EXPECT_EQ(rect.left, 1) << "too short";
  ASSERT_EQ(folder->SetEntry("s", "a long string") + folder->SetEntry("s", "short"), 2);
  EXPECT_EQ(folder->GetEntry("s", ""), "short");
  EXPECT_EQ(Value("s").size(), 15U);
  Put("n", {1, 0, 0, 0});
  EXPECT_EQ(folder->GetEntry("n", std::int64_t{-5}), -5);
  ASSERT_TRUE(Stream(folder->OpenStream("e", kWriteFlags))->Erase());
  EXPECT_EQ(folder->GetEntry("e", std::int32_t{0}), 3) << "a read does not look at the length";
  Bytes value{1};
  EXPECT_EQ(ErasedSize(*folder, "e", value), 1);
  EXPECT_TRUE(value.empty());
}

TEST_F(Entries, StringsHoldWhatTheirCountPromises) {
  for (const std::size_t size : {255U, 256U, 257U, 65535U, 65536U, 65540U}) {
    const std::string text(size, 's');
    ASSERT_EQ(folder->SetEntry("long", text.c_str()), 1);
    EXPECT_EQ(folder->GetEntry("long", "d"), text.substr(0, size & 0xFFFF)) << size;
  }
  const std::pair<Bytes, std::string> rows[] = {{{}, ""},  // no byte at all is the empty string
                                                {{5, 0, 'a', 'b'}, std::string("ab\0\0\0", 5)},
                                                {{5}, ""}};
  for (const auto& [bytes, text] : rows) {
    const std::string name = "given " + std::to_string(bytes.size());
    Put(name.c_str(), bytes);
    EXPECT_EQ(folder->GetEntry(name.c_str(), "d"), text);
  }
}

// Two blocks; the value lies in the first, and the second cannot be read.
TEST_F(Entries, DamageBehindTheValueDoesNotReachIt) {
  FileBuilder builder;
  const std::uint32_t chain = builder.AddChain({3, 0, 'a', 'b', 'c', 0, 0, 0, 'o', 'l', 'd'}, {8});
  builder.AddStream(6, "f", FolderPayload({StreamRecord("e", false, 11, chain)}), {}, true);
  Put32(builder.bytes, chain + 28, 0);
  folder.reset();
  Load(builder);
  folder = Root("f");
  EXPECT_EQ(folder->GetEntry("e", std::int64_t{0}), 0x636261'0003);
  EXPECT_EQ(folder->GetEntry("e", "d"), "abc");
}

TEST_F(Entries, ErasedValuesEndWhereTheyEnd) {
  const Bytes large = Pattern(3000);
  const auto both = [&](const auto& check) {
    check(*folder, "f/e");
    check(*storage, "e");
  };
  both([&](auto& entries, const char* streamPath) {
    ASSERT_EQ(entries.SetEntryEraseOld("e", large.data(), 3000), 3000);
    ASSERT_EQ(entries.SetEntryEraseOld("e", large.data() + 7, 5), 5);
    EXPECT_EQ(Raw(streamPath).blocks[0].used, 25U);
    for (const std::uint32_t size : {0U, 1U, 5U, 6U, 3000U}) {
      Bytes buffer(3000, 0x77), expected = buffer;
      EXPECT_EQ(entries.GetEntryErasedOld("e", buffer.data(), size), size <= 5 ? 1 : 0) << size;
      if (size <= 5) std::copy_n(large.begin() + 7, size, expected.begin());
      EXPECT_EQ(buffer, expected) << size;
    }
  });
  Bytes value;
  EXPECT_EQ(ErasedSize(*folder, "e", value), 1);
  EXPECT_EQ(value, Slice(large, 7, 5));
  folder.reset();
  for (const std::uint32_t lie : {26U, 0xFFFFFFF0U}) {  // lengths that the chain does not hold
    PatchFile32(path, Raw("f/e").recordOffset + 68, lie);
    Reopen();
    EXPECT_EQ(ErasedSize(*Root("f"), "e", value), 0);
  }
}

TEST_F(Entries, CostTwoAndThreeCalls) {
  const auto calls = [](const auto& run) {
    const Watch watch;
    EXPECT_EQ(run(), 1);
    return watch.Total();
  };
  FileBuilder builder;
  for (int i = 0; i < 20; ++i) builder.AddDirectory();
  folder.reset();
  Load(builder);
  folder = MakeRoot("f", kFolderKind);
  const std::string text(200, 't');
  const auto cost = [&](auto& entries) {
    for (int i = 0; i < 200; ++i)
      ASSERT_EQ(entries.SetEntry(std::to_string(i).c_str(), std::int64_t{7}), 1);
    ASSERT_EQ(entries.SetEntry("text", text.c_str()), 1);  // the last in the file
    for (const char* name : {"0", "37", "199"}) {
      EXPECT_EQ(calls([&] { return entries.GetEntry(name, std::int64_t{0}) == 7; }), 2U);
      EXPECT_LE(calls([&] { return entries.SetEntry(name, std::int64_t{7}); }), 3U);
    }
    EXPECT_EQ(calls([&] { return entries.GetEntry("text", "") == text; }), 2U);
    EXPECT_LE(calls([&] { return entries.SetEntry("text", text.c_str()); }), 3U);
  };
  cost(*folder);
  cost(*storage);
  EXPECT_LE(calls([&] { return folder->SetEntry("fresh", 1); }), 9U);
  ASSERT_EQ(storage->SetEntryFast("fast", 4), 1);
  EXPECT_LE(calls([&] { return storage->SetEntryFast("fast", 1); }), 3U);
  const Watch watch;
  EXPECT_EQ(OpenFast()->GetEntryFast("fast", 0), 1);
  EXPECT_EQ(watch.Count(Call::kRead), 3U)
      << "header, reserved slots, block: however long the directory";
}

}  // namespace
}  // namespace aostorage::testing
