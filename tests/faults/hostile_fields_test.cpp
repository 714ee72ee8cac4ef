// Each stored field set to each bad value: failure results, no crash, no endless loop, no changed
// byte.
#include <set>

#include <gtest/gtest.h>

#include "support/handles.h"
#include "support/raw_file.h"
#include "support/temp_dir.h"

namespace aostorage::testing {
namespace {

struct Field {
  std::string label;
  std::size_t offset;
  std::size_t width;
};

class HostileFields : public ::testing::Test {
 protected:
  // A stream that stays sound, then one of three blocks, a folder with a plain child, a full first
  // directory block with a second one behind it.
  HostileFields() {
    builder.AddStream(0, "sound", kSound, {200});
    const std::uint32_t second = builder.AddDirectory();
    const std::uint32_t target = builder.AddStream(6, "target", Pattern(150), {60, 40, 80});
    const std::uint32_t child = builder.AddChain(Pattern(20));
    const std::uint32_t folder = builder.AddStream(
        7, "folder", FolderPayload({StreamRecord("child", false, 20, child)}), {}, true);
    for (std::uint32_t slot = 8; slot < 64; ++slot) {
      builder.PutSlot(slot, StreamRecord("filler" + std::to_string(slot), false, 0, 0));
    }
    AddFields("file header", 0, {{24, 1}, {26, 2}, {28, 2}});
    AddFields("first directory", 32, {{0, 4}, {4, 4}, {8, 4}});
    AddFields("second directory", second, {{0, 4}, {4, 4}, {8, 4}});
    AddRecord("target record", builder.SlotAt(6));
    AddRecord("folder record", builder.SlotAt(7));
    AddRecord("free slot of the second directory", builder.SlotAt(0, 1));
    for (std::uint32_t block = target, i = 0; block != 0;
         block = Get32(builder.bytes, block + 16), ++i) {
      AddBlock("target block " + std::to_string(i), block);
    }
    AddBlock("folder block", folder);
    AddFields("folder count", folder + 20, {{0, 4}});
    AddRecord("child record", folder + 24);
    AddBlock("child block", child);
  }

  void AddFields(const std::string& owner, std::size_t offset,
                 const std::vector<std::pair<std::size_t, std::size_t>>& places) {
    records.push_back(offset);
    for (const auto& [place, width] : places) {
      fields.push_back({owner + "+" + std::to_string(place), offset + place, width});
    }
  }
  void AddRecord(const std::string& owner, std::size_t offset) {
    AddFields(owner, offset, {{0, 4}, {4, 4}, {65, 2}, {67, 1}, {68, 4}, {72, 4}, {76, 4}});
  }
  void AddBlock(const std::string& owner, std::size_t offset) {
    AddFields(owner, offset, {{0, 4}, {4, 4}, {8, 4}, {12, 4}, {16, 4}});
  }

