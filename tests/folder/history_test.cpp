// Long random histories of a folder, through several folder objects and two storage objects. Every
// answer is compared with a plain scan of the file's bytes, made anew after every step.
#include <algorithm>
#include <cstring>
#include <optional>
#include <random>

#include "folder/storage_fixture.h"
#include "support/model.h"

namespace aostorage::testing {
namespace {

const char* const kPool[] = {"a", "b", "c", "d", "e", "g", "h", "i", "j", "k"};

// A folder's slots as the file has them.
struct Scan {
  struct Slot {
    std::uint32_t place;
    Bytes record;
    bool magic;
    std::string name;
  };
  std::int64_t count = -1;  // -1: no count word
  std::vector<Slot> slots;  // whole records to the end of the chain, counted or not

  explicit Scan(const RawStream& folder) {
    if (folder.chain.size() < 4) return;
    count = Get32(folder.chain, 0);
    for (std::size_t at = 4; at + kSlotSize <= folder.chain.size(); at += kSlotSize) {
      const Bytes record = Slice(folder.chain, at, kSlotSize);
      const char* name = reinterpret_cast<const char*>(record.data()) + 4;
      slots.push_back({folder.PlaceOf(at), record, Get32(record, 0) == kStreamMagic,
                       std::string(name, strnlen(name, 61))});
    }
  }
  std::size_t Counted() const {
    return count < 0 ? 0 : std::min<std::size_t>(slots.size(), static_cast<std::size_t>(count));
  }
  const Slot* Find(const std::string& name) const {
    for (std::size_t i = 0; i < Counted(); ++i) {
      if (slots[i].name == name) return &slots[i];
    }
    return nullptr;
  }
  // What a walk meets: bounded by the count word up to the first child, then by the data alone.
  std::vector<std::string> Walk() const {
    std::vector<std::string> names;
    if (static_cast<std::int32_t>(count) <= 0) return names;
    for (std::size_t i = 0; i < slots.size() && (i < Counted() || !names.empty()); ++i) {
      if (!slots[i].magic) break;
      if (!slots[i].name.empty()) names.push_back(slots[i].name);
    }
    return names;
  }
  // Where a creation puts its record; nothing if it must fail.
  std::optional<std::size_t> NewSlot() const {
    if (count < 0) return std::nullopt;
    for (std::size_t i = 0; i < Counted(); ++i) {
      if (!slots[i].magic) return std::nullopt;
      if (slots[i].name.empty()) return i;
    }
    return Counted();
  }
};

class FolderHistory : public StorageFileTest {
 protected:
  enum Object { kFirst, kSecond, kOtherStorage };

  void OpenAll() {
    Close();
    storages[0] = Open(reserve);
    folders[kFirst].reset(storages[0]->OpenOrCreateStream("f", kFolderKind));
    folders[kSecond].reset(storages[0]->OpenStream("f", kWriteFlags));
    storages[1] = Open(reserve);
    folders[kOtherStorage].reset(storages[1]->OpenStream("f", kWriteFlags));
    for (const Stream& folder : folders) ASSERT_TRUE(folder);
  }
  void Close() {
    for (Stream& folder : folders) folder.reset();
    for (Storage& storage : storages) storage.reset();
  }
  unsigned Draw(unsigned below) { return static_cast<unsigned>(random() % below); }
  const char* Name() { return kPool[Draw(std::size(kPool))]; }
  Stream ChildOf(aoStream& folder) { return Stream(folder.OpenStream(Name(), kWriteFlags)); }
  Scan Now() { return Scan(Raw("f")); }

