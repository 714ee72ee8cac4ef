// The k-th call, and the k-th allocation, of a life fails, for every k: once and for ever.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <iostream>

#include "faults/recorded_life.h"
#include "support/size.h"

namespace aostorage::testing {
namespace {

constexpr std::size_t kWhole = SIZE_MAX - 1;  // a call that is not cut short

struct FaultKind {
  const char* label;
  int error;  // 0: the call is only cut short
  ErrorCode reason;
  std::size_t moreCalls = 0;  // that fail as well
  std::size_t cutTo = kWhole;
  bool unnoticed = false;   // the operation does all the same
  bool appending = false;   // only for calls that make the file longer
  bool allocation = false;  // allocations fail and not calls
};

constexpr std::size_t kEver = SIZE_MAX, kButOne = Watch::kAllButOne;
const FaultKind kCallFaults[] = {
    {"EIO once", EIO, ErrorCode::kInputOutput},
    {"EIO for ever", EIO, ErrorCode::kInputOutput, kEver},
    {"ENOSPC once", ENOSPC, ErrorCode::kDiskFull},
    {"ENOSPC for ever", ENOSPC, ErrorCode::kDiskFull, kEver},
    {"EINTR once", EINTR, ErrorCode::kNone, 0, kWhole, true},
    {"EINTR ten times", EINTR, ErrorCode::kNone, 9, kWhole, true},
    {"EINTR for ever", EINTR, ErrorCode::kInputOutput, kEver},
    {"0 bytes once", 0, ErrorCode::kNone, 0, 0},
    {"0 bytes for ever", 0, ErrorCode::kNone, kEver, 0},
    {"1 byte once", 0, ErrorCode::kNone, 0, 1, true},
    {"1 byte for ever", 0, ErrorCode::kNone, kEver, 1, true},
    {"all but one byte once", 0, ErrorCode::kNone, 0, kButOne, true},
    {"all but one byte for ever", 0, ErrorCode::kNone, kEver, kButOne, true},
    {"1 byte, then ENOSPC", ENOSPC, ErrorCode::kDiskFull, 0, 1, false, true},
    {"21 bytes, then ENOSPC", ENOSPC, ErrorCode::kDiskFull, 0, 21, false, true},
    {"all but one byte, then ENOSPC", ENOSPC, ErrorCode::kDiskFull, 0, kButOne, false, true},
};
const FaultKind kAllocationFaults[] = {
    {"allocation once", 0, ErrorCode::kNoMemory, 0, kWhole, false, false, true},
    {"allocation for ever", 0, ErrorCode::kNoMemory, kEver, kWhole, false, false, true},
};

int LowestFreeDescriptor() {
  const int descriptor = ::open("/dev/null", O_RDONLY);
  ::close(descriptor);
  return descriptor;
}

class Faults : public LifeTest {
 protected:
  struct Outcome {
    bool told = false, fired = false;
    Error error{};
    bool IsDone() const { return told && error.code == ErrorCode::kNone; }
  };

  // The step with its k-th call or allocation failing.
  static Outcome Perform(const Step& step, Session& session, const FaultKind& kind, std::size_t k) {
    Outcome outcome;
    if (kind.allocation) {
      const FailAllocation fault(k, kind.moreCalls != 0);
      outcome.told = step.Run(session);
      outcome.fired = fault.Fired();
    } else {
      Watch watch;
      if (kind.cutTo != kWhole) watch.ShortAt(k, kind.cutTo, kind.moreCalls != 0);
      const std::size_t failing = kind.appending ? k + 1 : k;
      if (kind.error != 0) watch.FailAt(failing, kAnyCall, kind.error, kind.moreCalls);
      outcome.told = step.Run(session);
      outcome.fired = watch.FaultFired();
    }
    outcome.error = LastError();
    return outcome;
  }

  // The cause is gone: the step succeeds on the same objects. What was begun is removed before.
  // Another storage object is needed behind a failed Sync, a removal that has let go of the name,
  // and where memory was lacking for a stream that is in the file.
  static bool Overcome(const Step& step, Session& session, const FaultKind& kind,
                       const Values& before, const Values& after) {
    session.retrying = true;
    ClearLastError();
    if (step.syncs || step.loses || (step.begins && kind.allocation)) session.Close();
    for (const auto& [name, value] : after) {
      if (!step.begins || before.count(name) != 0) continue;
      session.LetGo(name);
      aoStream* const begun = session.At(name);
      if (begun != nullptr && !begun->Remove()) return false;
      if (begun != nullptr) session.LetGo(name, true);
    }
    if (step.logs && !step.begins) {  // a part of the value counts already
      aoStream* const log = session.At(step.path);
      const auto length = static_cast<std::uint32_t>(before.at(step.path).size());
      if (log == nullptr || (log->GetLength() > length && !log->SetLength(length))) return false;
    }
    if (step.removes && session.At(step.path) == nullptr) return true;  // it had gone all the same
    return step.Run(session) && LastError().code == ErrorCode::kNone;
  }