  // Borders of every kind of word, and the offset of every record in the file.
  std::set<std::uint32_t> BadValues(const Field& field) const {
    const auto size = static_cast<std::uint32_t>(builder.bytes.size());
    std::set<std::uint32_t> values{0,          1,          19,         20,         21,
                                   64,         65,         size - 20,  size - 1,   size,
                                   size + 1,   0x7FFFFFEC, 0x7FFFFFFF, 0x80000000, 0xFFFFFFEC,
                                   0xFFFFFFFF, 0xFCFCFCFC, 0x01010101};
    const std::uint32_t old = Get32(builder.bytes, field.offset);
    values.insert({old - 1, old + 1, old - 20, static_cast<std::uint32_t>(field.offset)});
    for (const std::size_t record : records) values.insert(static_cast<std::uint32_t>(record));
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
    for (int i = 0; i < 100 && (got = stream->Read(data.data(), 2000)) != 0 && got != kFailed; ++i)
      ASSERT_LT(i, 50);
    for (const std::uint32_t place : {0U, 1U, 59U, 60U, 61U, 150U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
      for (const int origin : {0, 1, 2})
        stream->Seek(place, static_cast<std::uint8_t>(origin), place % 2 == 0);
    }
  }

  const Bytes kSound = Pattern(100, 9);
  FileBuilder builder;
  std::vector<Field> fields;
  std::vector<std::size_t> records;  // where each of them begins
  TempDir dir;
  const std::string path = dir.File("store");
};

TEST_F(HostileFields, ReadingEndsAndChangesNothing) {
  ForEachDamage([&](const Bytes& damaged) {
    for (const auto open : {&aoStorage::Open, &aoStorage::OpenFast}) {
      const Storage storage(open(path.c_str(), kStreamWrite, 0));
      if (!storage) continue;
      for (const char* name : {"target", "folder", "sound"}) {
        ReadAll(Stream(storage->OpenStream(name, kReadFlags)));
        ReadAll(Stream(storage->OpenStreamFast(name, kReadFlags)));
      }
      const Stream folder(storage->OpenStream("folder", kReadFlags));
      if (folder) ReadAll(Stream(folder->OpenStream("child", kReadFlags)));
      std::vector<std::string> names;
      if (folder) folder->EnumStreams(names);
      ASSERT_LT(names.size(), 1000U);
      const Stream walking(storage->OpenStreamFirst(kReadFlags));
      for (int steps = 0; walking && walking->GoNext(); ++steps) ASSERT_LT(steps, 200);
    }
    EXPECT_EQ(ReadFile(path), damaged);
  });
}

TEST_F(HostileFields, WritingKeepsToWhatIsItsOwn) {
  ForEachDamage([&](const Bytes& damaged) {
    {
      const Storage storage(aoStorage::Open(path.c_str(), kStreamWrite, 10));
      if (!storage) return;
      if (const Stream stream{storage->OpenOrCreateStream("target", 0)}) {
        stream->Seek(0, 1);
        stream->Write(Pattern(70).data(), 70);
        stream->Seek(0, 0);
        stream->Write(Pattern(170).data(), 170);
      }
      const Stream made(storage->CreateStream("made", kWriteFlags));
      if (made) made->Write(Pattern(10).data(), 10);
      if (const Stream folder{storage->OpenStream("folder", kWriteFlags)}) {
        Stream child(folder->OpenStream("child", kWriteFlags));
        if (child) child->Write(Pattern(30).data(), 30);
        Stream(folder->CreateStream("new", 0, kWriteFlags));
        if (child) Remove(child);
      }
      Stream target(storage->OpenStream("target", kWriteFlags));
      if (target) Remove(target);
    }
    const Bytes after = ReadFile(path);
    EXPECT_LT(after.size(), damaged.size() + 20000);
    EXPECT_EQ(Slice(after, 0, 40), Slice(damaged, 0, 40)) << "header and head of the directory";
    EXPECT_EQ(Slice(after, SlotOffset(0), kSlotSize), Slice(damaged, SlotOffset(0), kSlotSize));
    const std::uint32_t sound = Get32(builder.bytes, SlotOffset(0) + 76);
    // A word that leads to the sound stream's own block makes that block another's too.
    const bool shared =
        CheckFile(path, Rules::kAfterFault).find("block " + std::to_string(sound)) !=
        std::string::npos;
    if (!shared) {
      EXPECT_EQ(Slice(after, sound, 220), Slice(damaged, sound, 220));
    }
  });
}

TEST_F(HostileFields, ACapacityThatReachesBehindTheFileTakesNothing) {
  const std::size_t lastBlock = Get32(
      builder.bytes, Get32(builder.bytes, Get32(builder.bytes, builder.SlotAt(6) + 76) + 16) + 16);
  const auto size = static_cast<std::uint32_t>(builder.bytes.size());
  for (const std::uint32_t capacity :
       {size - static_cast<std::uint32_t>(lastBlock) + 1, size, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
    Bytes damaged = builder.bytes;
    Put32(damaged, lastBlock + 8, capacity);
    WriteFile(path, damaged);
    const Storage storage(aoStorage::Open(path.c_str(), kStreamWrite, 0));
    const Stream stream(storage->OpenStream("target", kWriteFlags));
    stream->Seek(150, 0);
    EXPECT_EQ(stream->Write(Pattern(5).data(), 5), kFailed) << capacity;
    EXPECT_EQ(LastError(), Error::kDamaged);
    EXPECT_EQ(ReadFile(path), damaged);
  }
}

}  // namespace
}  // namespace aostorage::testing
