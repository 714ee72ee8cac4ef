// What a storage remembers of a folder's child records.
#ifndef AOSTORAGE_STORAGE_FOLDER_INDEX_H_
#define AOSTORAGE_STORAGE_FOLDER_INDEX_H_

#include <cstdint>
#include <optional>
#include <set>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "storage/chain_cursor.h"
#include "storage/hash_index.h"
#include "storage/header_place.h"

namespace aostorage::detail {

// The slots of one folder, as far as scans have passed over them: where each lies, which names they
// hold, which are vacated. It fills in slot order and answers only for what it has seen; what it
// says of a name is checked against the record before it is believed. Names are kept as hashes
// alone, so a name that is found may turn out to be another: the caller then forgets the index and
// scans.
class FolderIndex {
 public:
  // Starts over for a folder whose count word is `countWord`; `afterCount` is the cursor behind
  // that word.
  FolderIndex(std::uint32_t countWord, const FilePieces& countPieces, const ChainCursor& afterCount)
      : slotCount(countWord), countPlace(countPieces), end(afterCount) {}

  std::uint32_t CountWord() const { return slotCount; }
  const HeaderPlace& CountPlace() const { return countPlace; }
  void SetCountWord(std::uint32_t countWord) { slotCount = countWord; }

  // Slots seen so far, from slot 0 on.
  std::uint32_t Scanned() const { return static_cast<std::uint32_t>(slots.size()); }
  // Whether every slot that the count word promises, or all that are there, were seen.
  bool Complete() const { return chainEnded || Scanned() >= slotCount; }
  // Where the scan goes on, and where a further slot is appended once all were seen.
  const ChainCursor& End() const { return end; }
  void SetChainEnded() { chainEnded = true; }
  // Where the last step of a walk over slots behind the counted ones ended; slot 0 for nowhere.
  std::uint32_t BehindSlot() const { return behindSlot; }
  const ChainCursor& BehindCursor() const { return behindCursor; }
  void SetBehind(std::uint32_t slotIndex, const ChainCursor& cursor) {
    behindSlot = slotIndex;
    behindCursor = cursor;
  }
  // Whether surely no byte of the chain lies behind the slots seen.
  bool NothingBehind() const {
    return chainEnded || (end.loaded && end.Available() == 0 && end.header.nextBlock == 0);
  }

  // A slot was read, or appended, behind those seen. `after` is the cursor behind it.
  void AddSlot(const tag_aoStream& record, const FilePieces& pieces, const ChainCursor& after);
  // The record of a slot seen was rewritten by this storage.
  void SlotRenamed(std::uint32_t slotIndex, std::string_view oldName, std::string_view newName);
  void SlotVacated(std::uint32_t slotIndex, std::string_view oldName);
  void SlotTaken(std::uint32_t slotIndex, std::string_view name);
  // False when the index cannot tell any more which slot is the first of a name: forget it then.
  bool Reliable() const { return !confused; }

  // First slot that may hold the name, among those seen.
  std::optional<std::uint32_t> SlotOf(std::string_view name) const;
  // First vacated slot among those seen.
  std::optional<std::uint32_t> FirstVacated() const;
  // First slot without the magic word among those seen.
  std::optional<std::uint32_t> FirstDamaged() const { return firstDamaged; }
  // First slot from `slotIndex` on, among those seen, that is in use or lacks the magic word.
  std::optional<std::uint32_t> NextToVisit(std::uint32_t slotIndex) const;

  HeaderPlace PlaceOf(std::uint32_t slotIndex) const;
  // The cursor on the slot's first byte, not loaded.
  ChainCursor CursorAt(std::uint32_t slotIndex) const;

 private:
  struct Slot {
    std::uint32_t block;        // block of the slot's first byte
    std::uint32_t blockOffset;  // and the byte's place in it
    std::uint32_t nameHash;     // the half that the table of names does not keep
    bool inUse;
    bool damaged;
  };

  void AddName(std::uint32_t slotIndex, std::string_view name);
  void DropName(std::uint32_t slotIndex, std::string_view name);

  std::uint32_t slotCount;
  HeaderPlace countPlace;
  ChainCursor end;
  std::uint32_t behindSlot = 0;
  ChainCursor behindCursor;
  bool chainEnded = false;
  bool duplicates = false;  // two slots had one name at some time
  bool confused = false;
  std::vector<Slot> slots;
  std::unordered_map<std::uint32_t, FilePieces> splitSlots;  // those that lie across blocks
  HashIndex slotByName;                                      // first slot of each name
  std::set<std::uint32_t> vacated;
  std::optional<std::uint32_t> firstDamaged;
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_STORAGE_FOLDER_INDEX_H_
