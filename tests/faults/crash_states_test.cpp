// The file as it stood after each write: it opens, and every stream reads as before or after the
// step.
#include <set>

#include "folder/storage_fixture.h"
#include "support/life.h"

namespace aostorage::testing {
namespace {

class CrashStates : public OneStorageTest {
 protected:
  static void Apply(Bytes& state, const RecordedWrite& write, std::size_t count) {
    const auto offset = static_cast<std::size_t>(write.offset);
    if (state.size() < offset + count) state.resize(offset + count);
    std::copy_n(write.bytes.begin(), count, state.begin() + static_cast<std::ptrdiff_t>(offset));
  }
  // Lays the writes over `state`, one after the other. `check` gets each state on the way, the
  // first and the last included; of a write that appends also those in which only a part has
  // arrived, cut at the borders of the records that can stand at its start.
  template <class Check>
  static void Replay(Bytes state, const std::vector<RecordedWrite>& writes, Check check) {
    check(state);
    for (const RecordedWrite& write : writes) {
      const std::size_t size = write.bytes.size();
      const bool appends = write.offset + size > state.size();
      for (const std::size_t part :
           std::set<std::size_t>{1, 4, 19, 20, 21, 80, size / 2, size - 1}) {
        if (!appends || part == 0 || part >= size) continue;
        Bytes torn = state;
        Apply(torn, write, part);
        check(torn);
      }
      Apply(state, write, size);
      check(state);
    }
  }
  const std::string torn = dir.File("torn");
};

TEST_F(CrashStates, EveryStateOfALifeOpensAndHoldsWhatWasCommitted) {
  storage = OpenBytes(LifeStart(), kLifeReserve);
  Values values;
  for (const Step& step : ScriptedLife()) {
    SCOPED_TRACE(step.label);
    const Bytes before = File();
    const Values valuesBefore = values;
    std::vector<RecordedWrite> writes;
    {
      Watch watch;
      ASSERT_TRUE(step.perform(*storage, false));
      writes = watch.Writes();
    }
    step.expect(values);
    Bytes last;
    Replay(before, writes, [&](const Bytes& state) {
      WriteFile(torn, state);
      EXPECT_EQ("", CheckBetween(torn, valuesBefore, values, step.flushing));
      last = state;
    });
    ASSERT_EQ(last, File()) << "the recorded writes are not all that changed the file";
  }
}

TEST_F(CrashStates, AFileThatWasNotMadeWholeIsRefusedOrEmpty) {
  std::vector<RecordedWrite> writes;
  {
    Watch watch;
    Create();
    writes = watch.Writes();
  }
  Replay({}, writes, [&](const Bytes& state) {
    WriteFile(torn, state);
    storage.reset(aoStorage::Open(torn.c_str(), kStreamRead, 0));
    EXPECT_EQ(storage != nullptr, state.size() >= 32) << state.size();
    EXPECT_FALSE(storage && Root("a", kReadFlags));
  });
}

}  // namespace
}  // namespace aostorage::testing
