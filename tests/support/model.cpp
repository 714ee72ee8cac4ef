#include "support/model.h"

#include <algorithm>
#include <cstdlib>
#include <random>

namespace aostorage::testing {
namespace {

constexpr std::size_t kReservedSlots = 6, kSlotsPerDirectory = 64;

void List(const ModelStream& stream, const std::string& parentPath,
          std::vector<std::pair<std::string, const ModelStream*>>& inUse,
          std::vector<const ModelStream*>& vacated) {
  if (stream.name.empty()) {
    if (!stream.blocks.empty()) vacated.push_back(&stream);
    return;
  }
  inUse.emplace_back(parentPath + stream.name, &stream);
  for (const auto& child : stream.slots)
    List(*child, parentPath + stream.name + "/", inUse, vacated);
}

std::string Describe(const std::vector<RawBlock>& blocks) {
  std::string text;
  for (const RawBlock& block : blocks) {
    text += " " + std::to_string(block.used) + "/" + std::to_string(block.capacity);
  }
  return text;
}

std::string Describe(const ModelStream& stream) {
  std::string text;
  for (const auto& block : stream.blocks) {
    text += " " + std::to_string(block->used) + "/" + std::to_string(block->capacity);
  }
  return text;
}

// Used and capacity of each block, and the bytes that the model knows.
std::string CompareChain(const std::string& label, const ModelStream& expected,
                         const RawStream& actual) {
  if (Describe(expected) != Describe(actual.blocks)) {
    return label + ": blocks are" + Describe(actual.blocks) + " instead of" + Describe(expected) +
           "\n";
  }
  const std::vector<ModelByte> bytes = expected.Chain();
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (bytes[i] != kUnknownByte && bytes[i] != actual.chain[i]) {
      return label + ": byte " + std::to_string(i) + " differs\n";
    }
  }
  return "";
}

}  // namespace

std::vector<unsigned> HistorySeeds(std::size_t count) {
  if (const char* replayed = std::getenv("AOSTORAGE_TEST_SEED")) {
    return {static_cast<unsigned>(std::strtoul(replayed, nullptr, 10))};
  }
  std::vector<unsigned> seeds{std::random_device{}()};
  while (seeds.size() < count) seeds.push_back(static_cast<unsigned>(seeds.size()));
  return seeds;
}

std::vector<ModelByte> ModelStream::Chain() const {
  std::vector<ModelByte> bytes;
  for (const auto& block : blocks) {
    bytes.insert(bytes.end(), block->data.begin(),
                 block->data.begin() + block->used - kBlockHeaderSize);
  }
  return bytes;
}

ModelStorage::ModelStorage(std::uint32_t bytesReserved)
    : reserve(bytesReserved), slots(kSlotsPerDirectory) {
  for (auto& slot : slots) slot = std::make_unique<ModelStream>();
}

void ModelStorage::Take(ModelStream& slot, const std::string& name, bool folder,
                        std::uint16_t duration) {
  slot.name = name;
  slot.folder = folder;
  slot.duration = duration;
  slot.length = 0;
  slot.slots.clear();
  if (!folder) return;
  for (const auto& block : slot.blocks) block->used = kBlockHeaderSize;
  ModelCursor(*this, slot).Write(Bytes(4));
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
  Take(*slots[index], name, folder, duration);
  return slots[index].get();
}

ModelStream* ModelStorage::CreateChild(ModelStream& parent, const std::string& name, bool folder) {
  ModelStream* vacated = nullptr;
  for (const auto& slot : parent.slots) {
    if (slot->name == name) return nullptr;
    if (slot->name.empty() && vacated == nullptr) vacated = slot.get();
  }
  if (vacated == nullptr) {
    ModelCursor cursor(*this, parent);
    cursor.Seek(static_cast<std::uint32_t>(4 + kSlotSize * parent.slots.size()), 0);
    cursor.Write(Bytes(kSlotSize));
    parent.slots.push_back(std::make_unique<ModelStream>());
    vacated = parent.slots.back().get();
    for (const auto& block : parent.blocks) block->data.assign(block->data.size(), kUnknownByte);
  }
  Take(*vacated, name, folder, 0);
  return vacated;
}

void ModelStorage::Remove(ModelStream& stream) {
  for (const auto& block : stream.blocks) {
    if (stream.folder) block->data.assign(block->data.size(), kUnknownByte);
  }
  stream.name.clear();
  stream.folder = false;
  stream.duration = 0;
  stream.length = 0;
  stream.slots.clear();
}

ModelStream* ModelStorage::Find(const std::string& name) const {
  for (const auto& slot : slots) {
    if (slot->name == name) return slot.get();
  }
  return nullptr;
}

std::vector<ModelStream*> ModelStorage::Streams() const {
  std::vector<ModelStream*> streams;
  for (const auto& slot : slots) {
    if (!slot->name.empty()) streams.push_back(slot.get());
  }
  return streams;
}

std::string ModelStorage::Compare(const RawImage& image) const {
  std::string text;
  for (const std::string& violation : image.violations) text += violation + "\n";
  if (image.directories.size() * kSlotsPerDirectory != slots.size())
    text += "number of directory blocks\n";
  std::vector<std::pair<std::string, const ModelStream*>> inUse;
  std::vector<const ModelStream*> vacated;
  for (const auto& slot : slots) List(*slot, "", inUse, vacated);
  if (inUse.size() != image.streams.size() || vacated.size() != image.vacated.size()) {
    return text + std::to_string(image.streams.size()) + " streams, " +
           std::to_string(image.vacated.size()) + " vacated instead of " +
           std::to_string(inUse.size()) + ", " + std::to_string(vacated.size()) + "\n";
  }
  for (std::size_t i = 0; i < inUse.size(); ++i) {
    const auto& [path, stream] = inUse[i];
    const RawStream& actual = image.streams[i];
    if (actual.path != path) {
      text += actual.path + " in place of " + path + "\n";
      continue;
    }
    if (actual.length != stream->length || actual.duration != stream->duration ||
        (actual.kind == 1) != stream->folder) {
      text += path + ": length " + std::to_string(actual.length) + " instead of " +
              std::to_string(stream->length) + ", or kind or duration\n";
    }
    text += CompareChain(path, *stream, actual);
  }
  for (std::size_t i = 0; i < vacated.size(); ++i) {
    text += CompareChain(image.vacated[i].path, *vacated[i], image.vacated[i]);
  }
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

std::vector<ModelByte> ModelCursor::Read(std::uint32_t count) {
  std::vector<ModelByte> bytes;
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
    for (std::size_t i = 0; i < chunk; ++i) here.data[place + i] = bytes[done + i];
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
