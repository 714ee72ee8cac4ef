#include "support/order_monitor.h"

#include <algorithm>

namespace aostorage::testing {
namespace {

template <class Value>
const Value* Find(const std::map<std::uint32_t, Value>& all, std::uint32_t key) {
  const auto found = all.find(key);
  return found == all.end() ? nullptr : &found->second;
}

}  // namespace

void OrderMonitor::BeginOperation() {
  written.assign(file.size(), false);
  sizeBefore = file.size();
}

void OrderMonitor::Write(std::uint64_t offset, const std::vector<std::uint8_t>& bytes) {
  const std::size_t end = static_cast<std::size_t>(offset) + bytes.size();
  if (file.size() < end) file.resize(end);
  written.resize(file.size());
  std::copy(bytes.begin(), bytes.end(), file.begin() + static_cast<std::ptrdiff_t>(offset));
  std::fill(written.begin() + static_cast<std::ptrdiff_t>(offset),
            written.begin() + static_cast<std::ptrdiff_t>(end), true);
  directoriesBefore = std::move(directories);
  slotsBefore = std::move(slots);
  blocksBefore = std::move(blocks);
  Look();
  CheckDirectories();
  for (const auto& [place, stream] : slots) {
    CheckChain(stream);
    CheckStream(stream);
  }
  CheckOverlaps();
}

void OrderMonitor::Look() {
  directories.clear();
  slots.clear();
  blocks.clear();
  RawImage image = ReadImage(file);
  for (const std::uint32_t offset : image.directories)
    directories[offset] = Get32(file, offset + 8);
  for (std::vector<RawStream>* some : {&image.streams, &image.vacated}) {
    for (RawStream& stream : *some) {
      for (const RawBlock& block : stream.blocks) blocks[block.offset] = block;
      const std::uint32_t place = stream.recordOffset;
      slots[place] = std::move(stream);
    }
  }
}

void OrderMonitor::Require(bool holds, const char* rule, std::uint64_t place) {
  if (!holds) violations += rule + (" at " + std::to_string(place)) + "\n";
}

bool OrderMonitor::IsWritten(std::uint64_t first, std::uint64_t end) const {
  if (first >= end) return true;
  return end <= written.size() &&
         std::find(written.begin() + static_cast<std::ptrdiff_t>(first),
                   written.begin() + static_cast<std::ptrdiff_t>(end),
                   false) == written.begin() + static_cast<std::ptrdiff_t>(end);
}

void OrderMonitor::CheckDirectories() {
  for (const auto& [offset, next] : directories) {
    Require(next == 0 || directories.count(next) != 0, "W2 link to no directory block", offset);
    const std::uint32_t* before = Find(directoriesBefore, offset);
    Require(before == nullptr || *before == 0 || *before == next, "W8 changed nextDirectory",
            offset);
    Require(before != nullptr || IsWritten(offset, offset + kDirectorySize),
            "W2 link to a block that is not whole", offset);
  }
}

void OrderMonitor::CheckChain(const RawStream& stream) {
  std::uint32_t previous = 0, expected = stream.firstBlock;
  for (const RawBlock& block : stream.blocks) {
    const std::uint64_t end = std::uint64_t{block.offset} + block.capacity;
    Require(block.offset == expected && block.prev == previous, "I14 prevBlock", block.offset);
    Require(block.used >= kBlockHeaderSize && block.used <= block.capacity, "I11 words",
            block.offset);
    Require(end <= file.size(), "I12 reaches behind the file", block.offset);
    previous = block.offset;
    expected = block.next;
    const RawBlock* before = Find(blocksBefore, block.offset);
    if (before == nullptr) {
      Require(IsWritten(block.offset, end), "W1 link to a block that is not whole", block.offset);
      continue;
    }
    Require(before->next == 0 || before->next == block.next, "W8 changed nextBlock", block.offset);
    Require(before->prev == block.prev, "W8 changed prevBlock", block.offset);
    Require(IsWritten(std::uint64_t{block.offset} + before->used,
                      std::uint64_t{block.offset} + block.used),
            "W3 used before data", block.offset);
    const std::uint64_t endBefore = std::uint64_t{block.offset} + before->capacity;
    Require(block.capacity == before->capacity ||
                (end > endBefore && endBefore >= sizeBefore && IsWritten(endBefore, end)),
            "W9 capacity changed", block.offset);
  }
  Require(expected == 0, "W1 link to no block", stream.recordOffset);
}

void OrderMonitor::CheckStream(const RawStream& stream) {
  const RawStream* before = Find(slotsBefore, stream.recordOffset);
  const std::uint32_t place = stream.recordOffset;
  Require(stream.firstBlock != 0 || (stream.length == 0 && stream.lastBlock == 0),
          "W4 length without a block", place);
  Require(before == nullptr || before->firstBlock == 0 || before->firstBlock == stream.firstBlock,
          "W8 changed firstBlock", place);
  CheckFolder(stream, before);
  if (stream.name.empty()) return;
  // A final write that shortens lowers `used` first: the length that stays is no word that it
  // wrote.
  const bool stays = before != nullptr && stream.length <= before->length;
  Require(stream.length <= stream.chain.size() || stays, "W3 length before used", place);
  const bool fresh = before == nullptr || before->name.empty();
  const std::size_t covered = fresh || stream.kind == 1 ? 0 : before->length;
  for (std::size_t i = covered; stream.kind != 1 && i < stream.length; ++i) {
    if (i >= stream.chain.size()) break;
    const std::uint32_t byte = stream.PlaceOf(i);
    if (!written[byte]) return Require(false, "W3 length before data", byte);
  }
}

void OrderMonitor::CheckFolder(const RawStream& stream, const RawStream* before) {
  const bool wasFolder = before != nullptr && !before->name.empty() && before->kind == 1;
  if (stream.name.empty() && !wasFolder) return;
  if (!stream.name.empty() && stream.kind != 1) return;
  if (!stream.name.empty() && before != nullptr && before->name.empty()) {
    for (const RawBlock& block : stream.blocks)
      Require(block.used == kBlockHeaderSize, "W6 a folder over old bytes", block.offset);
  }
  if (stream.chain.size() < 4) return;
  const std::size_t count = Get32(stream.chain, 0);
  Require(stream.chain.size() >= 4 + kSlotSize * count, "W5 count before slot",
          stream.recordOffset);
  for (std::size_t at = 4; at + kSlotSize <= std::min(stream.chain.size(), 4 + kSlotSize * count);
       at += kSlotSize) {
    Require(Get32(stream.chain, at) == kStreamMagic, "W5 counted slot without magic word",
            stream.recordOffset);
    Require(!stream.name.empty() || stream.chain[at + 4] == 0, "W7 a folder goes before its child",
            stream.recordOffset);
  }
}

void OrderMonitor::CheckOverlaps() {
  std::vector<std::pair<std::uint64_t, std::uint64_t>> records;
  for (const auto& [offset, next] : directories)
    records.emplace_back(offset, std::uint64_t{offset} + kDirectorySize);
  for (const auto& [place, stream] : slots) {
    for (const RawBlock& block : stream.blocks)
      records.emplace_back(block.offset, std::uint64_t{block.offset} + block.capacity);
  }
  std::sort(records.begin(), records.end());
  for (std::size_t i = 1; i < records.size(); ++i)
    Require(records[i - 1].second <= records[i].first, "I15 overlap", records[i].first);
}

}  // namespace aostorage::testing