  // Every object gives the answers of the plain scan.
  void CompareAnswers() {
    const RawImage image = Image();
    const RawStream* raw = image.Find("f");
    ASSERT_NE(raw, nullptr);
    const Scan scan(*raw);
    for (Stream& folder : folders) {
      if (!folder) continue;
      SCOPED_TRACE(folder == folders[kOtherStorage] ? "other storage" : "own storage");
      for (const char* name : kPool) {
        const Scan::Slot* expected = scan.Find(name);
        tag_aoStream header;
        tag_aoStreamOffset offset;
        ASSERT_EQ(folder->FindStream(name, header, offset), expected != nullptr) << name;
        if (expected == nullptr) continue;
        ASSERT_EQ(offset.headerOffset, expected->place) << name;
        ASSERT_EQ(std::memcmp(&header, expected->record.data(), kSlotSize), 0) << name;
      }
      ASSERT_EQ(folder->GetNumChildren(),
                scan.count < 0 ? 0 : static_cast<std::uint32_t>(scan.count));
      ASSERT_EQ(NamesIn(*folder), scan.Walk());
      std::vector<std::string> walked;
      std::uint32_t cookie = 0;
      for (Stream child(folder->OpenStreamFirst(cookie, kReadFlags)); child;
           child.reset(folder->OpenStreamNext(cookie, kReadFlags))) {
        walked.push_back(child->GetName());
      }
      ASSERT_EQ(walked, scan.Walk());
      const char* name = Name();
      const Stream child(folder->OpenStream(name, kReadFlags));
      ASSERT_EQ(child != nullptr, scan.Find(name) != nullptr);
      const RawStream* rawChild = image.Find("f/" + std::string(name));
      if (child && rawChild != nullptr) {
        ASSERT_EQ(ReadValue(*child), rawChild->Value()) << name;
      }
    }
  }

