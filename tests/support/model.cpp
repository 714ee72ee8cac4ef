#include "support/model.h"

#include <algorithm>
#include <cstdlib>
#include <random>

namespace aostorage::testing {
namespace {

constexpr std::size_t kReservedSlots = 6, kSlotsPerDirectory = 64;

std::string Describe(const std::vector<RawBlock>& blocks) {
  std::string text;
  for (const RawBlock& block : blocks)
    text += " " + std::to_string(block.used) + "/" + std::to_string(block.capacity);
  return text;
}

// The stream itself, used and capacity of each block, and all bytes.
std::string CompareStream(const ModelStream& expected, const RawStream& actual) {
  std::vector<RawBlock> blocks;
  Bytes chain;
  for (const auto& block : expected.blocks) {
    blocks.push_back({0, block->used, block->capacity, 0, 0});
    chain.insert(chain.end(), block->data.begin(),
                 block->data.begin() + block->used - kBlockHeaderSize);
  }
  std::string text;
  if (actual.name != expected.name || actual.length != expected.length ||
      actual.duration != expected.duration || (actual.kind == 1) != expected.folder) {
    text += actual.name + " of length " + std::to_string(actual.length) + " instead of " +
            expected.name + " of " + std::to_string(expected.length) + ", or kind or duration\n";
  }
  if (Describe(blocks) != Describe(actual.blocks)) {
    text += actual.path + ": blocks are" + Describe(actual.blocks) + " instead of" +
            Describe(blocks) + "\n";
  } else if (chain != actual.chain) {
    text += actual.path + ": bytes differ\n";
  }
  return text;
}

}  // namespace

std::vector<unsigned> HistorySeeds(std::size_t count) {
  if (const char* replayed = std::getenv("AOSTORAGE_TEST_SEED")) {
    return {static_cast<unsigned>(std::strtoul(replayed, nullptr, 10))};
  }
  const bool same = std::getenv("AOSTORAGE_TEST_SAME_SEEDS") != nullptr;
  std::vector<unsigned> seeds{same ? 0 : std::random_device{}()};
  while (seeds.size() < count) seeds.push_back(static_cast<unsigned>(seeds.size()));
  return seeds;
}

ModelStorage::ModelStorage(std::uint32_t bytesReserved)
    : reserve(bytesReserved), slots(kSlotsPerDirectory) {
  for (auto& slot : slots) slot = std::make_unique<ModelStream>();
}

ModelStream* ModelStorage::Create(const std::string& name, bool folder, bool fast,
                                  std::uint16_t duration) {
  if (Find(name) != nullptr) return nullptr;
  std::size_t index = fast ? 0 : kReservedSlots;
  while (index < slots.size() && !slots[index]->name.empty()) ++index;
  if (fast && index >= kReservedSlots) return nullptr;
  if (index == slots.size()) {
    for (std::size_t i = 0; i < kSlotsPerDirectory; ++i)
      slots.push_back(std::make_unique<ModelStream>());
    tail = nullptr;
  }
  ModelStream& slot = *slots[index];
  slot.name = name;
  slot.folder = folder;
  slot.duration = duration;
  if (folder) {
    for (const auto& block : slot.blocks) block->used = kBlockHeaderSize;
    ModelCursor(*this, slot).Write(Bytes(4));
  }
  return &slot;
}

void ModelStorage::Remove(ModelStream& stream) {
  stream.name.clear();
  stream.folder = false;
  stream.duration = 0;
  stream.length = 0;
}

ModelStream* ModelStorage::Find(const std::string& name) const {
  for (const auto& slot : slots) {
    if (slot->name == name) return slot.get();
  }
  return nullptr;
}

std::string ModelStorage::Compare(const RawImage& image) const {
  std::string text;
  if (image.directories.size() * kSlotsPerDirectory != slots.size())
    text += "number of directory blocks\n";
  std::size_t inUse = 0, vacated = 0;
  for (const auto& slot : slots) {
    const bool free = slot->name.empty();
    if (free && slot->blocks.empty()) continue;
    const std::vector<RawStream>& among = free ? image.vacated : image.streams;
    const std::size_t index = free ? vacated++ : inUse++;
    text += index < among.size() ? CompareStream(*slot, among[index]) : slot->name + " is lost\n";
  }
  if (inUse < image.streams.size() || vacated < image.vacated.size())
    text += "more streams than there should be\n";
  return text;
}

ModelBlock* ModelStorage::Allocate(ModelStream& stream) {
  auto block = std::make_unique<ModelBlock>();
  if (!stream.folder) block->capacity += reserve;
  block->data.resize(block->capacity - kBlockHeaderSize);
  tail = block.get();
  stream.blocks.push_back(std::move(block));
  return tail;
}

Bytes ModelCursor::Read(std::uint32_t count) {
  Bytes bytes;
  while (HasBlock() && count != 0) {
    if (blockOffset == 0) blockOffset = kBlockHeaderSize;
    const ModelBlock& here = *stream.blocks[block];
    const std::uint32_t n = std::min(count, here.used - blockOffset);
    const auto first = here.data.begin() + blockOffset - kBlockHeaderSize;
    bytes.insert(bytes.end(), first, first + n);
    blockOffset += n;
    position += n;
    count -= n;
    if (block + 1 == stream.blocks.size() || count == 0) break;
    ++block;
    blockOffset = 0;
  }
  return bytes;
}

void ModelCursor::Write(const Bytes& bytes, bool final) {
  if (stream.blocks.empty()) {
    storage.Allocate(stream);
    block = 0;
  }
  std::size_t done = 0;
  while (done < bytes.size()) {
    if (blockOffset == 0) blockOffset = kBlockHeaderSize;
    ModelBlock& here = *stream.blocks[block];
    const std::size_t left = bytes.size() - done;
    const std::size_t chunk =
        &here == storage.tail ? left : std::min<std::size_t>(left, here.capacity - blockOffset);
    const std::size_t place = blockOffset - kBlockHeaderSize;
    if (here.data.size() < place + chunk) here.data.resize(place + chunk);
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(done), chunk,
                here.data.begin() + static_cast<std::ptrdiff_t>(place));
    done += chunk;
    blockOffset += static_cast<std::uint32_t>(chunk);
    position += static_cast<std::uint32_t>(chunk);
    bool allocated = false;
    if (done < bytes.size() && block + 1 == stream.blocks.size()) {
      storage.Allocate(stream);
      allocated = true;
    }
    if (allocated || final || blockOffset > here.used) {
      here.used = blockOffset;
      here.capacity = std::max(here.capacity, here.used);
    }
    if (final || position > stream.length) stream.length = position;
    if (done == bytes.size()) break;
    ++block;
    blockOffset = 0;
  }
}

