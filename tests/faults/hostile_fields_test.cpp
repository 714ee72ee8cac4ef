// Each stored field set to each bad value: failure results, no crash, no endless loop, no changed
// byte.
#include <set>

#include "folder/storage_fixture.h"

namespace aostorage::testing {
namespace {

struct Field {
  std::string label;
  std::size_t offset, width;
};

class HostileFields : public OneStorageTest {
 protected:
  // A stream that stays sound, then one of three blocks, a folder with a plain child, a full first
  // directory block with a second one behind it.
  HostileFields() {
    soundBlock = builder.AddStream(0, "sound", Pattern(100, 9), {200});
    const std::uint32_t second = builder.AddDirectory();
    const std::uint32_t target = builder.AddStream(6, "target", Pattern(150), {60, 40, 80});
    const std::uint32_t child = builder.AddChain(Pattern(20));
    const std::uint32_t folder = builder.AddStream(
        7, "folder", FolderPayload({StreamRecord("child", false, 20, child)}), {}, true);
    for (std::uint32_t slot = 8; slot < 64; ++slot)
      builder.PutSlot(slot, StreamRecord("filler" + std::to_string(slot), false, 0, 0));
    AddFields("file header", 0, {{24, 1}, {26, 2}, {28, 2}});
    for (const std::uint32_t directory : {32U, second})
      AddFields("directory", directory, {{0, 4}, {4, 4}, {8, 4}});
    for (const std::uint32_t record :
         {builder.SlotAt(6), builder.SlotAt(7), builder.SlotAt(0, 1), folder + 24}) {
      AddFields("record", record, {{0, 4}, {4, 4}, {65, 2}, {67, 1}, {68, 4}, {72, 4}, {76, 4}});
    }
    AddFields("folder count", folder + 20, {{0, 4}});
    for (std::uint32_t block = target; block != 0; block = Get32(builder.bytes, block + 16)) {
      AddBlock(block);
      lastBlock = block;
    }
    AddBlock(folder);
    AddBlock(child);
  }
  void AddFields(const std::string& owner, std::size_t offset,
                 const std::vector<std::pair<std::size_t, std::size_t>>& places) {
    records.push_back(static_cast<std::uint32_t>(offset));
    for (const auto& [place, width] : places) {
      fields.push_back({owner + " at " + std::to_string(offset) + "+" + std::to_string(place),
                        offset + place, width});
    }
  }
  void AddBlock(std::size_t offset) {
    AddFields("block", offset, {{0, 4}, {4, 4}, {8, 4}, {12, 4}, {16, 4}});
  }

  // Borders of every kind of word, and the offset of every record in the file.
  std::set<std::uint32_t> BadValues(const Field& field) const {
    const auto size = static_cast<std::uint32_t>(builder.bytes.size());
    const std::uint32_t old = Get32(builder.bytes, field.offset);
    std::set<std::uint32_t> values{0,          1,
                                   19,         20,
                                   21,         64,
                                   65,         size - 20,
                                   size - 1,   size,
                                   size + 1,   0x7FFFFFEC,
                                   0x7FFFFFFF, 0x80000000,
                                   0xFFFFFFEC, 0xFFFFFFFF,
                                   0xFCFCFCFC, 0x01010101,
                                   old - 1,    old + 1,
                                   old - 20,   static_cast<std::uint32_t>(field.offset)};
    values.insert(records.begin(), records.end());
    return values;
  }

  template <class Check>
  void ForEachDamage(Check check) {
    for (const Field& field : fields) {
      for (const std::uint32_t value : BadValues(field)) {
        SCOPED_TRACE(field.label + " = " + std::to_string(value));
        Bytes damaged = builder.bytes;
        for (std::size_t i = 0; i < field.width; ++i)
          damaged[field.offset + i] = static_cast<std::uint8_t>(value >> 8 * i);
        WriteFile(path, damaged);
        check(damaged);
        if (HasFailure()) return;
      }
    }
  }