  void CreateChild(aoStream& folder, bool asEntry) {
    const char* name = Name();
    const Scan before = Now();
    const std::optional<std::size_t> slot =
        before.Find(name) == nullptr ? before.NewSlot() : std::nullopt;
    const bool isFolder = !asEntry && Draw(4) == 0;
    const bool made = asEntry ? folder.SetEntry(name, std::int32_t{5}) == 1
                              : Got(folder.CreateStream(name, PackKind(isFolder), kWriteFlags));
    if (before.Find(name) != nullptr) {
      ASSERT_FALSE(made && !asEntry);
      return;
    }
    ASSERT_EQ(made, slot.has_value()) << name;
    if (!made) return;
    const Scan after = Now();
    ASSERT_LT(*slot, after.slots.size());
    ASSERT_EQ(after.slots[*slot].name, name);
    ASSERT_EQ(after.slots[*slot].record[67], isFolder ? 1 : 0);
    if (*slot < before.Counted() && Get32(before.slots[*slot].record, 76) != 0) {
      ASSERT_EQ(Slice(after.slots[*slot].record, 76, 4), Slice(before.slots[*slot].record, 76, 4));
    }
    if (isFolder) {
      ASSERT_EQ(Raw("f/" + std::string(name)).chain, Bytes(4)) << "over whatever chain";
    }
    const bool appended = *slot >= before.Counted() && before.count != 0xFFFFFFFF;
    ASSERT_EQ(after.count, before.count + (appended ? 1 : 0));
  }
  void WriteChild(aoStream& folder) {
    const Stream child = ChildOf(folder);
    if (!child || child->IsFolder() != 0) return;
    const Bytes data = Pattern(Draw(200), Draw(1000));
    const bool final = Draw(2) == 0;
    child->Seek(0, 0);
    ASSERT_EQ(child->Write(data.data(), static_cast<std::uint32_t>(data.size()), final),
              data.size());
    ASSERT_EQ(Slice(ReadValue(*child), 0, data.size()), data);
    ASSERT_TRUE(data.empty() || Raw("f/" + std::string(child->GetName())).lastBlock != 0);
  }
  // The folder's data written directly: a record, half a record, the count word, or an end of the
  // data.
  void WriteFolderData(aoStream& folder) {
    const Scan scan = Now();
    const std::uint32_t slot = Draw(static_cast<unsigned>(scan.slots.size() + 1));
    Bytes data;
    std::uint32_t at = 4 + slot * kSlotSize;
    switch (Draw(5)) {
      case 0:
        data = StreamRecord(Draw(3) == 0 ? "" : Name(), false, 0, 0);
        break;
      case 1:
        data = Slice(StreamRecord(Name(), false, 0, 0), 4, 61);
        at += 4;
        break;
      case 2:
        data.resize(Draw(4) == 0 ? 4 : 0);  // no magic word
        break;
      default:
        const std::uint32_t lies[] = {0, 1, 0x7FFFFFFF, 0x80000001, 0xFFFFFFFF};
        data.resize(4);
        Put32(data, 0,
              Draw(4) == 0 ? lies[Draw(5)]
                           : static_cast<std::uint32_t>(scan.slots.size()) - Draw(3) + 1);
        at = 0;
    }
    // What ends within a record, or cuts a block that holds part of one, would shift all behind it.
    const bool within = data.size() < kSlotSize && at != 0 && slot + 1 < scan.slots.size();
    if (folder.Seek(at, 0) == 0) {
      folder.Write(data.data(), static_cast<std::uint32_t>(data.size()),
                   !split && !within && Draw(20) == 0);
    }
  }
  // Renames, removals and the like write one record, wherever its pieces lie, and nothing else.
  void ChangeRecord(aoStream& folder, unsigned choice) {
    Stream child = ChildOf(folder);
    if (!child) return;
    const RawStream raw = Raw("f");
    const Scan before(raw);
    const Scan::Slot* slot = before.Find(child->GetName());
    ASSERT_NE(slot, nullptr);
    Bytes expected = File(), record = slot->record;
    if (choice < 75) {
      ASSERT_TRUE(Remove(child));
      std::fill_n(record.begin() + 4, 68, std::uint8_t{0});
    } else if (choice < 95) {
      const std::string name = Name();  // two slots may come to one name
      ASSERT_TRUE(child->Rename(name.c_str()));
      std::fill_n(record.begin() + 4, 61, std::uint8_t{0});
      std::copy(name.begin(), name.end(), record.begin() + 4);
    } else {
      ASSERT_TRUE(child->Erase());
      Put32(record, 68, 0);
    }
    const auto index = static_cast<std::size_t>(slot - before.slots.data());
    for (std::size_t i = 0; i < kSlotSize; ++i)
      expected[raw.PlaceOf(4 + kSlotSize * index + i)] = record[i];
    ASSERT_EQ(File(), expected);
  }
  // Over the old chain, or over that of a plain stream.
  void MakeFolderAnew() {
    for (const Object object : {kSecond, kOtherStorage}) folders[object].reset();
    ASSERT_TRUE(Remove(folders[kFirst]));
    if (Draw(2) == 0) {
      split = true;
      // What it leaves behind, in blocks of any room, looks like child records. The old slot is
      // taken by another stream, so that the folder comes to where these are.
      ASSERT_TRUE(Got(storages[0]->CreateStream(std::to_string(random()).c_str(), 0)));
      const Bytes ghosts = FolderPayload(std::vector<Bytes>(4, StreamRecord("a", false, 0, 0)));
      const Stream other(storages[0]->OpenOrCreateStream("other", kPlainKind));
      Stream plain(storages[0]->CreateStream("plain", kWriteFlags));
      const std::size_t piece = 1 + Draw(90);
      for (std::size_t at = 0; at < ghosts.size(); at += piece) {
        ASSERT_TRUE(Append(*plain, Slice(ghosts, at, piece)) && Append(*other, Bytes(1)));
      }
      ASSERT_TRUE(Remove(plain));
    }
    OpenAll();
  }
  void Step() {
    aoStream& folder = *folders[Draw(3)];
    switch (const unsigned choice = Draw(100)) {
      case 0:
        return OpenAll();
      case 1:
        folder.Erase();
        return;
      case 2:
        folder.SetLength(Draw(folder.GetLength() + 1));
        return;
      case 3: {
        const Bytes before = File();
        const bool none = Now().Walk().empty();  // a count word that is negative counts none
        folder.ClearFolder();
        ASSERT_TRUE(!none || File() == before);
        return;
      }
      case 4:
        return MakeFolderAnew();
      case 5: {
        tag_aoStream header;
        tag_aoStreamOffset offset;
        folder.AddStreamHeader(Name(), kPlainKind, header, offset);
        return;
      }
      default:
        if (choice < 12) return WriteFolderData(folder);
        if (choice < 40) return CreateChild(folder, choice < 18);
        if (choice < 60) return WriteChild(folder);
        return ChangeRecord(folder, choice);
    }
  }

  std::mt19937 random;
  std::uint32_t reserve = 0;
  bool split = false;  // records may lie across blocks
  Storage storages[2];
  Stream folders[3];
};

TEST_F(FolderHistory, EveryAnswerIsThatOfAPlainScan) {
  for (const unsigned seed : HistorySeeds(8)) {
    SCOPED_TRACE("AOSTORAGE_TEST_SEED=" + std::to_string(seed));
    random.seed(seed);
    reserve = Draw(2) * Draw(120);
    split = false;
    Create();
    OpenAll();
    MakeFolderAnew();
    for (int step = 0; step < 400; ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      ASSERT_NO_FATAL_FAILURE(Step());
      ASSERT_NO_FATAL_FAILURE(CompareAnswers());
    }
    Close();
  }
}

}  // namespace
}  // namespace aostorage::testing
