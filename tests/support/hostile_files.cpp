#include "support/hostile_files.h"

#include <algorithm>

#include "support/size.h"

namespace aostorage::testing {
namespace {

using Records = std::vector<Bytes>;
constexpr std::uint32_t kNoBack = 0xFFFFFFFF;

std::uint32_t End(const FileBuilder& file) { return static_cast<std::uint32_t>(file.bytes.size()); }

/// A block header as it is wanted, at any place.
void PutBlock(FileBuilder& file, std::uint32_t at, std::uint32_t used, std::uint32_t capacity,
              std::uint32_t next) {
  const std::uint32_t words[] = {kBlockMagic, used, capacity, 0, next};
  if (file.bytes.size() < at + kBlockHeaderSize) file.bytes.resize(at + kBlockHeaderSize);
  for (std::size_t i = 0; i < 5; ++i) Put32(file.bytes, at + 4 * i, words[i]);
}

void PutTarget(FileBuilder& file, std::uint32_t length, std::uint32_t first, bool folder = false) {
  file.PutSlot(6, StreamRecord(folder ? "folder" : "target", folder, length, first));
}

void AddFolder(FileBuilder& file, const Records& records,
               const std::vector<std::uint32_t>& rooms = {}) {
  file.AddStream(6, "folder", FolderPayload(records), rooms, true);
}

/// `count` blocks with `data` bytes each; the last leads to the block `back`, if that is one.
std::uint32_t AddRow(FileBuilder& file, std::uint32_t count, std::uint32_t data,
                     std::uint32_t back = kNoBack) {
  const std::uint32_t first = End(file), size = kBlockHeaderSize + data;
  file.bytes.resize(first + std::size_t{count} * size, 'd');
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint32_t at = first + i * size;
    PutBlock(file, at, size, size, i + 1 < count ? at + size : 0);
    if (i > 0) Put32(file.bytes, at + 12, at - size);
  }
  if (back != kNoBack) Put32(file.bytes, first + (count - 1) * size + 16, first + back * size);
  return first;
}

HostileFile Shape(const std::string& name, std::function<void(FileBuilder&)> build,
                  bool sound = false) {
  return {name,
          [build = std::move(build)] {
            FileBuilder file;
            file.AddStream(0, "sound", Pattern(100, 9), {200});
            build(file);
            return file.bytes;
          },
          sound};
}

// --- The directory

void AddDirectoryShapes(std::vector<HostileFile>& shapes) {
  for (const std::uint32_t count : {2U, 200U}) {
    shapes.push_back(Shape("ring of " + std::to_string(count) + " directories", [=](auto& file) {
      for (std::uint32_t i = 1; i < count; ++i) file.AddDirectory();
      Put32(file.bytes, file.SlotAt(0, count - 1) - 4, 32);
    }));
  }
  shapes.push_back(Shape("ring behind the first directory", [](auto& file) {
    const std::uint32_t second = file.AddDirectory();
    for (int i = 0; i < 50; ++i) file.AddDirectory();
    Put32(file.bytes, file.SlotAt(0, 51) - 4, second);
  }));
  shapes.push_back(Shape("data that forges a directory", [](auto& file) {
    Bytes forged(kDirectorySize);
    Put32(forged, 0, kDirectoryMagic);
    Put32(forged, 4, 64);
    const Bytes record = StreamRecord("target", false, 99, 32);
    std::copy(record.begin(), record.end(), forged.begin() + 12);
    Put32(file.bytes, 40, file.AddStream(7, "f", forged) + kBlockHeaderSize);
  }));
  for (const std::uint32_t next : {0U, 44U, 5163U, 5164U, 5165U, 0x80000000U, 0xFFFFFFFFU}) {
    shapes.push_back(Shape(
        "directory that leads to " + std::to_string(next),
        [=](auto& file) { Put32(file.bytes, 40, next); }, next == 0));
  }
  shapes.push_back(Shape("directories that overlap", [](auto& file) {
    constexpr std::uint32_t kBlocks = 5000, kStep = 20;
    const std::uint32_t first = End(file);
    file.bytes.resize(first + kBlocks * kStep + kDirectorySize);
    for (std::uint32_t at = first; at < first + kBlocks * kStep; at += kStep) {
      Put32(file.bytes, at, kDirectoryMagic);
      Put32(file.bytes, at + 4, 64);
      Put32(file.bytes, at + 8, at + kStep);
      Put32(file.bytes, at + 16, at | 0x01010101);  // one name more
    }
    Put32(file.bytes, 40, first);
  }));
  shapes.push_back(Shape("names", [](auto& file) {
    std::uint32_t slot = 6;
    for (const char* name : {"..", "/", "a/b", "\x01\x1f\x7f", "target", "target", "\xff\xfe"})
      file.PutSlot(slot++, StreamRecord(name, false, 0, 0));
    Bytes endless = StreamRecord(std::string(61, 'e'), false, 0, 0), bare = endless;
    Put32(bare, 0, 0);
    file.PutSlot(slot++, endless);
    file.PutSlot(slot++, bare);
    file.AddDirectory();
    file.PutSlot(3, StreamRecord("target", true, 0, 0), 1);
  }));
}

// --- Chains

void AddChainShapes(std::vector<HostileFile>& shapes) {
  for (const std::uint32_t data : {0U, 1U, 100U}) {
    for (const std::uint32_t count : {1U, 2U, 200U, 5000U, 50000U}) {
      const std::string what = std::to_string(count) + " blocks of " + std::to_string(data);
      const bool brief = count == 50000 && !FullSize();  // the sound one of no data alone
      if (count * data > 1000000 || (brief && data != 0)) continue;
      shapes.push_back(Shape(
          "row of " + what,
          [=](auto& file) { PutTarget(file, count * data, AddRow(file, count, data)); }, true));
      for (const std::uint32_t back : {0U, count / 2}) {
        if (brief) continue;
        shapes.push_back(Shape("ring of " + what, [=](auto& file) {
          PutTarget(file, 0x7FFFFFFF, AddRow(file, count, data, back));
        }));
        shapes.push_back(Shape("folder in a ring of " + what, [=](auto& file) {
          PutTarget(file, 84, AddRow(file, count, data, back), true);
        }));
        shapes.push_back(Shape("vacated ring of " + what, [=](auto& file) {
          file.PutSlot(6, StreamRecord("", false, 0, AddRow(file, count, data, back)));
        }));
      }
    }
  }
  shapes.push_back(Shape("blocks that overlap", [](auto& file) {
    constexpr std::uint32_t kBlocks = 200, kStep = 40;
    const std::uint32_t first = End(file);
    file.bytes.resize(first + kBlocks * kStep + 8000, 0xFC);
    const std::uint32_t size = End(file);
    for (std::uint32_t i = 0; i < kBlocks; ++i) {
      const std::uint32_t at = first + i * kStep;
      PutBlock(file, at, size - at, size - at, i + 1 < kBlocks ? at + kStep : 0);
    }
    Put32(file.bytes, first + 20, 0x7FFFFFFF);
    PutTarget(file, 84, first, true);
    file.PutSlot(7, StreamRecord("target", false, size, first));
    file.PutSlot(8, StreamRecord("", false, 0, first));
  }));
  shapes.push_back(Shape("13,000 streams on one chain of 1 MiB", [](auto& file) {
    const std::uint32_t first = file.AddChain(Pattern(1 << 20));
    for (std::uint32_t i = 0; i < 13000; ++i) {
      if (i != 0 && i % 64 == 0) file.AddDirectory();
      const std::string name = i == 6 ? "target" : std::to_string(i);
      file.PutSlot(i % 64, StreamRecord(name, false, 1 << 20, first), i / 64);
    }
  }));
  shapes.push_back(Shape("2,000 folders on one chain of 1,000 records", [](auto& file) {
    const std::uint32_t first =
        file.AddChain(FolderPayload(Records(1000, StreamRecord("x", false, 0, 0))));
    Records folders;
    for (int i = 0; i < 2000; ++i)
      folders.push_back(StreamRecord(std::to_string(i), true, 80004, first));
    AddFolder(file, folders);
  }));
  // What holds no byte is passed all the same: for a count word, for a slot, for the length.
  for (const std::uint32_t count : {0U, 1U, 99U}) {
    shapes.push_back(
        Shape("2,000 folders that count " + std::to_string(count) + " on one row of empty blocks",
              [=](auto& file) {
                std::uint32_t first = AddRow(file, 4000, 0);
                if (count != 99) {
                  const std::uint32_t row = first;
                  Bytes word = FolderPayload({});
                  Put32(word, 0, count);
                  first = file.AddChain(word);
                  Put32(file.bytes, first + 16, row);
                }
                Records folders;
                for (int i = 0; i < 2000; ++i)
                  folders.push_back(StreamRecord(std::to_string(i), true, 84, first));
                AddFolder(file, folders);
              }));
  }
  // Each block leads far away, so that no read brings two of them.
  shapes.push_back(Shape(
      "blocks to and fro",
      [](auto& file) {
        constexpr std::uint32_t kBlocks = 40009, kData = 60, kSize = kBlockHeaderSize + kData;
        const std::uint32_t first = End(file);
        file.bytes.resize(first + kBlocks * kSize, 'd');
        const auto at = [=](std::uint64_t i) {
          return first + static_cast<std::uint32_t>(i * 17989 % kBlocks) * kSize;
        };
        for (std::uint32_t i = 0; i < kBlocks; ++i) {
          PutBlock(file, at(i), kSize, kSize, i + 1 < kBlocks ? at(i + 1) : 0);
          if (i > 0) Put32(file.bytes, at(i) + 12, at(i - 1));
        }
        PutTarget(file, kBlocks * kData, first);
      },
      true));
  // Every other block of a lost chain lies in the data of one that is seen, so that each of the
  // others looks like the first of a chain. The two kinds lie a page cache apart.
  shapes.push_back(Shape("lost blocks, every other one hidden", [](auto& file) {
    constexpr std::uint32_t kBlocks = 2000, kApart = 1 << 20;
    const std::uint32_t first = End(file), large = first + kBlocks * kBlockHeaderSize;
    file.bytes.resize(first + kApart + kBlocks * kBlockHeaderSize, 'd');
    PutBlock(file, large, End(file) - large, End(file) - large, 0);
    for (std::uint32_t i = 0; i < kBlocks; ++i) {
      const std::uint32_t seen = first + i * kBlockHeaderSize, hidden = seen + kApart;
      PutBlock(file, seen, 20, 20, hidden);
      PutBlock(file, hidden, 20, 20, i + 1 < kBlocks ? seen + kBlockHeaderSize : 0);
      Put32(file.bytes, hidden + 12, seen);
      if (i > 0) Put32(file.bytes, seen + 12, hidden - kBlockHeaderSize);
    }
  }));
}

// --- Folders

void AddFolderShapes(std::vector<HostileFile>& shapes) {
  const Bytes plain = StreamRecord("child", false, 0, 0), gone = StreamRecord("", false, 0, 0);
  for (const std::uint32_t count : {0U, 1U, 3U, 1000000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
    shapes.push_back(Shape("folder that counts " + std::to_string(count), [=](auto& file) {
      Bytes data = FolderPayload({plain, gone});
      Put32(data, 0, count);
      file.AddStream(6, "folder", data, {}, true);
    }));
  }
  for (const std::uint32_t room : {1U, 3U, 4U, 5U, 44U, 84U, 85U, 163U}) {
    shapes.push_back(Shape(
        "records cut at " + std::to_string(room),
        [=](auto& file) {
          AddFolder(file, {plain, gone, StreamRecord("sub", true, 0, 0)}, {room, 1, 1, room});
        },
        false));
  }
  shapes.push_back(Shape("records in a reserve", [=](auto& file) {
    const std::uint32_t first = file.AddChain(FolderPayload({plain, plain}), {200, 100});
    Put32(file.bytes, first + 4, kBlockHeaderSize + 4);
    PutTarget(file, 164, first, true);
  }));
  shapes.push_back(Shape("folder in itself", [](auto& file) {
    const std::uint32_t first = End(file);
    AddFolder(file, {StreamRecord("sub", true, 84, first), StreamRecord("gone", true, 84, first)});
  }));
  shapes.push_back(Shape("folder in itself through another", [](auto& file) {
    const std::uint32_t sub = End(file), top = sub + kBlockHeaderSize + 84;
    file.AddChain(FolderPayload({StreamRecord("sub", true, 84, top)}));
    AddFolder(file, {StreamRecord("sub", true, 84, sub)});
  }));
  shapes.push_back(Shape("folder whose middle is a child", [](auto& file) {
    const std::uint32_t middle = End(file) + kBlockHeaderSize + 80;
    AddFolder(file, {StreamRecord("a", false, 0, 1), StreamRecord("sub", true, 84, middle)}, {80});
  }));
  for (const std::uint32_t width : {2U, 64U}) {
    shapes.push_back(Shape("graph of width " + std::to_string(width), [=](auto& file) {
      std::uint32_t below = 0;
      for (std::uint32_t level = 0; level <= 640 / width / 4 + 8 && level <= 40; ++level) {
        Records records;
        for (std::uint32_t i = 0; i < width; ++i)
          records.push_back(StreamRecord("l" + std::to_string(i), below != 0, 0, below));
        below = file.AddChain(FolderPayload(records));
      }
      AddFolder(file, {StreamRecord("sub", true, 0, below)});
    }));
  }
  shapes.push_back(Shape(
      "10,000 folders deep",
      [](auto& file) {
        std::uint32_t below = file.AddChain(FolderPayload({}));
        std::uint32_t length = 4;
        for (int level = 0; level < 10000; ++level) {
          below = file.AddChain(FolderPayload({StreamRecord("sub", true, length, below, below)}));
          length = 84;
        }
        PutTarget(file, 84, below, true);
      },
      true));
  // Each level is open until what is below it is done: about 1,300 bytes, twice that for a copy.
  shapes.back().moreMemory = 10000 * 2700;
  shapes.push_back(Shape(
      "plain data that forges a folder",
      [](auto& file) {
        const std::uint32_t victim = Get32(file.bytes, file.SlotAt(0) + 76);
        const Bytes forged = FolderPayload({StreamRecord("child", false, 100, victim)});
        file.AddStream(6, "target", forged);
        file.AddStream(7, "f", forged);
      },
      false));
  shapes.push_back(Shape("entries that lie", [](auto& file) {
    Records records;
    const auto add = [&](const char* name, Bytes data) {
      const std::uint32_t first = file.AddChain(data);
      records.push_back(StreamRecord(name, false, static_cast<std::uint32_t>(data.size()), first));
    };
    add("child", {0xFF, 0xFF, 'x'});             // a string of 65,535 bytes
    add("sub", {0xF0, 0xFF, 0xFF, 0x7F, 1, 2});  // a log whose newest value lies far behind
    add("gone", {3});
    AddFolder(file, records);
    file.AddStream(7, "target", {0xFF, 0xFF});
  }));
  shapes.push_back(Shape("lengths that lie", [](auto& file) {
    const std::uint32_t first = file.AddChain(Pattern(10));
    PutTarget(file, 0x7FFFFFFF, first);
    AddRow(file, 1, 3000);
    file.PutSlot(7, StreamRecord("f", false, 0xFFFFFFFF, 0));
    file.PutSlot(8, StreamRecord("gone", true, 3000, first));
  }));
}

}  // namespace

std::uint32_t Field::In(const Bytes& bytes) const {
  std::uint32_t value = 0;
  for (std::size_t i = width; i-- > 0;) value = value << 8 | bytes[offset + i];
  return value;
}

void Field::Set(Bytes& bytes, std::uint32_t value) const {
  for (std::size_t i = 0; i < width; ++i)
    bytes[offset + i] = static_cast<std::uint8_t>(value >> 8 * i);
}

ReferenceFile::ReferenceFile() {
  soundBlock = builder.AddStream(0, "sound", Pattern(100, 9), {200});
  const std::uint32_t second = builder.AddDirectory();
  const std::uint32_t target = builder.AddStream(6, "target", Pattern(150), {60, 40, 80});
  const std::uint32_t child = builder.AddChain(Pattern(20));
  const std::uint32_t lost = builder.AddChain(Pattern(30), {10, 30});
  const std::uint32_t sub = builder.AddChain(
      FolderPayload({StreamRecord("child", false, 20, builder.AddChain(Pattern(20)))}));
  const std::uint32_t folder = builder.AddStream(
      7, "folder",
      FolderPayload({StreamRecord("child", false, 20, child), StreamRecord("", false, 0, lost),
                     StreamRecord("sub", true, 84, sub)}),
      {}, true);
  const std::uint32_t gone = builder.AddChain(Pattern(50), {30, 40});
  builder.PutSlot(8, StreamRecord("", false, 0, gone));
  for (std::uint32_t slot = 9; slot < 64; ++slot)
    builder.PutSlot(slot, StreamRecord("filler" + std::to_string(slot), false, 0, 0));
  for (std::size_t i = 0; i < 32; ++i) fields.push_back({"header.byte" + std::to_string(i), i, 1});
  AddFields("header", 26, {{"slotsPerDirectory", 2}, {"reservedSlotCount", 2}});
  for (const std::uint32_t directory : {32U, second})
    AddFields("directory" + std::to_string(directory), directory,
              {{"magic", 4}, {"slotCount", 4}, {"nextDirectory", 4}});
  AddRecord("target", builder.SlotAt(6));
  AddRecord("folder", builder.SlotAt(7));
  AddRecord("vacated", builder.SlotAt(8));
  AddRecord("empty", builder.SlotAt(0, 1));
  AddRecord("folder/child", folder + 24);
  AddRecord("folder/vacated", folder + 24 + kSlotSize);
  AddRecord("folder/sub", folder + 24 + 2 * kSlotSize);
  AddFields("folder", folder + 20, {{"count", 4}});
  AddFields("folder/sub", sub + 20, {{"count", 4}});
  AddBlocks("target", target);
  AddBlocks("folder", folder);
  AddBlocks("folder/child", child);
  AddBlocks("folder/vacated", lost);
  AddBlocks("vacated", gone);
}

void ReferenceFile::AddFields(const std::string& owner, std::size_t offset,
                              const std::vector<std::pair<const char*, std::size_t>>& names) {
  records.push_back(static_cast<std::uint32_t>(offset));
  for (const auto& [name, width] : names) {
    fields.push_back({owner + "." + name, offset, width});
    offset += width;
  }
}

void ReferenceFile::AddRecord(const std::string& owner, std::size_t offset) {
  AddFields(owner, offset, {{"magic", 4}, {"name", 4}});
  fields.push_back({owner + ".name's end", offset + 64, 1});
  AddFields(owner, offset + 65,
            {{"duration", 2}, {"kind", 1}, {"length", 4}, {"lastBlock", 4}, {"firstBlock", 4}});
}

void ReferenceFile::AddBlocks(const std::string& owner, std::uint32_t first) {
  int number = 0;
  for (std::uint32_t at = first; at != 0; at = Get32(builder.bytes, at + 16)) {
    AddFields(owner + ".block" + std::to_string(number++), at,
              {{"magic", 4}, {"used", 4}, {"capacity", 4}, {"prev", 4}, {"next", 4}});
  }
}

std::set<std::uint32_t> ReferenceFile::BadValues(const Field& field) const {
  const auto size = static_cast<std::uint32_t>(builder.bytes.size());
  const std::uint32_t old = field.In(builder.bytes);
  const std::set<std::uint32_t> bytes{0, 1, 2, 3, '1', '_', 0x7F, 0x80, 0xFF, old + 1, old - 1};
  if (field.width == 1) return bytes;
  if (field.width == 2) return {0, 1, 2, 7, 63, 64, 65, 0x8000, 0xFFFF};
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

std::vector<HostileFile> HostileShapes() {
  std::vector<HostileFile> shapes;
  AddDirectoryShapes(shapes);
  AddChainShapes(shapes);
  AddFolderShapes(shapes);
  shapes.push_back({"the reference", [] { return ReferenceFile().builder.bytes; }, true});
  return shapes;
}

}  // namespace aostorage::testing
