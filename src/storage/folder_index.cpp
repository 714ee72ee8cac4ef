#include "storage/folder_index.h"

namespace aostorage::detail {
namespace {

std::uint32_t SecondHalf(std::uint64_t hash) { return static_cast<std::uint32_t>(hash >> 32); }

}  // namespace

void FolderIndex::AddSlot(const tag_aoStream& record, const FilePieces& pieces,
                          const ChainCursor& after) {
  const std::uint32_t slotIndex = Scanned();
  const bool inUse = IsInUse(record);
  const bool damaged = !HasMagic(record);
  const FilePiece& first = pieces.front();
  slots.push_back({first.block, first.offset - first.block, 0, inUse, damaged});
  if (pieces.size() > 1) splitSlots[slotIndex] = pieces;
  if (inUse && HasTerminatedName(record)) AddName(slotIndex, record.name);
  if (!inUse && !damaged) vacated.insert(slotIndex);
  if (damaged && !firstDamaged) firstDamaged = slotIndex;
  end = after;
}

void FolderIndex::SlotRenamed(std::uint32_t slotIndex, std::string_view oldName,
                              std::string_view newName) {
  if (slotIndex >= Scanned()) return;
  DropName(slotIndex, oldName);
  AddName(slotIndex, newName);
}

void FolderIndex::SlotVacated(std::uint32_t slotIndex, std::string_view oldName) {
  if (slotIndex >= Scanned()) return;
  DropName(slotIndex, oldName);
  slots[slotIndex].inUse = false;
  if (!slots[slotIndex].damaged) vacated.insert(slotIndex);
}

void FolderIndex::SlotTaken(std::uint32_t slotIndex, std::string_view name) {
  if (slotIndex >= Scanned()) return;
  vacated.erase(slotIndex);
  slots[slotIndex].inUse = true;
  AddName(slotIndex, name);
}

std::optional<std::uint32_t> FolderIndex::SlotOf(std::string_view name) const {
  const std::uint64_t hash = HashOfName(name);
  return slotByName.Find(
      hash, [&](std::uint32_t slotIndex) { return slots[slotIndex].nameHash == SecondHalf(hash); });
}

std::optional<std::uint32_t> FolderIndex::FirstVacated() const {
  if (vacated.empty()) return std::nullopt;
  return *vacated.begin();
}

std::optional<std::uint32_t> FolderIndex::NextToVisit(std::uint32_t slotIndex) const {
  for (std::uint32_t i = slotIndex; i < Scanned(); ++i) {
    if (slots[i].inUse || slots[i].damaged) return i;
  }
  return std::nullopt;
}

HeaderPlace FolderIndex::PlaceOf(std::uint32_t slotIndex) const {
  const auto split = splitSlots.find(slotIndex);
  if (split != splitSlots.end()) return HeaderPlace(split->second);
  return HeaderPlace(slots[slotIndex].block + slots[slotIndex].blockOffset);
}

ChainCursor FolderIndex::CursorAt(std::uint32_t slotIndex) const {
  ChainCursor cursor = ChainCursor::AtStart(slots[slotIndex].block);
  cursor.blockOffset = slots[slotIndex].blockOffset;
  cursor.position = FolderPayload::SlotPosition(slotIndex);
  return cursor;
}

void FolderIndex::AddName(std::uint32_t slotIndex, std::string_view name) {
  const std::uint64_t hash = HashOfName(name);
  const std::optional<std::uint32_t> present = SlotOf(name);
  slots[slotIndex].nameHash = SecondHalf(hash);
  if (present) duplicates = true;
  if (present && *present < slotIndex) return;
  if (present) slotByName.Erase(hash, *present);
  slotByName.Insert(hash, slotIndex);
}

// With a name in two slots, the one that is left can be any of those seen.
void FolderIndex::DropName(std::uint32_t slotIndex, std::string_view name) {
  if (duplicates) confused = true;
  slotByName.Erase(HashOfName(name), slotIndex);
}

}  // namespace aostorage::detail
