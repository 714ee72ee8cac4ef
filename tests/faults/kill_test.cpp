// The process is killed at any moment: what had returned is there.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <ctime>
#include <iostream>
#include <random>
#include <sstream>

#include "faults/recorded_life.h"
#include "support/size.h"

namespace aostorage::testing {
namespace {

// A place that a child process tells its progress in.
class SharedCount {
 public:
  SharedCount()
      : place(static_cast<Count*>(::mmap(nullptr, sizeof(Count), PROT_READ | PROT_WRITE,
                                         MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
  ~SharedCount() { ::munmap(place, sizeof(Count)); }
  SharedCount(const SharedCount&) = delete;
  SharedCount& operator=(const SharedCount&) = delete;
  std::atomic<std::uint32_t>& operator*() const { return *place; }

 private:
  using Count = std::atomic<std::uint32_t>;
  static_assert(Count::is_always_lock_free);
  Count* place;
};

class Kills : public LifeTest {
 protected:
  enum class State { kUnknown, kBetweenWrites, kInsideAppend, kInsideRewrite };
  // Where the kill has met the step. The system ends a write of a dying process where it likes:
  // at a border of pages of the file or of the memory, mostly.
  static State StateOf(const Bytes& now, const RecordedStep& step) {
    Bytes file = step.before;
    for (const RecordedWrite& write : step.writes) {
      if (file == now) return State::kBetweenWrites;
      const auto offset = static_cast<std::size_t>(write.offset);
      const bool appends = offset + write.bytes.size() > file.size();
      const std::size_t there = now.size() > offset ? now.size() - offset : 0;
      // The longest part of the write that may be in the file, by its bytes.
      const std::size_t whole = std::min(there, write.bytes.size());
      const auto cut = static_cast<std::size_t>(
          std::mismatch(write.bytes.begin(),
                        write.bytes.begin() + static_cast<std::ptrdiff_t>(whole),
                        now.begin() + static_cast<std::ptrdiff_t>(std::min(offset, now.size())))
              .first -
          write.bytes.begin());
      Bytes torn = file;
      Apply(torn, write, 0, cut);
      if (cut < write.bytes.size() && torn == now) {
        return appends ? State::kInsideAppend : State::kInsideRewrite;
      }
      Apply(file, write);
    }
    return file == now ? State::kBetweenWrites : State::kUnknown;
  }
  // Where the file differs from what each write of the step leaves, to tell what happened.
  static std::string Differences(const Bytes& now, const RecordedStep& step) {
    std::ostringstream text;
    Bytes file = step.before;
    for (std::size_t i = 0; i <= step.writes.size(); ++i) {
      const std::size_t both = std::min(file.size(), now.size());
      const auto last = file.begin() + static_cast<std::ptrdiff_t>(both);
      text << "after " << i << " writes: " << file.size() << " bytes, the file has " << now.size()
           << " and differs from byte "
           << std::mismatch(file.begin(), last, now.begin()).first - file.begin();
      if (i < step.writes.size()) {
        text << "; then " << step.writes[i].bytes.size() << " bytes at " << step.writes[i].offset
             << "\n";
        Apply(file, step.writes[i]);
      }
    }
    return text.str();
  }
};

TEST_F(Kills, AtAnyMomentLoseNothingThatHadReturned) {
  const std::size_t kills = FullSize() ? 5000 : kSanitized ? 50 : 200;
  constexpr std::uint32_t kFailedStep = 1U << 30;
  std::vector<RecordedLife> lives;
  for (const unsigned seed : LifeSeeds()) {
    ASSERT_NO_FATAL_FAILURE(Record(seed, lives.emplace_back()));
  }
  std::mt19937 random(LifeSeeds().front());
  SharedCount done;
  std::size_t alive = 0, inCall = 0, torn = 0;
  for (std::size_t i = 0; i < kills; ++i) {
    const RecordedLife& recorded = lives[i % lives.size()];
    const Life& life = recorded.life;
    const std::size_t first = recorded.SessionOf(random() % (life.steps.size() * 4 / 5));
    WriteFile(path, recorded.steps[first].before);
    *done = 0;
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      Session session(path);
      for (std::size_t at = first; at < life.steps.size(); ++at) {
        if (!life.steps[at].Run(session)) *done |= kFailedStep;
        ++*done;
      }
      ::_exit(0);
    }
    // From the first call on, for about as long as 60 steps take.
    while (*done == 0 && ::waitpid(child, nullptr, WNOHANG | WNOWAIT) == 0) {
    }
    const timespec wait{0, static_cast<long>(random() % 1500000)};
    ::nanosleep(&wait, nullptr);
    ::kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_LT(*done, kFailedStep) << "a step failed before the kill";
    const std::size_t at = first + *done;
    alive += WIFSIGNALED(status) ? 1 : 0;
    SCOPED_TRACE("kill " + std::to_string(i) + " in step " + std::to_string(at));
    const Values& before = life.values[at];
    const State state = StateOf(File(), recorded.steps[at]);
    ASSERT_TRUE(state != State::kUnknown)
        << (at < life.steps.size() ? life.steps[at].label : "the end") << '\n'
        << Differences(File(), recorded.steps[at]);
    if (state == State::kInsideRewrite) {
      ++torn;
      ASSERT_EQ("", CheckOthers(path, before, {&life.steps[at]}));
    } else if (at == life.steps.size()) {
      ASSERT_EQ("", CheckBetween(path, before, before));
    } else {
      ASSERT_EQ("", CheckBetween(path, before, life.values[at + 1], life.steps[at].flushing));
    }
    inCall += File() != recorded.steps[at].before ? 1 : 0;
  }
  std::cout << "[  POINTS  ] " << alive << " of " << kills << " killed while alive, " << inCall
            << " in the middle of a call, " << torn << " inside a rewrite\n";
  EXPECT_GT(alive, kills / 2);
}

}  // namespace
}  // namespace aostorage::testing
