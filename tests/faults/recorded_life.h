/// @file
/// A life that went well, with every call that it made: what fault points and crash states are
/// counted on.
#ifndef AOSTORAGE_TESTS_FAULTS_RECORDED_LIFE_H_
#define AOSTORAGE_TESTS_FAULTS_RECORDED_LIFE_H_

#include <memory>

#include "folder/storage_fixture.h"
#include "support/allocations.h"
#include "support/check_file.h"
#include "support/life.h"

namespace aostorage::testing {

inline void Apply(Bytes& file, const RecordedWrite& write, std::size_t first, std::size_t count) {
  const auto offset = static_cast<std::size_t>(write.offset) + first;
  if (file.size() < offset + count) file.resize(offset + count);
  std::copy_n(write.bytes.begin() + static_cast<std::ptrdiff_t>(first), count,
              file.begin() + static_cast<std::ptrdiff_t>(offset));
}
inline void Apply(Bytes& file, const RecordedWrite& write) {
  Apply(file, write, 0, write.bytes.size());
}

struct RecordedStep {
  Bytes before;  ///< the file
  std::vector<Call> calls;
  std::vector<bool> appends;  ///< of each call: whether it makes the file longer
  std::vector<RecordedWrite> writes;
  std::size_t allocations = 0;
};

struct RecordedLife {
  Life life;
  std::vector<RecordedStep> steps;  ///< one more than the life has: the end

  std::size_t SessionOf(std::size_t step) const {
    while (!life.steps[step].opens) --step;
    return step;
  }
  std::size_t Calls() const {
    std::size_t count = 0;
    for (const RecordedStep& step : steps) count += step.calls.size();
    return count;
  }
};

class LifeTest : public StorageFileTest {
 protected:
  /// Runs the life on the file. Each step must succeed, leave what it should, and have changed the
  /// file by the recorded writes alone.
  void Record(unsigned seed, RecordedLife& recorded) {
    recorded.life = DrawLife(seed);
    const Life& life = recorded.life;
    WriteFile(path, life.start);
    Session session(path);
    for (std::size_t i = 0; i <= life.steps.size(); ++i) {
      RecordedStep step;
      step.before = File();
      ASSERT_EQ("",
                CheckBetween(path, life.values[i], life.values[i], Ends::kBetween, Rules::kStrict));
      if (i == life.steps.size()) return recorded.steps.push_back(std::move(step));
      SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(i) + ", " +
                   life.steps[i].label);
      {
        Watch watch;
        const std::size_t allocations = AllocationsMade();
        ASSERT_TRUE(life.steps[i].Run(session)) << LastError().text;
        step.allocations = AllocationsMade() - allocations;
        step.calls = watch.Calls();
        step.writes = watch.Writes();
      }
      ASSERT_FALSE(session.odd);
      ASSERT_EQ(LastError().code, ErrorCode::kNone) << LastError().text;
      Bytes replayed = step.before;
      step.appends.resize(step.calls.size());
      auto write = step.writes.begin();
      for (std::size_t call = 0; call < step.calls.size(); ++call) {
        if (step.calls[call] != Call::kWrite) continue;
        const std::size_t size = replayed.size();
        Apply(replayed, *write++);
        step.appends[call] = replayed.size() > size;
      }
      ASSERT_EQ(replayed, File()) << "the recorded writes are not all that changed the file";
      recorded.steps.push_back(std::move(step));
    }
  }
};

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_FAULTS_RECORDED_LIFE_H_