bool ModelCursor::Seek(std::uint32_t distance, std::uint8_t origin, bool forward) {
  if (origin > 2) return false;
  if (origin == 0) return SeekRight(distance, true);
  return origin == 2 && forward ? SeekRight(distance, false) : SeekLeft(distance, origin == 1);
}

bool ModelCursor::Seek2(std::int32_t offset, std::uint32_t origin) {
  if (origin > 1) return SeekRight(0, true);
  const auto distance = static_cast<std::uint32_t>(std::abs(std::int64_t{offset}));
  return offset < 0 ? SeekLeft(distance, origin == 0) : SeekRight(distance, origin == 0);
}

bool ModelCursor::Walk(std::uint32_t distance, std::size_t walkBlock, std::uint32_t offset) {
  for (; walkBlock < stream.blocks.size(); ++walkBlock, offset = 0) {
    if (offset == 0) offset = kBlockHeaderSize;
    const std::uint32_t n = std::min(distance, stream.blocks[walkBlock]->used - offset);
    position += n;
    distance -= n;
    if (distance == 0) {
      block = walkBlock;
      blockOffset = offset + n;
      return true;
    }
  }
  return false;
}

bool ModelCursor::SeekRight(std::uint32_t distance, bool fromStart) {
  if (!fromStart) return Walk(distance, block, blockOffset);
  position = 0;
  return Walk(distance, 0, 0);
}

bool ModelCursor::SeekLeft(std::uint32_t distance, bool fromEnd) {
  if (fromEnd) {
    position = 0;
    Walk(stream.length, 0, 0);
  }
  if (distance == 0) return true;
  if (blockOffset > kBlockHeaderSize) {
    const std::uint32_t n = std::min(distance, blockOffset - kBlockHeaderSize);
    blockOffset -= n;
    position -= n;
    distance -= n;
    if (distance == 0) return true;
  }
  return SeekRight(position - distance, true);
}

bool ModelCursor::SetLength(std::uint32_t newLength) {
  if (newLength > stream.length) return false;
  SeekRight(0, true);
  stream.length = newLength;
  return true;
}

void ModelCursor::Erase() { SetLength(0); }

}  // namespace aostorage::testing
