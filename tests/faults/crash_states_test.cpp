// The file as it stood after each write: it opens, and every stream reads as before or after the
// step.
#include "folder/storage_fixture.h"
#include "support/crash.h"
#include "support/life.h"

namespace aostorage::testing {
namespace {

class CrashStates : public OneStorageTest {
 protected:
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
    ReplayWrites(before, writes, [&](const Bytes& state, std::size_t whole) {
      WriteFile(torn, state);
      EXPECT_EQ("", CheckBetween(torn, valuesBefore, values, step.flushing))
          << "after write " << whole;
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
  ReplayWrites({}, writes, [&](const Bytes& state, std::size_t) {
    WriteFile(torn, state);
    storage.reset(aoStorage::Open(torn.c_str(), kStreamRead, 0));
    EXPECT_EQ(storage != nullptr, state.size() >= 32) << state.size();
    EXPECT_FALSE(storage && Root("a", kReadFlags));
  });
}

}  // namespace
}  // namespace aostorage::testing