  static void ReadAll(const Stream& stream) {
    if (!stream) return;
    Bytes data(2000);
    std::uint32_t got = 0;
    // No chain here holds more than the file; one that seems to is a circle.
    for (int i = 0; (got = stream->Read(data.data(), 2000)) != 0 && got != kFailed; ++i)
      ASSERT_LT(i, 50);
    for (const std::uint32_t place : {0U, 1U, 59U, 60U, 61U, 150U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
      for (std::uint8_t origin = 0; origin < 3; ++origin)
        stream->Seek(place, origin, place % 2 == 0);
    }
  }

  FileBuilder builder;
  std::vector<Field> fields;
  std::vector<std::uint32_t> records;  // where each of them begins
  std::uint32_t soundBlock = 0, lastBlock = 0;
};

TEST_F(HostileFields, ReadingEndsAndChangesNothing) {
  ForEachDamage([&](const Bytes& damaged) {
    for (const auto open : {&aoStorage::Open, &aoStorage::OpenFast}) {
      storage.reset(open(path.c_str(), kStreamWrite, 0));
      if (!storage) continue;
      for (const char* name : {"target", "folder", "sound"}) {
        ReadAll(Root(name, kReadFlags));
        ReadAll(Stream(storage->OpenStreamFast(name, kReadFlags)));
      }
      if (const Stream folder = Root("folder", kReadFlags)) {
        ReadAll(Stream(folder->OpenStream("child", kReadFlags)));
        ASSERT_LT(NamesIn(*folder).size(), 1000U);
      }
      const Stream walking(storage->OpenStreamFirst(kReadFlags));
      for (int steps = 0; walking && walking->GoNext(); ++steps) ASSERT_LT(steps, 200);
    }
    EXPECT_EQ(File(), damaged);
  });
}

TEST_F(HostileFields, WritingKeepsToWhatIsItsOwn) {
  ForEachDamage([&](const Bytes& damaged) {
    storage = Open(10);
    if (!storage) return;
    if (const Stream stream{storage->OpenOrCreateStream("target", 0)}) {
      Append(*stream, Pattern(70));
      stream->Seek(0, 0);
      stream->Write(Pattern(170).data(), 170);
    }
    if (const Stream made = MakeRoot("made")) made->Write(Pattern(10).data(), 10);
    if (const Stream folder = Root("folder")) {
      Stream child(folder->OpenStream("child", kWriteFlags));
      if (child) child->Write(Pattern(30).data(), 30);
      Got(folder->CreateStream("new", 0, kWriteFlags));
      if (child) Remove(child);
    }
    if (Stream target = Root("target")) Remove(target);
    const Bytes after = File();
    EXPECT_LT(after.size(), damaged.size() + 20000);
    EXPECT_EQ(Slice(after, 0, 40), Slice(damaged, 0, 40)) << "header and head of the directory";
    EXPECT_EQ(Slice(after, SlotOffset(0), kSlotSize), Slice(damaged, SlotOffset(0), kSlotSize));
    // A word that leads to the sound stream's own block makes that block another's too.
    if (CheckFile(path, Rules::kAfterFault).find("block " + std::to_string(soundBlock)) ==
        std::string::npos) {
      EXPECT_EQ(Slice(after, soundBlock, 220), Slice(damaged, soundBlock, 220));
    }
  });
}

TEST_F(HostileFields, ACapacityThatReachesBehindTheFileTakesNothing) {
  const auto size = static_cast<std::uint32_t>(builder.bytes.size());
  for (const std::uint32_t capacity : {size - lastBlock + 1, size, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
    Put32(builder.bytes, lastBlock + 8, capacity);
    Load(builder);
    const Stream stream = Root("target");
    stream->Seek(150, 0);
    EXPECT_EQ(stream->Write(Pattern(5).data(), 5), kFailed) << capacity;
    EXPECT_EQ(LastError(), Error::kDamaged);
    EXPECT_EQ(File(), builder.bytes);
  }
}

}  // namespace
}  // namespace aostorage::testing