  static void CheckOutcome(const Outcome& outcome, const FaultKind& kind) {
    EXPECT_TRUE(outcome.IsDone() || outcome.error.code != ErrorCode::kNone) << "no reason";
    EXPECT_TRUE(outcome.IsDone() || !kind.unnoticed) << outcome.error.text;
    if (outcome.IsDone() || kind.reason == ErrorCode::kNone) return;
    EXPECT_EQ(outcome.error.code, kind.reason) << outcome.error.text;
    EXPECT_EQ(outcome.error.systemError, kind.error);
    EXPECT_STRNE(outcome.error.operation, "");
  }

  // From the start of the session on, with the fault in step `at`.
  void Try(const RecordedLife& recorded, std::size_t at, const FaultKind& kind, std::size_t k) {
    const Life& life = recorded.life;
    const Step& step = life.steps[at];
    const std::size_t first = recorded.SessionOf(at);
    WriteFile(path, recorded.steps[first].before);
    Session session(path);
    for (std::size_t i = first; i < at; ++i) ASSERT_TRUE(life.steps[i].Run(session));
    const Outcome outcome = Perform(step, session, kind, k);
    CheckOutcome(outcome, kind);
    EXPECT_TRUE(outcome.fired);
    if (kind.unnoticed) {
      EXPECT_EQ(File(), recorded.steps[at + 1].before);
    } else {
      const Values& committed = life.values[outcome.IsDone() ? at + 1 : at];
      EXPECT_EQ("", CheckBetween(path, committed, life.values[at + 1],
                                 step.flushing ? Ends::kAnywhere : Ends::kBetween));
    }
    EXPECT_TRUE(outcome.IsDone() ||
                Overcome(step, session, kind, life.values[at], life.values[at + 1]))
        << LastError().text;
    std::size_t end = at + 1;
    for (; end < std::min(at + 4, life.steps.size()) && !life.steps[end].opens; ++end)
      EXPECT_TRUE(life.steps[end].Run(session)) << life.steps[end].label << LastError().text;
    EXPECT_FALSE(session.odd) << "a result that is not documented";
    session.Close();
    if (kind.unnoticed) return;
    EXPECT_EQ(
        "", CheckBetween(path, life.values[end], life.values[end], Ends::kBetween, Rules::kStrict));
  }

  void TryAll(const FaultKind* kinds, std::size_t kindCount, std::size_t quickStride) {
    std::size_t tried = 0, all = 0;
    const int descriptor = LowestFreeDescriptor();
    for (const unsigned seed : LifeSeeds()) {
      RecordedLife recorded;
      ASSERT_NO_FATAL_FAILURE(Record(seed, recorded));
      Points points(quickStride, seed);
      for (std::size_t at = 0; at < recorded.life.steps.size(); ++at) {
        const RecordedStep& step = recorded.steps[at];
        for (std::size_t each = 0; each < kindCount; ++each) {
          const FaultKind& kind = kinds[each];
          const std::size_t count = kind.allocation ? step.allocations : step.calls.size();
          for (std::size_t k = 1; k <= count; ++k) {
            if (!Applies(kind, step, k)) continue;
            ++all;
            if (!points.Take()) continue;
            SCOPED_TRACE("AOSTORAGE_TEST_SEED=" + std::to_string(seed) + ", step " +
                         std::to_string(at) + ", " + recorded.life.steps[at].label + ", " +
                         kind.label + " at " + std::to_string(k));
            const std::ptrdiff_t living = AllocationsLiving();
            ASSERT_NO_FATAL_FAILURE(Try(recorded, at, kind, k));
            ASSERT_FALSE(HasFailure());
            ASSERT_EQ(AllocationsLiving(), living) << "memory leaks";
            ASSERT_EQ(LowestFreeDescriptor(), descriptor) << "a descriptor leaks";
          }
        }
      }
      tried += points.Taken();
    }
    std::cout << "[  POINTS  ] " << tried << " of " << all << " faults\n";
  }

  static bool Applies(const FaultKind& kind, const RecordedStep& step, std::size_t k) {
    if (kind.allocation || (kind.cutTo == kWhole && !kind.appending)) return true;
    const Call call = step.calls[k - 1];
    if (kind.appending) return step.appends[k - 1] != 0;
    return call == Call::kRead || call == Call::kWrite;
  }
};

TEST_F(Faults, OfEachCallLoseNothingAndAreOvercome) {
  TryAll(kCallFaults, std::size(kCallFaults), 53);
}

TEST_F(Faults, OfEachAllocationLoseNothingAndAreOvercome) {
  TryAll(kAllocationFaults, std::size(kAllocationFaults), 23);
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
      Storage storage;
      {
        Watch watch;
        watch.FailAt(k, kAnyCall & ~Only(Call::kUnlink), EIO);
        ClearLastError();
        storage.reset(row.open(path.c_str(), kStreamWrite, 0));
        fired = watch.FaultFired();
      }
      EXPECT_TRUE(storage || LastError().systemError == EIO) << LastError().text;
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
