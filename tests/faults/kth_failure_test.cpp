// The k-th call fails, k = 1, 2, 3 ... until a run is clean.
#include <cerrno>
#include <filesystem>

#include "folder/storage_fixture.h"
#include "support/allocations.h"
#include "support/life.h"
#include "support/tree_text.h"

namespace aostorage::testing {
namespace {

struct FaultKind {
  const char* label;
  int error;
  Error reason;
  std::size_t cutBytes;  // 0: the call fails as a whole; else a write at the end that takes so many
                         // bytes before
  bool forGood = false;  // no write succeeds any more
};

const FaultKind kOnce[] = {{"call", EIO, Error::kInputOutput, 0},
                           {"write cut after 1 byte", ENOSPC, Error::kDiskFull, 1},
                           {"write cut after 21 bytes", ENOSPC, Error::kDiskFull, 21},
                           {"write cut after 70 bytes", ENOSPC, Error::kDiskFull, 70}};
const FaultKind kFullDisk{"disk full at write", ENOSPC, Error::kDiskFull, 0, true};

class Faults : public OneStorageTest {
 protected:
  // Gives `live` a storage at the start of its life with the k-th fault ahead, and `check` the file
  // that is left.
  template <class Live, class Check>
  void ForEachFault(const FaultKind& kind, Live live, Check check) {
    bool fired = true;
    for (std::size_t k = 1; fired && !HasFailure(); ++k) {
      ASSERT_LT(k, 3000U);
      SCOPED_TRACE(kind.label + (" " + std::to_string(k)));
      storage = OpenBytes(LifeStart(), kLifeReserve);
      {
        Watch watch;
        if (kind.cutBytes != 0) {
          watch.CutAppendAt(k, kind.cutBytes, kind.error);
        } else {
          watch.FailAt(k, kind.forGood ? Only(Call::kWrite) : kAnyCall, kind.error,
                       kind.forGood ? SIZE_MAX : 0);
        }
        live(watch);
        fired = watch.FaultFired();
      }
      storage.reset();
      check();
    }
  }
  // What was begun and may not be whole is removed and made again.
  bool BeginAnew(const Step& step) const {
    Stream begun = OpenPath(*storage, step.path);
    return (!begun || Remove(begun)) && step.perform(*storage, true);
  }
  void LoseNothing(const FaultKind& kind) {
    Values before, after;
    Step last;
    ForEachFault(
        kind,
        [&](const Watch& watch) {
          before.clear();
          after.clear();
          for (const Step& step : ScriptedLife()) {
            last = step;
            step.expect(after);
            ClearLastError();
            const bool done = step.perform(*storage, kind.forGood);
            const bool atRoot = step.path.find('/') == std::string::npos;
            EXPECT_TRUE(done || !atRoot || LastError() == kind.reason) << step.label;
            EXPECT_TRUE(done || !atRoot || LastSystemError() == kind.error) << step.label;
            // What is reported as done has to be there.
            if (done && !(step.begins && watch.FaultFired())) before = after;
            if (!done || watch.FaultFired()) break;
          }
        },
        [&] { EXPECT_EQ("", CheckBetween(path, before, after, last.flushing)) << last.label; });
  }
};

TEST_F(Faults, LoseNothingThatWasCommitted) {
  for (const FaultKind& kind : kOnce) LoseNothing(kind);
  LoseNothing(kFullDisk);
}

TEST_F(Faults, AreOvercomeByASecondTry) {
  for (const FaultKind& kind : kOnce) {
    Values values;
    ForEachFault(
        kind,
        [&](const Watch& watch) {
          values.clear();
          for (const Step& step : ScriptedLife()) {
            const bool firedBefore = watch.FaultFired();
            const bool done = step.perform(*storage, true);
            const bool fired = watch.FaultFired() && !firedBefore;
            ASSERT_TRUE(fired && step.begins ? BeginAnew(step) : done) << step.label;
            step.expect(values);
          }
        },
        [&] {
          EXPECT_EQ("", CheckBetween(path, values, values));
          EXPECT_EQ("", CheckFile(path));
        });
  }
}

// The k-th allocation of each step fails: what the library remembers still says what the file says.
TEST_F(Faults, OfMemoryAreOvercomeByASecondTry) {
  const std::vector<Step> steps = ScriptedLife();
  for (const Step& failing : steps) {
    bool fired = true;
    for (std::size_t k = 1; fired; ++k) {
      SCOPED_TRACE(failing.label + ", allocation " + std::to_string(k));
      ASSERT_LT(k, 1000U);
      storage = OpenBytes(LifeStart(), kLifeReserve);
      Values values;
      Stream folder;  // held open, so that what is remembered of it lives on
      for (const Step& step : steps) {
        const bool atRoot = step.label.rfind("create") == 0, anew = atRoot || step.begins;
        bool done = false;
        if (&step == &failing) {
          const FailAllocation fault(k);
          done = step.perform(*storage, !anew);
          fired = fault.Fired();
        } else {
          done = step.perform(*storage, false);
        }
        if (&step == &failing && fired && anew) {
          if (atRoot) {  // it can be in the file and not in the map
            folder.reset();
            Reopen(kLifeReserve);
          }
          done = BeginAnew(step);
        }
        ASSERT_TRUE(done) << step.label;
        step.expect(values);
        if (!folder) folder = Root("f");
        if (!folder) continue;
        // Each name is found, by itself and in the walk.
        std::size_t children = 0;
        for (const auto& [streamPath, value] : values) {
          if (streamPath.rfind("f/") != 0 || streamPath.find('/', 2) != std::string::npos) continue;
          ++children;
          ASSERT_TRUE(Got(folder->OpenStream(streamPath.c_str() + 2, kReadFlags))) << streamPath;
        }
        ASSERT_EQ(NamesIn(*folder).size(), children);
      }
      folder.reset();
      storage.reset();
      ASSERT_EQ("", CheckBetween(path, values, values));
      ASSERT_EQ("", CheckFile(path));
    }
  }
}

TEST_F(Faults, OfOpeningLeaveTheFileAsItWas) {
  FileBuilder there;
  there.AddDirectory();
  there.AddStream(6, "a", Pattern(10));
  struct Row {
    aoStorage* (*open)(const char*, std::uint32_t, std::uint32_t);
    Bytes before, after;  // empty: no file
  };
  for (const Row& row : {Row{&aoStorage::Create, {}, FileBuilder().bytes},
                         Row{&aoStorage::OpenOrCreate, {}, FileBuilder().bytes},
                         Row{&aoStorage::OpenOrCreate, there.bytes, there.bytes}}) {
    bool fired = true;
    for (std::size_t k = 1; fired && k < 20; ++k) {
      SCOPED_TRACE(k);
      std::filesystem::remove(path);
      if (!row.before.empty()) WriteFile(path, row.before);
      {
        Watch watch;
        watch.FailAt(k, kAnyCall & ~Only(Call::kUnlink), EIO);
        storage.reset(row.open(path.c_str(), kStreamWrite, 0));
        fired = watch.FaultFired();
      }
      EXPECT_TRUE(storage || fired);
      ASSERT_EQ(storage || !row.before.empty(), std::filesystem::exists(path));
      if (std::filesystem::exists(path)) {
        EXPECT_EQ(File(), row.after);
      }
    }
    EXPECT_FALSE(fired);
  }
}

}  // namespace
}  // namespace aostorage::testing
