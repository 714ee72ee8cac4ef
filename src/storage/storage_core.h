// What a storage and its streams share: the open file and all that is known of it.
#ifndef AOSTORAGE_STORAGE_STORAGE_CORE_H_
#define AOSTORAGE_STORAGE_STORAGE_CORE_H_

#include <algorithm>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <aostorage/types.h>

#include "platform/file.h"
#include "platform/last_error.h"
#include "storage/change_counter.h"
#include "storage/map_sort.h"
#include "storage/open_registry.h"
#include "storage/root_directory.h"
#include "storage/shared_stream.h"

namespace aostorage::detail {

class StorageCore {
 public:
  StorageCore(std::string fileName, File openFile, const StorageFileHeader& fileHeader,
              std::uint32_t reserveBytes)
      : path(std::move(fileName)),
        file(std::move(openFile)),
        changes(file.Identity()),
        defaultBlockSize(reserveBytes),
        tailOffset(file.KnownSize() < kReachableEnd ? static_cast<std::uint32_t>(file.KnownSize())
                                                    : 0),
        directory(fileHeader) {}

  // --- Writing. Every write to the file goes through here, or is counted like TakeOrdinarySlot
  // does, so that other storage objects on it notice.
  [[nodiscard]] bool Write(std::uint64_t offset, const void* data, std::size_t count) {
    CountOwnChange();
    return file.WriteAt(offset, data, count);
  }
  [[nodiscard]] bool Write(std::uint64_t offset, const Stretch* stretches,
                           std::size_t stretchCount) {
    CountOwnChange();
    return file.WriteAt(offset, stretches, stretchCount);
  }
  [[nodiscard]] bool WriteHeader(const HeaderPlace& place, std::size_t from,
                                 const std::uint8_t* bytes, std::size_t count) {
    CountOwnChange();
    return place.Write(file, from, bytes, count);
  }
  [[nodiscard]] bool WriteWords(const HeaderPlace& place, std::size_t from,
                                const std::uint8_t* before, const std::uint8_t* after,
                                std::size_t count, std::initializer_list<std::size_t> order) {
    CountOwnChange();
    return place.WriteWords(file, from, before, after, count, order);
  }
  // The record of a new stream. Its name makes it one, so that comes last; but not before the magic
  // word.
  [[nodiscard]] bool WriteNewHeader(const HeaderPlace& place, const StreamHeader::Bytes& record) {
    CountOwnChange();
    return place.FirstBorder() > StreamHeader::kNameAt
               ? place.WriteFromEnd(file, record)
               : place.Write(file, 0, record.data(), record.size());
  }
  // A record with another name. Where the old name ends before a border and the new one behind it,
  // the part that ends the old one comes last. With both behind it no order is better than one
  // call.
  [[nodiscard]] bool WriteRenamed(const HeaderPlace& place, const StreamHeader::Bytes& before,
                                  const StreamHeader::Bytes& record) {
    CountOwnChange();
    const auto border = static_cast<std::ptrdiff_t>(place.FirstBorder());
    const auto nameEnd = [](const StreamHeader::Bytes& bytes) {
      return std::find(bytes.begin() + StreamHeader::kNameAt, bytes.end(), 0) - bytes.begin();
    };
    return nameEnd(before) < border && nameEnd(record) >= border
               ? place.WriteFromEnd(file, record)
               : place.Write(file, 0, record.data(), record.size());
  }

  // The first free ordinary slot. What is known of the directory is read anew when another storage
  // object has written since.
  std::optional<FreeSlot> TakeOrdinarySlot() {
    if (directoryEpoch != IndexEpoch()) directory.Forget();
    directoryEpoch = indexEpoch;
    CountOwnChange();
    return directory.TakeOrdinary(file, tailOffset);
  }

  // How often this storage object has changed the file, or dropped a name.
  std::uint64_t OwnChanges() const { return ownChanges; }
  void CountOwnChange() {
    ++ownChanges;
    changes.CountOwn();
  }

  // --- What folder indexes were made under. A change by somebody else ends all of them at once.
  std::uint64_t IndexEpoch() {
    if (changes.OthersWrote()) ++indexEpoch;
    return indexEpoch;
  }
  // Something was changed that no index could follow.
  void ForgetIndexes() { ++indexEpoch; }
  // Asks the file system too.
  bool OthersChangedFile() {
    Attempt asking;
    if (!file.ChangedByOthers()) return false;
    if (asking.Code() == ErrorCode::kNone) {
      ++indexEpoch;
    } else {
      asking.Forget();  // the asker reads anew, and whoever asks next learns of a change
    }
    return true;
  }

  std::string path;
  File file;
  ChangeCounter changes;
  std::uint32_t defaultBlockSize;
  // The block that may grow past its capacity, or an offset at which no block begins.
  std::uint32_t tailOffset;
  RootDirectory directory;
  CMapSort streamMap;
  OpenRegistry openStreams;
  SharedStreams sharedStreams;
  bool sortEnabled = false;
  bool sortDescending = false;
  std::vector<std::string> streamNames;             // gathered by the name list walk
  std::set<std::string, std::less<>> droppedNames;  // taken out of the map by request

 private:
  std::uint64_t ownChanges = 0;
  std::uint64_t indexEpoch = 0;
  std::uint64_t directoryEpoch = 0;
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_STORAGE_STORAGE_CORE_H_
