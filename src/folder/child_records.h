// The child records in a folder's data.
#ifndef AOSTORAGE_FOLDER_CHILD_RECORDS_H_
#define AOSTORAGE_FOLDER_CHILD_RECORDS_H_

#include <cstdint>
#include <optional>

#include "folder/child_scan.h"
#include "stream/stream_core.h"

namespace aostorage::detail {

// One child record and where it lies.
struct ChildRecord {
  tag_aoStream header;
  HeaderPlace place;
  std::uint32_t slotIndex;
};

// Finds, adds and walks the child records of one folder, for the length of one operation. Answers
// as a scan of the whole folder would; the folder's index spares most of it. The folder's
// childCount follows the count word, and its cursor is moved as told.
class ChildRecords {
 public:
  enum class Result {
    kFound,
    kAbsent,   // surely not there
    kDamaged,  // of NextInUse: a slot that is neither in use nor vacated
    kFailed,   // the folder cannot be read as far as needed
  };

  explicit ChildRecords(StreamCore& openFolder);
  ChildRecords(const ChildRecords&) = delete;
  ChildRecords& operator=(const ChildRecords&) = delete;
  // An operation that memory cut short may have left half a change in the index: it is forgotten.
  ~ChildRecords();

  // The first record of that name. The cursor then stands on its first byte.
  Result Find(const char* name, ChildRecord& record);

  // Writes a record for a new child into the first vacated slot, or behind the last slot;
  // childCount rises in the second case. The count word is left to WriteCount. The cursor then
  // stands behind the record.
  [[nodiscard]] bool Add(const char* name, std::uint32_t packedKind, ChildRecord& record);
  // Writes the folder's childCount as its count word. The cursor then stands behind it.
  [[nodiscard]] bool WriteCount();

  // The first record from `slotIndex` on that is in use; `slotIndex` becomes the slot that ended
  // the search: the one found, the damaged one, or the one behind the last. The cursor stands
  // behind the record found. With `bounded`, only the slots that the count word promises are looked
  // at.
  Result NextInUse(std::uint32_t& slotIndex, bool bounded, ChildRecord& record);
  // Reads the count word into childCount.
  [[nodiscard]] bool ReadCount();
  // After a failed ReadCount or walk: whether the folder's chain ends before the count word does.
  bool LacksCount() const { return lacksCount; }
  // Bytes of the folder that were passed, with the headers of the blocks that they lie in.
  std::uint64_t BytesPassed();
  // Bytes that this object has passed on its way, the headers of their blocks included, whether
  // they led anywhere or not.
  std::uint64_t BytesWalked() const { return walked; }
  // After a walk to the end: whether the folder has all the slots that its count word and its
  // length promise.
  bool HasAllSlots();

  // What was remembered of the folder is not to be trusted any more.
  void Forget();

 private:
  // The folder's index, begun with the count word if there is none that is still good; null when
  // the count word cannot be read.
  FolderIndex* Index();
  std::uint32_t BytesBehind(const FolderIndex& index) const;
  Result ScanSlot(FolderIndex& index, ChildRecord& record);
  [[nodiscard]] bool ScanAll(FolderIndex& index);
  Result ScanFor(const char* name, FolderIndex& index, ChildRecord& record);
  [[nodiscard]] bool ReadSlot(const FolderIndex& index, std::uint32_t slotIndex,
                              ChildRecord& record);
  // Whether the index tells the truth about what is not there.
  bool MayBelieve();
  Result NextBehindCount(FolderIndex& index, std::uint32_t& slotIndex, ChildRecord& record);
  enum class Step { kDone, kAgain, kFailed };
  Step AddInVacated(FolderIndex& index, std::uint32_t slotIndex, const char* name,
                    std::uint32_t packedKind, ChildRecord& record);
  [[nodiscard]] bool Append(FolderIndex& index, const char* name, std::uint32_t packedKind,
                            ChildRecord& record);
  void PlaceBehind(const FolderIndex& index, const ChildRecord& record);

  StreamCore& folder;
  StorageCore& storage;
  int exceptionsBefore;
  std::uint64_t walked = 0;
  std::optional<ChildScan> scan;  // going on where the index ends
  bool begunHere = false;         // the index was begun in this operation
  bool lacksCount = false;
  bool verified = false;  // nobody else has changed the file since it was begun
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_FOLDER_CHILD_RECORDS_H_
