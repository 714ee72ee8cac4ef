#include "support/raw_file.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace aostorage::testing {
namespace {

const char kMagicText[] = "@_QX_Structured_Storage@_";

// Reads one file as far as its records are sound.
class Reader {
 public:
  explicit Reader(const Bytes& fileBytes) : file(fileBytes) {}

  RawImage Read() {
    if (!Fits(0, 32) || std::memcmp(file.data(), kMagicText, 24) != 0) return std::move(image);
    image.older = file[24] == '_';
    image.slotsPerDirectory = image.older ? 64 : Get16(file, 26);
    image.reservedSlots = image.older ? 2 : Get16(file, 28);
    reached = image.older ? 26 : 32;
    ReadDirectories();
    image.orphanedBytes = file.size() - std::min<std::uint64_t>(reached, file.size());
    return std::move(image);
  }

 private:
  bool Fits(std::uint64_t offset, std::uint64_t size) const { return offset + size <= file.size(); }
  // No file that a test reads has more records than this: what runs in circles ends.
  bool Goes() { return ++steps < 10000000; }

  void ReadDirectories() {
    for (std::uint32_t offset = image.older ? 26 : 32; offset != 0 && Goes();
         offset = Get32(file, offset + 8)) {
      if (!Fits(offset, kDirectorySize) || Get32(file, offset) != kDirectoryMagic) return;
      image.directories.push_back(offset);
      reached += kDirectorySize;
      const std::uint32_t slots = Get32(file, offset + 4);
      for (std::uint32_t slot = 0; slot < std::min(slots, 64U); ++slot) {
        const std::uint32_t place = offset + 12 + kSlotSize * slot;
        ReadTree(Slice(file, place, kSlotSize), place);
      }
    }
  }

  // A root record and all below it, without recursion: trees may be very deep.
  void ReadTree(const Bytes& rootRecord, std::uint32_t rootPlace) {
    struct Pending {
      Bytes record;
      std::uint32_t place;
      std::string parentPath;
    };
    std::vector<Pending> pending{{rootRecord, rootPlace, ""}};
    while (!pending.empty()) {
      const Pending next = std::move(pending.back());
      pending.pop_back();
      RawStream stream = ReadRecord(next.record, next.place, next.parentPath);
      const bool inUse = !stream.name.empty();
      if (!ReadChain(stream)) stream.kind = 0;
      if (inUse && stream.kind == 1) {
        const std::string path = stream.path.size() < 1000 ? stream.path + "/" : ".../";
        for (std::uint32_t i = ChildCount(stream); i-- > 0;) {
          const std::size_t position = 4 + std::size_t{kSlotSize} * i;
          pending.push_back(
              {Slice(stream.chain, position, kSlotSize), stream.PlaceOf(position), path});
        }
      }
      if (inUse) {
        image.streams.push_back(std::move(stream));
      } else if (stream.firstBlock != 0) {
        image.vacated.push_back(std::move(stream));
      }
    }
  }

  static RawStream ReadRecord(const Bytes& record, std::uint32_t place,
                              const std::string& parentPath) {
    const char* name = reinterpret_cast<const char*>(record.data()) + 4;
    RawStream stream{};
    stream.name.assign(name, strnlen(name, 61));
    stream.path = parentPath + (stream.name.empty() ? "@" + std::to_string(place) : stream.name);
    stream.duration = Get16(record, 65);
    stream.kind = record[67];
    stream.length = Get32(record, 68);
    stream.lastBlock = Get32(record, 72);
    stream.firstBlock = Get32(record, 76);
    stream.recordOffset = place;
    return stream;
  }

  bool ReadChain(RawStream& stream) {
    for (std::uint32_t offset = stream.firstBlock; offset != 0;
         offset = stream.blocks.back().next) {
      if (!Fits(offset, kBlockHeaderSize) || Get32(file, offset) != kBlockMagic || !Goes())
        return false;
      const RawBlock block{offset, Get32(file, offset + 4), Get32(file, offset + 8),
                           Get32(file, offset + 12), Get32(file, offset + 16)};
      if (block.used < kBlockHeaderSize || !Fits(offset, block.used)) return false;
      reached += block.capacity;
      stream.blocks.push_back(block);
      stream.chain.insert(stream.chain.end(), file.begin() + offset + kBlockHeaderSize,
                          file.begin() + offset + block.used);
    }
    return true;
  }

  // Children that are there to be read.
  static std::uint32_t ChildCount(const RawStream& folder) {
    if (folder.chain.size() < 4) return 0;
    const std::size_t whole = (folder.chain.size() - 4) / kSlotSize;
    return static_cast<std::uint32_t>(std::min<std::size_t>(Get32(folder.chain, 0), whole));
  }

  const Bytes& file;
  RawImage image;
  std::uint64_t reached = 0;
  std::uint64_t steps = 0;
};

}  // namespace

Bytes ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  Bytes bytes(in ? static_cast<std::size_t>(in.tellg()) : 0);
  in.seekg(0).read(reinterpret_cast<char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
  if (!in) throw std::runtime_error("cannot read " + path);
  return bytes;
}

void WriteFile(const std::string& path, const Bytes& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  if (!out.flush()) throw std::runtime_error("cannot write " + path);
}

Bytes Pattern(std::size_t count, unsigned seed) {
  Bytes bytes(count);
  std::uint32_t state = seed * 2654435761U + 1;
  for (std::uint8_t& byte : bytes) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<std::uint8_t>(state >> 24);
  }
  return bytes;
}

