// The file as it stood after each write: it opens, and every stream reads as before or after the
// step.
#include <gtest/gtest.h>

#include "support/crash.h"
#include "support/life.h"
#include "support/temp_dir.h"

namespace aostorage::testing {
namespace {

TEST(CrashStates, EveryStateOfALifeOpensAndHoldsWhatWasCommitted) {
  const TempDir dir;
  const std::string path = dir.File("life"), torn = dir.File("torn");
  WriteFile(path, LifeStart());
  const Storage storage(aoStorage::Open(path.c_str(), kStreamWrite, kLifeReserve));
  Values values;
  std::size_t states = 0;
  for (const Step& step : ScriptedLife()) {
    SCOPED_TRACE(step.label);
    const Bytes before = ReadFile(path);
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
      EXPECT_EQ("", CheckFile(torn, Rules::kAfterFault)) << "after write " << whole;
      last = state;
      ++states;
    });
    ASSERT_EQ(last, ReadFile(path)) << "the recorded writes are not all that changed the file";
  }
  EXPECT_GT(states, 100U);
}

TEST(CrashStates, AFileThatWasNotMadeWholeIsRefusedOrEmpty) {
  const TempDir dir;
  const std::string torn = dir.File("torn");
  std::vector<RecordedWrite> writes;
  {
    Watch watch;
    const Storage storage(aoStorage::Create(dir.File("new").c_str(), 0, 0));
    writes = watch.Writes();
  }
  ReplayWrites({}, writes, [&](const Bytes& state, std::size_t) {
    WriteFile(torn, state);
    const Storage storage(aoStorage::Open(torn.c_str(), kStreamRead, 0));
    EXPECT_EQ(storage != nullptr, state.size() >= 32) << state.size();
    EXPECT_FALSE(storage && Stream(storage->OpenStream("a", kReadFlags)));
  });
}

}  // namespace
}  // namespace aostorage::testing
