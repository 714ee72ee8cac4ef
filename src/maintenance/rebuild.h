// The compaction of a storage file.
#ifndef AOSTORAGE_MAINTENANCE_REBUILD_H_
#define AOSTORAGE_MAINTENANCE_REBUILD_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include <aostorage/types.h>

#include "folder/tree_copy.h"
#include "maintenance/copy_seal.h"
#include "platform/replacement.h"
#include "storage/storage_file.h"

namespace aostorage::detail {

// Writes what a storage holds to a new file and puts that in the place of another. All or nothing:
// whatever cannot be carried whole ends it, and the temporary file goes.
class Rebuild {
 public:
  Rebuild(StoragePointer ofSource, const RebuildProgress& follower)
      : source(std::move(ofSource)), seal(report, follower) {}

  enum class Where {
    kInPlace,  // the path must lead to the source
    kAnywhere,
  };
  Replacement::Outcome Run(const std::string& path, Where where);

 private:
  // Seals what is carried, counts it and tells the caller.
  class Carried : public CopySeal {
   public:
    Carried(RebuildReport& toFill, const RebuildProgress& follower)
        : report(toFill), progress(follower) {}
    bool Copied(const tag_aoStream& header, const std::uint8_t* data, std::uint32_t size) override;
    [[nodiscard]] bool GoOn() const;

   private:
    RebuildReport& report;
    const RebuildProgress& progress;
  };

  void NoteState();
  [[nodiscard]] bool IsStateAsNoted();
  [[nodiscard]] bool Survey();
  [[nodiscard]] bool SurveySlot(const tag_aoStream& header, std::uint32_t headerOffset,
                                bool reserved);
  [[nodiscard]] bool CarryAll(const StoragePointer& target);
  [[nodiscard]] bool CarryRoot(const char* name, TreeCopy& copy, const StoragePointer& target);
  [[nodiscard]] bool Check(const StoragePointer& target, const std::string& path) const;

  StoragePointer source;
  RebuildReport report;
  Carried seal;
  std::uint64_t epochBefore = 0, changesBefore = 0;
  // Names that were met in a slot which is not the map's, until the map's is met.
  std::set<std::string, std::less<>> awaited;
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_MAINTENANCE_REBUILD_H_
