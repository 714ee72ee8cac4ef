#include "storage/shared_stream.h"

#include <iterator>
#include <utility>

namespace aostorage::detail {
namespace {

bool LiesInside(const SharedStream& stream, const SharedStream& folder) {
  for (const SharedStream* at = stream.Parent(); at != nullptr; at = at->Parent()) {
    if (at == &folder) return true;
  }
  return false;
}

std::uint64_t HashOfOffset(std::uint32_t offset) {
  constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15;
  return (offset * kOdd) >> 32;
}

// The index takes no 0xFFFFFFFF; no block lies behind what can be reached.
std::uint32_t ChainValue(std::uint32_t firstBlock) {
  return static_cast<std::uint32_t>(firstBlock & (kReachableEnd - 1));
}

}  // namespace

SharedStream::SharedStream(SharedStreams& openStreams, std::uint32_t offset,
                           const tag_aoStream& header, std::shared_ptr<SharedStream> folder)
    : onDisk(header), table(openStreams), headerOffset(offset), parent(std::move(folder)) {
  table.EnterChain(*this);
  if (parent != nullptr) ++parent->openChildren;
}

void SharedStream::SetOnDisk(const tag_aoStream& header) noexcept {
  if (header.firstBlock == onDisk.firstBlock) {
    onDisk = header;
    return;
  }
  table.DropChain(*this);
  onDisk = header;
  table.EnterChain(*this);
}

// Parents that only their children hold are let go one by one: the chain may be deeper than the
// stack.
SharedStream::~SharedStream() {
  if (!removed) table.KeepIndex(*this);
  table.DropChain(*this);
  table.Leave(*this);
  bool counted = !removed;
  for (std::shared_ptr<SharedStream> up = std::move(parent); up != nullptr;) {
    if (counted) --up->openChildren;
    if (up.use_count() > 1) break;
    counted = !up->removed;
    std::shared_ptr<SharedStream> further = std::move(up->parent);
    up = std::move(further);
  }
}

void SharedStream::MarkRemoved() {
  if (removed) return;
  removed = true;
  if (parent != nullptr) --parent->openChildren;
}

std::shared_ptr<SharedStream> SharedStreams::Find(std::uint32_t headerOffset) const {
  const auto found = byHeaderOffset.find(headerOffset);
  return found == byHeaderOffset.end() ? nullptr : found->second.lock();
}

std::shared_ptr<SharedStream> SharedStreams::FindOrMake(
    std::uint32_t headerOffset, const tag_aoStream& header,
    const std::shared_ptr<SharedStream>& folder) {
  if (std::shared_ptr<SharedStream> present = Find(headerOffset)) {
    present->SetOnDisk(header);  // just read: what it says is newer than what was remembered
    return present;
  }
  chains.MakeRoom();
  auto made = std::make_shared<SharedStream>(*this, headerOffset, header, folder);
  byHeaderOffset[headerOffset] = made;
  if (IsFolderKind(header)) ReturnIndex(*made);
  return made;
}

void SharedStreams::Leave(const SharedStream& stream) {
  const auto found = byHeaderOffset.find(stream.HeaderOffset());
  if (found == byHeaderOffset.end()) return;
  const std::shared_ptr<SharedStream> present = found->second.lock();
  if (present == nullptr || present.get() == &stream) byHeaderOffset.erase(found);
}

// Streams without a chain must not all meet in one place of the index.
std::uint64_t SharedStreams::ChainHash(const SharedStream& stream) {
  const std::uint32_t firstBlock = stream.OnDisk().firstBlock;
  return HashOfOffset(firstBlock != 0 ? firstBlock : stream.HeaderOffset());
}

void SharedStreams::EnterChain(const SharedStream& stream) {
  chains.Insert(ChainHash(stream), ChainValue(stream.OnDisk().firstBlock));
}

void SharedStreams::DropChain(const SharedStream& stream) {
  chains.Erase(ChainHash(stream), ChainValue(stream.OnDisk().firstBlock));
}

bool SharedStreams::HasOpenChain(std::uint32_t firstBlock) const {
  return chains
      .Find(HashOfOffset(firstBlock),
            [&](std::uint32_t open) { return open == ChainValue(firstBlock); })
      .has_value();
}

void SharedStreams::KeepIndex(SharedStream& stream) noexcept {
  if (stream.index == nullptr || stream.index->Scanned() > kMostSlots) return;
  DropIndex(stream.headerOffset);
  kept[nextKept] = {stream.headerOffset, stream.onDisk.firstBlock, stream.indexEpoch,
                    std::move(stream.index)};
  nextKept = (nextKept + 1) % kMostKept;
}

// An index is about the chain: a record that leads to another one has no use for it.
void SharedStreams::ReturnIndex(SharedStream& stream) noexcept {
  for (KeptIndex& entry : kept) {
    if (entry.index == nullptr || entry.headerOffset != stream.headerOffset) continue;
    if (entry.firstBlock == stream.onDisk.firstBlock) {
      stream.index = std::move(entry.index);
      stream.indexEpoch = entry.epoch;
    }
    entry.index.reset();
    return;
  }
}

void SharedStreams::DropIndex(std::uint32_t headerOffset) noexcept {
  for (KeptIndex& entry : kept) {
    if (entry.headerOffset == headerOffset) entry.index.reset();
  }
}

void SharedStreams::Displace(std::uint32_t headerOffset) {
  DropIndex(headerOffset);
  if (const std::shared_ptr<SharedStream> old = Find(headerOffset)) MarkRemoved(*old);
}

void SharedStreams::MarkRemoved(SharedStream& stream) {
  stream.MarkRemoved();
  Leave(stream);
  if (!stream.HasOpenChildren()) return;
  for (auto entry = byHeaderOffset.begin(); entry != byHeaderOffset.end();) {
    const std::shared_ptr<SharedStream> open = entry->second.lock();
    const bool inside = open != nullptr && LiesInside(*open, stream);
    if (inside) open->MarkRemoved();
    // A stream made in its place later is another one.
    entry = inside ? byHeaderOffset.erase(entry) : std::next(entry);
  }
}

}  // namespace aostorage::detail
