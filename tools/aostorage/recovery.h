// What can be read of an inspected file, written to a new store.
#ifndef AOSTORAGE_TOOLS_RECOVERY_H_
#define AOSTORAGE_TOOLS_RECOVERY_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

#include <aostorage/inspect.h>
#include <aostorage/storage.h>

#include "names.h"
#include "recover_finds.h"
#include "recover_verdict.h"
#include "report.h"
#include "store.h"
#include "trail.h"

namespace aotool {

struct RecoverTotals {
  std::uint64_t streams = 0, folders = 0, bytes = 0;  // under their paths
  std::uint64_t finds = 0, findBytes = 0;             // streams and folders under lost+found
  std::uint64_t missing = 0;  // could once be reached and are not, or not whole, under their paths
};

// Two rounds over the source: what is reached and whole goes under its path, then everything else
// under lost+found. Each folder of the new store is opened once, and only those on the way down are
// open.
class Recovery {
 public:
  // `target` is empty. `text` and `json` take a line for each find; `json` may be null.
  Recovery(const aostorage::Inspection& inspected, aostorage::aoStorage& target, Report& toReport,
           Spool& text, Spool* json);
  Recovery(const Recovery&) = delete;
  Recovery& operator=(const Recovery&) = delete;
  ~Recovery() { CloseLevels(0); }

  // Fails when the target cannot be written or the user interrupts; never because of the source.
  Result Run();

  const RecoverTotals& Totals() const { return totals; }
  // One line that sums up.
  std::string Summary() const;
  // The name of the folder in the new store; empty when nothing had to go there.
  const std::string& LostFolder() const { return lostFolder; }

 private:
  // A folder of the new store on the way down.
  struct Level {
    std::uint32_t stream = aostorage::kNoIndex;  // in the source; kNoIndex for lost+found
    std::uint32_t next = 0;                      // child to look at
    StreamPtr folder;
    std::string name;
    UsedNames used;  // in a folder that is lost
  };

  Result WriteAll();
  Result WriteReachable();
  Result WriteLost();
  Result WriteReached(std::uint32_t stream, bool reserved);
  Result WriteFind(std::uint32_t stream);
  Result DrainLevels(std::size_t floor);
  Result Write(std::uint32_t stream, const std::string& name, bool reserved, Verdict& verdict);
  Result WritePlain(std::uint32_t stream, aostorage::aoStream& to, Verdict& verdict);
  Result OpenLostFolder();
  void Enter(std::uint32_t stream, const std::string& name, StreamPtr folder);
  void CloseLevels(std::size_t floor);
  Result StoreReport();

  Result Tell(const Find& find);
  Result TellOfDirectory();
  Result TellOfBlankSlots(const aostorage::InspectedDirectory& directory);
  Result TellOfStore(const std::string& why);
  Result FromTarget();

  const aostorage::InspectedStream& At(std::uint32_t stream) const {
    return source.Streams()[stream];
  }
  bool IsLive(std::uint32_t stream) const {
    return At(stream).state == aostorage::RecordState::kLive;
  }
  bool IsReserved(const aostorage::InspectedStream& stream) const;
  bool GoesUnderLost(std::uint32_t stream) const;
  bool HoldsAnything(std::uint32_t stream, const Verdict& verdict) const;
  bool KeepsName(std::uint32_t stream, const Verdict& verdict) const;
  std::string FreeLostName() const;
  Place Bottom() const;
  std::string TargetPath(const std::string& name) const;

  const aostorage::Inspection& source;
  aostorage::aoStorage& storage;
  Report& report;
  Spool& lines;
  Spool* documents;
  RecoverTotals totals;
  std::vector<Level> levels;
  std::unordered_set<std::uint32_t> unreadable;  // found to be so only when they were copied
  std::string lostFolder;
  bool full = false;  // the new store takes nothing more
};

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_RECOVERY_H_
