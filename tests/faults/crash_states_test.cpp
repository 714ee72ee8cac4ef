// The file as it can stand when a process dies or the power fails: between two writes, inside one,
// and with writes that never reached the disk.
#include <algorithm>
#include <iostream>
#include <random>
#include <set>

#include "faults/recorded_life.h"
#include "support/order_monitor.h"
#include "support/size.h"

namespace aostorage::testing {
namespace {

class CrashStates : public LifeTest {
 protected:
  // Records the lives and hands out each write with the file before it. `check` gets the life, the
  // step's index, the file and the write.
  template <class Check>
  void ForEachWrite(Check check) {
    for (const unsigned seed : LifeSeeds()) {
      RecordedLife recorded;
      ASSERT_NO_FATAL_FAILURE(Record(seed, recorded));
      for (std::size_t at = 0; at < recorded.life.steps.size(); ++at) {
        SCOPED_TRACE("AOSTORAGE_TEST_SEED=" + std::to_string(seed) + ", step " +
                     std::to_string(at) + ", " + recorded.life.steps[at].label);
        Bytes file = recorded.steps[at].before;
        for (const RecordedWrite& write : recorded.steps[at].writes) {
          SCOPED_TRACE(std::to_string(write.bytes.size()) + " bytes at " +
                       std::to_string(write.offset));
          check(seed, recorded.life, at, file, write);
          Apply(file, write);
          ASSERT_FALSE(HasFailure());
        }
      }
    }
  }
  static void Tell(const char* what, std::size_t tried, std::size_t all) {
    std::cout << "[  POINTS  ] " << tried << " of " << all << " " << what << "\n";
  }
  void Tear(const Bytes& file, const RecordedWrite& write, std::size_t count) {
    Bytes torn = file;
    Apply(torn, write, 0, count);
    WriteFile(path, torn);
  }
  static bool Appends(const Bytes& file, const RecordedWrite& write) {
    return write.offset + write.bytes.size() > file.size();
  }
};

TEST_F(CrashStates, BetweenWritesAndInsideAppendsHoldWhatWasCommitted) {
  std::size_t all = 0, tried = 0;
  std::vector<Points> points;
  ForEachWrite([&](unsigned seed, const Life& life, std::size_t at, const Bytes& file,
                   const RecordedWrite& write) {
    if (points.empty()) points.emplace_back(31, seed);
    const std::size_t size = write.bytes.size();
    std::set<std::size_t> cuts{0};
    for (std::size_t cut = 1; Appends(file, write) && cut < size; ++cut) {
      if (cut <= 92 || cut % 512 == 0) cuts.insert(cut);
    }
    for (const std::size_t cut : cuts) {
      ++all;
      if (!points.front().Take()) continue;
      ++tried;
      SCOPED_TRACE("cut at " + std::to_string(cut));
      Tear(file, write, cut);
      EXPECT_EQ("",
                CheckBetween(path, life.values[at], life.values[at + 1], life.steps[at].flushing));
    }
  });
  Tell("states between writes and inside appends", tried, all);
}

TEST_F(CrashStates, InsideRewritesLeaveAllOtherStreams) {
  std::size_t all = 0, tried = 0;
  std::vector<Points> points;
  ForEachWrite([&](unsigned seed, const Life& life, std::size_t at, const Bytes& file,
                   const RecordedWrite& write) {
    if (points.empty()) points.emplace_back(31, seed);
    if (Appends(file, write)) return;
    for (std::size_t cut = 1; cut < write.bytes.size(); ++cut) {
      ++all;
      if (!points.front().Take()) continue;
      ++tried;
      SCOPED_TRACE("cut at " + std::to_string(cut));
      Tear(file, write, cut);
      EXPECT_EQ("", CheckOthers(path, life.values[at], {&life.steps[at]}));
    }
  });
  Tell("cuts inside rewrites", tried, all);
}

TEST_F(CrashStates, EveryWriteKeepsTheOrder) {
  std::size_t writes = 0, swaps = 0, caught = 0;
  for (const unsigned seed : LifeSeeds()) {
    RecordedLife recorded;
    ASSERT_NO_FATAL_FAILURE(Record(seed, recorded));
    OrderMonitor monitor(recorded.life.start);
    for (std::size_t at = 0; at < recorded.life.steps.size(); ++at) {
      SCOPED_TRACE("AOSTORAGE_TEST_SEED=" + std::to_string(seed) + ", step " + std::to_string(at) +
                   ", " + recorded.life.steps[at].label);
      const std::vector<RecordedWrite>& inStep = recorded.steps[at].writes;
      monitor.BeginOperation();
      for (const RecordedWrite& write : inStep) monitor.Write(write.offset, write.bytes);
      writes += inStep.size();
      ASSERT_EQ("", monitor.Violations());
      // The other way round an append breaks a rule.
      const bool appends = recorded.steps[at].before.size() < recorded.steps[at + 1].before.size();
      if (!appends || inStep.size() < 2) continue;
      OrderMonitor other(recorded.steps[at].before);
      other.BeginOperation();
      for (std::size_t i = inStep.size(); i-- > 0;) other.Write(inStep[i].offset, inStep[i].bytes);
      ++swaps;
      caught += other.Violations().empty() ? 0 : 1;
    }
  }
  EXPECT_EQ(caught, swaps) << "the monitor overlooks an order";
  std::cout << "[  POINTS  ] " << writes << " writes in order; of " << swaps
            << " steps turned round " << caught << " noticed\n";
}

// Of the writes behind the last Sync only some have reached the disk, some of them in part.
TEST_F(CrashStates, WithoutUnsyncedWritesHoldWhatWasSynced) {
  const std::size_t tries = FullSize() ? 200 : 20;
  std::size_t tried = 0;
  for (const unsigned seed : LifeSeeds()) {
    RecordedLife recorded;
    ASSERT_NO_FATAL_FAILURE(Record(seed, recorded));
    const Life& life = recorded.life;
    std::mt19937 random(seed);
    for (std::size_t synced = 0; synced < life.steps.size(); ++synced) {
      if (!life.steps[synced].syncs) continue;
      std::size_t end = synced + 1;
      while (end < life.steps.size() && !life.steps[end].syncs) ++end;
      for (std::size_t i = 0; i < tries; ++i) {
        const std::size_t last = synced + 1 + random() % (end - synced);
        SCOPED_TRACE("AOSTORAGE_TEST_SEED=" + std::to_string(seed) + ", steps " +
                     std::to_string(synced + 1) + " to " + std::to_string(last) + ", try " +
                     std::to_string(i));
        std::vector<const RecordedWrite*> writes;
        std::vector<const Step*> steps;
        for (std::size_t at = synced + 1; at < last; ++at) {
          steps.push_back(&life.steps[at]);
          for (const RecordedWrite& write : recorded.steps[at].writes) writes.push_back(&write);
        }
        std::shuffle(writes.begin(), writes.end(), random);
        Bytes file = recorded.steps[synced + 1].before;
        const unsigned kept = 1 + static_cast<unsigned>(random() % 7);  // of 8
        for (const RecordedWrite* write : writes) {
          if (random() % 8 >= kept) continue;
          const bool whole = random() % 4 != 0;
          for (std::size_t first = 0; first < write->bytes.size();) {
            const std::size_t sector = 512 - (write->offset + first) % 512;
            const std::size_t count = std::min(sector, write->bytes.size() - first);
            if (whole || random() % 2 == 0) Apply(file, *write, first, count);
            first += count;
          }
        }
        WriteFile(path, file);
        ASSERT_EQ("", CheckOthers(path, life.values[synced + 1], steps));
        ++tried;
      }
    }
  }
  std::cout << "[  POINTS  ] " << tried << " files without some of their writes\n";
}

TEST_F(CrashStates, AFileThatWasNotMadeWholeIsRefusedOrEmpty) {
  std::vector<RecordedWrite> writes;
  {
    Watch watch;
    Create();
    writes = watch.Writes();
  }
  Bytes file;
  for (const RecordedWrite& write : writes) {
    for (std::size_t cut = 0; cut <= write.bytes.size(); ++cut) {
      if (cut > 92 && cut % 512 != 0 && cut != write.bytes.size()) continue;
      Tear(file, write, cut);
      const Storage storage(aoStorage::Open(path.c_str(), kStreamRead, 0));
      EXPECT_EQ(storage != nullptr, File().size() >= 32) << cut;
      EXPECT_FALSE(storage && Got(storage->OpenStream("a", kReadFlags)));
    }
    Apply(file, write);
  }
}

}  // namespace
}  // namespace aostorage::testing