Bytes Slice(const Bytes& bytes, std::size_t first, std::size_t count) {
  first = std::min(first, bytes.size());
  count = std::min(count, bytes.size() - first);
  return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(first),
               bytes.begin() + static_cast<std::ptrdiff_t>(first + count));
}

std::uint16_t Get16(const Bytes& bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(bytes.at(offset) | bytes.at(offset + 1) << 8);
}

std::uint32_t Get32(const Bytes& bytes, std::size_t offset) {
  return Get16(bytes, offset) | static_cast<std::uint32_t>(Get16(bytes, offset + 2)) << 16;
}

void Put16(Bytes& bytes, std::size_t offset, std::uint16_t value) {
  bytes.at(offset) = static_cast<std::uint8_t>(value);
  bytes.at(offset + 1) = static_cast<std::uint8_t>(value >> 8);
}

void Put32(Bytes& bytes, std::size_t offset, std::uint32_t value) {
  Put16(bytes, offset, static_cast<std::uint16_t>(value));
  Put16(bytes, offset + 2, static_cast<std::uint16_t>(value >> 16));
}

void PatchFile32(const std::string& path, std::size_t offset, std::uint32_t value) {
  Bytes bytes = ReadFile(path);
  Put32(bytes, offset, value);
  WriteFile(path, bytes);
}

std::uint32_t RawStream::PlaceOf(std::size_t position) const {
  for (const RawBlock& block : blocks) {
    const std::size_t held = block.used - kBlockHeaderSize;
    if (position < held)
      return block.offset + kBlockHeaderSize + static_cast<std::uint32_t>(position);
    position -= held;
  }
  throw std::out_of_range("no such place in " + path);
}

const RawStream* RawImage::Find(const std::string& path) const {
  for (const RawStream& stream : streams) {
    if (stream.path == path) return &stream;
  }
  return nullptr;
}

RawImage ReadImage(const Bytes& file) { return Reader(file).Read(); }

Bytes StreamRecord(const std::string& name, bool folder, std::uint32_t length,
                   std::uint32_t firstBlock, std::uint32_t lastBlock,
                   std::uint16_t durationMinutes) {
  Bytes record(kSlotSize);
  Put32(record, 0, kStreamMagic);
  std::copy(name.begin(), name.end(), record.begin() + 4);
  Put16(record, 65, durationMinutes);
  record[67] = folder ? 1 : 0;
  Put32(record, 68, length);
  Put32(record, 72, lastBlock);
  Put32(record, 76, firstBlock);
  return record;
}

Bytes FolderPayload(const std::vector<Bytes>& records) {
  Bytes payload(4);
  Put32(payload, 0, static_cast<std::uint32_t>(records.size()));
  for (const Bytes& record : records) payload.insert(payload.end(), record.begin(), record.end());
  return payload;
}

FileBuilder::FileBuilder(Form form, std::uint16_t reservedSlots) {
  bytes.assign(kMagicText, kMagicText + 26);
  if (form == Form::kCurrent) {
    bytes.resize(32);
    bytes[24] = '1';
    bytes[25] = 0;
    Put16(bytes, 26, 64);
    Put16(bytes, 28, reservedSlots);
  }
  AddDirectory();
  for (std::uint32_t slot = 0; slot < 64; ++slot) Put32(bytes, SlotAt(slot), kStreamMagic);
}

std::uint32_t FileBuilder::AddDirectory(std::uint32_t slotCount) {
  const auto offset = static_cast<std::uint32_t>(bytes.size());
  if (!directories.empty()) Put32(bytes, directories.back() + 8, offset);
  bytes.resize(bytes.size() + kDirectorySize);
  Put32(bytes, offset, kDirectoryMagic);
  Put32(bytes, offset + 4, slotCount);
  directories.push_back(offset);
  return offset;
}

std::uint32_t FileBuilder::AddChain(const Bytes& data, const std::vector<std::uint32_t>& rooms) {
  std::size_t position = 0;
  std::uint32_t first = 0, prev = 0;
  for (std::size_t i = 0; i < rooms.size() || position < data.size() || first == 0; ++i) {
    const std::size_t left = data.size() - position;
    const std::size_t room = i < rooms.size() ? rooms[i] : left;
    const Bytes piece = Slice(data, position, room);
    const auto offset = static_cast<std::uint32_t>(bytes.size());
    if (prev != 0) Put32(bytes, prev + 16, offset);
    if (first == 0) first = offset;
    bytes.resize(bytes.size() + kBlockHeaderSize + room);
    Put32(bytes, offset, kBlockMagic);
    Put32(bytes, offset + 4, static_cast<std::uint32_t>(kBlockHeaderSize + piece.size()));
    Put32(bytes, offset + 8, static_cast<std::uint32_t>(kBlockHeaderSize + room));
    Put32(bytes, offset + 12, prev);
    std::copy(piece.begin(), piece.end(), bytes.begin() + offset + kBlockHeaderSize);
    position += piece.size();
    prev = offset;
  }
  return first;
}

std::uint32_t FileBuilder::SlotAt(std::uint32_t index, std::size_t directory) const {
  return directories.at(directory) + 12 + kSlotSize * index;
}

void FileBuilder::PutSlot(std::uint32_t index, const Bytes& record, std::size_t directory) {
  std::copy(record.begin(), record.end(), bytes.begin() + SlotAt(index, directory));
}

std::uint32_t FileBuilder::AddStream(std::uint32_t index, const std::string& name,
                                     const Bytes& data, const std::vector<std::uint32_t>& rooms,
                                     bool folder) {
  const std::uint32_t first = AddChain(data, rooms);
  PutSlot(index, StreamRecord(name, folder, static_cast<std::uint32_t>(data.size()), first));
  return first;
}

}  // namespace aostorage::testing
