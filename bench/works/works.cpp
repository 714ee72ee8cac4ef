#include "works.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <utility>

#include "../support.h"

namespace aobench {
namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// Bytes of a stream or value: its number stands at their start and at their end, so that a lost,
/// misplaced or cut one shows. One buffer serves all, and every competitor pays the same for it.
class Sample {
 public:
  explicit Sample(std::size_t largest) : bytes(largest), got(largest) {
    for (std::size_t i = 0; i < largest; ++i)
      bytes[i] = static_cast<std::uint8_t>(i * 7 + (i >> 8));
  }
  const void* Of(std::uint32_t number, std::size_t size) {
    std::memcpy(bytes.data(), &number, sizeof number);
    std::memcpy(bytes.data() + size - sizeof number, &number, sizeof number);
    return bytes.data();
  }
  void* Buffer() { return got.data(); }
  /// What a read has brought, checked where it was done.
  Outcome Check(Outcome outcome, std::uint32_t number, std::size_t size) const {
    if (outcome != Outcome::kDone) return outcome;
    return DoneIf(std::memcmp(got.data(), &number, sizeof number) == 0 &&
                  std::memcmp(got.data() + size - sizeof number, &number, sizeof number) == 0);
  }

 private:
  std::vector<std::uint8_t> bytes, got;
};

/// Does `step(i)` for 0 to count - 1 and stops at the first that is not done.
template <class Step>
Outcome Repeat(std::size_t count, Step&& step) {
  for (std::size_t i = 0; i < count; ++i) {
    const Outcome outcome = step(static_cast<std::uint32_t>(i));
    if (outcome != Outcome::kDone) return outcome;
  }
  return Outcome::kDone;
}

/// One competitor with a new store for a scenario.
class Contest {
 public:
  Contest(Run& given, const Plan& wanted)
      : run(given), plan(wanted), store(given.competitor.make()), state(store->Create(plan)) {}
  ~Contest() { store->Close(); }
  Contest(const Contest&) = delete;
  Contest& operator=(const Contest&) = delete;

  Store& Its() { return *store; }
  /// Whether all that later steps stand on is there.
  bool Stands() const { return state == Outcome::kDone; }

  /// Changes that later steps stand on, not timed.
  template <class Work>
  void Prepare(Work&& work) {
    if (Stands()) state = Enclosed(work);
  }
  /// Timed changes. Those that nothing stands on leave the state as it is if they cannot be done.
  template <class Work>
  Outcome Change(const char* name, std::size_t items, Work&& work, bool needed = true) {
    Outcome outcome = state;
    double seconds = 0;
    if (Stands()) {
      const auto start = Clock::now();
      outcome = Enclosed(work);
      seconds = SecondsSince(start);
    }
    if (needed || outcome == Outcome::kFailed) state = outcome;
    if (!run.competitor.Has(kReadsOnly)) Note(name, outcome, seconds, items);
    return outcome;
  }
  /// Timed reads; `first` comes before the clock starts.
  template <class Work, class First>
  void Read(const char* name, const std::size_t& items, Work&& work, First&& first) {
    Outcome outcome = state;
    double seconds = 0;
    if (Stands()) outcome = store->BeginReads();
    if (Stands() && outcome == Outcome::kDone) outcome = first();
    if (Stands() && outcome == Outcome::kDone) {
      const auto start = Clock::now();
      outcome = work();
      seconds = SecondsSince(start);
      if (store->EndReads() != Outcome::kDone) outcome = Outcome::kFailed;
    }
    Note(name, outcome, seconds, items);
  }
  template <class Work>
  void Read(const char* name, const std::size_t& items, Work&& work) {
    Read(name, items, work, [] { return Outcome::kDone; });
  }
  /// Works that a scenario does several times are one figure.
  void Note(const char* name, Outcome outcome, double seconds, std::size_t items) {
    for (Row& row : run.rows) {
      if (row.work != name || row.n != plan.count) continue;
      row.seconds += seconds;
      row.items += items;
      if (outcome != Outcome::kDone) row.outcome = outcome;
      return;
    }
    run.rows.push_back({name, plan.count, outcome, seconds, items});
  }
  Outcome State() const { return state; }

 private:
  template <class Work>
  Outcome Enclosed(Work& work) {
    Outcome outcome = store->BeginChanges();
    if (outcome == Outcome::kDone) outcome = work();
    const Outcome ended = store->EndChanges();
    return outcome == Outcome::kDone ? ended : outcome;
  }

  Run& run;
  const Plan plan;
  StorePtr store;
  Outcome state;
};

/// One stream in pieces: written from its start to its end, then read likewise.
void LongStream(Run& run, std::size_t size, std::size_t pieces, const char* write,
                const char* read) {
  const std::size_t count = pieces / run.divisor;
  Contest contest(run, {run.directory, Content::kPieces, count, size});
  Sample sample(size);
  contest.Change(write, count, [&] {
    return Repeat(
        count, [&](std::uint32_t i) { return contest.Its().Append(0, sample.Of(i, size), size); });
  });
  contest.Read(read, count, [&] {
    return Repeat(count, [&](std::uint32_t i) {
      return sample.Check(contest.Its().ReadNext(sample.Buffer(), size), i, size);
    });
  });
}

void W1And2InLargePieces(Run& run) { LongStream(run, 65536, 4096, "W1-64K", "W2-64K"); }
void W1And2InSmallPieces(Run& run) { LongStream(run, 512, 65536, "W1-512", "W2-512"); }

/// Streams under names: all made in one order, then all read in another.
void NamedStreams(Run& run, std::size_t count, const std::vector<std::uint32_t>& order,
                  const std::vector<std::size_t>& sizes, const char* create, const char* read) {
  const std::size_t largest = *std::max_element(sizes.begin(), sizes.end());
  Contest contest(run, {run.directory, Content::kStreams, count, largest});
  Sample sample(largest);
  const auto names = NumberedNames('s', count);
  contest.Change(create, count, [&] {
    return Repeat(count, [&](std::uint32_t i) {
      const std::uint32_t at = order[i];
      return contest.Its().Put({at, names[at]}, sample.Of(at, sizes[at]), sizes[at]);
    });
  });
  const auto readOrder = Shuffled(count, 1);
  contest.Read(read, count, [&] {
    return Repeat(count, [&](std::uint32_t i) {
      const std::uint32_t at = readOrder[i];
      const std::size_t size = sizes[at];
      return sample.Check(contest.Its().Fetch({at, names[at]}, sample.Buffer(), size), at, size);
    });
  });
}

std::vector<std::uint32_t> Ascending(std::size_t count) {
  std::vector<std::uint32_t> order(count);
  for (std::size_t i = 0; i < count; ++i) order[i] = static_cast<std::uint32_t>(i);
  return order;
}

void RootStreams(Run& run, std::size_t count, const char* create, const char* read) {
  NamedStreams(run, count, Ascending(count), std::vector<std::size_t>(count, 1024), create, read);
}

void W3And4(Run& run) { RootStreams(run, 10000 / run.divisor, "W3", "W4"); }

void W12(Run& run) {
  const std::size_t count = 20000 / run.divisor;
  std::vector<std::size_t> sizes(count);
  std::uint64_t state = 12;
  for (std::size_t& size : sizes) size = 8192 + NextRandom(state) % 4097;
  NamedStreams(run, count, Shuffled(count, 2), sizes, "W12-write", "W12-read");
}

/// How long a work goes on whose single steps may take long: the rest of its items is left out.
constexpr double kPatience = 0.5;

/// As Repeat, but gives up between two steps when the time is over. `done` tells how far it came.
template <class Step>
Outcome RepeatWithPatience(std::size_t count, std::size_t& done, Step&& step) {
  const auto start = Clock::now();
  Outcome outcome = Outcome::kDone;
  for (done = 0; done < count && outcome == Outcome::kDone; ++done) {
    if ((done < 16 || done % 16 == 0) && SecondsSince(start) > kPatience) break;
    outcome = step(static_cast<std::uint32_t>(done));
  }
  return outcome;
}

/// Opens the closed store again and again.
void OpenAgain(Contest& contest, const char* name, std::size_t most,
               const std::vector<std::string>& names, std::uint32_t generation, bool quick) {
  Sample sample(32);
  std::uint64_t random = 9;
  std::size_t done = 0;
  Outcome outcome = contest.State();
  const auto start = Clock::now();
  if (outcome == Outcome::kDone) {
    outcome = RepeatWithPatience(most, done, [&](std::uint32_t) {
      const auto at = static_cast<std::uint32_t>(NextRandom(random) % names.size());
      const Key key{at, names[at]};
      // A quick place holds a value of its own, which the store itself checks.
      if (quick) return contest.Its().OpenAndGetQuick(key, sample.Buffer(), 32);
      return sample.Check(contest.Its().OpenAndGet(key, sample.Buffer(), 32), at | generation, 32);
    });
  }
  contest.Note(name, outcome, SecondsSince(start), done);
}

/// Small values: set new in ascending order of their names, read and set again in random orders.
void Values(Run& run, std::size_t count, const char* set, const char* get, const char* again,
            bool open) {
  constexpr std::size_t kSize = 32;
  constexpr std::uint32_t kFirst = 1U << 28, kSecond = 2U << 28;  // marks of the generations
  Contest contest(run, {run.directory, Content::kValues, count, kSize});
  Sample sample(kSize);
  const auto names = NumberedNames('e', count);
  contest.Change(set, count, [&] {
    return Repeat(count, [&](std::uint32_t i) {
      return contest.Its().Set({i, names[i]}, sample.Of(i | kFirst, kSize), kSize);
    });
  });
  const auto getOrder = Shuffled(count, 3);
  contest.Read(get, count, [&] {
    return Repeat(count, [&](std::uint32_t i) {
      const std::uint32_t at = getOrder[i];
      return sample.Check(contest.Its().Get({at, names[at]}, sample.Buffer(), kSize), at | kFirst,
                          kSize);
    });
  });
  const auto setOrder = Shuffled(count, 4);
  const Outcome setAgain = contest.Change(
      again, count,
      [&] {
        return Repeat(count, [&](std::uint32_t i) {
          const std::uint32_t at = setOrder[i];
          return contest.Its().SetAgain({at, names[at]}, sample.Of(at | kSecond, kSize), kSize);
        });
      },
      false);
  if (!open || run.competitor.Has(kReadsOnly)) return;
  contest.Its().Close();
  const std::uint32_t generation = setAgain == Outcome::kDone ? kSecond : kFirst;
  OpenAgain(contest, "W9", 2000 / run.divisor, names, generation, true);
  OpenAgain(contest, "W9-any", 2000 / run.divisor, names, generation, false);
}

void W5To7And9(Run& run) { Values(run, 10000 / run.divisor, "W5", "W6", "W7", true); }

void W8(Run& run) {
  const std::size_t count = 100000 / run.divisor;
  Contest contest(run, {run.directory, Content::kRecords, count, 32});
  Sample sample(32);
  contest.Change("W8", count, [&] {
    return Repeat(count,
                  [&](std::uint32_t i) { return contest.Its().Append(0, sample.Of(i, 32), 32); });
  });
}

Outcome PutRange(Store& store, const std::vector<std::string>& names, std::size_t from,
                 std::size_t count, std::size_t size) {
  Sample sample(size);
  return Repeat(count, [&](std::uint32_t i) {
    const auto at = static_cast<std::uint32_t>(from + i);
    return store.Put({at, names[at]}, sample.Of(at, size), size);
  });
}

Outcome RemoveHalf(Store& store, const std::vector<std::string>& names, std::size_t count) {
  const auto order = Shuffled(count, 5);
  return Repeat(count / 2, [&](std::uint32_t i) {
    return store.Remove({order[i], names[order[i]]});
  });
}

void W10(Run& run) {
  constexpr std::size_t kSize = 1024;
  const std::size_t count = 10000 / run.divisor;
  Contest contest(run, {run.directory, Content::kStreams, count, kSize});
  const auto names = NumberedNames('s', count + count / 2);
  Store& store = contest.Its();
  contest.Prepare([&] { return PutRange(store, names, 0, count, kSize); });
  const std::int64_t before = contest.Stands() ? store.Bytes() : 0;
  contest.Change("W10", count, [&] {
    const Outcome outcome = RemoveHalf(store, names, count);
    return outcome == Outcome::kDone ? PutRange(store, names, count, count / 2, kSize) : outcome;
  });
  if (!contest.Stands() || run.rows.empty()) return;
  run.rows.back().bytesBefore = before;
  run.rows.back().bytesAfter = store.Bytes();
}

void W11(Run& run) {
  constexpr std::size_t kSize = 10240;
  const std::size_t count = 10000 / run.divisor;
  Contest contest(run, {run.directory, Content::kStreamsToClean, count, kSize});
  const auto names = NumberedNames('s', count);
  contest.Prepare([&] {
    const Outcome outcome = PutRange(contest.Its(), names, 0, count, kSize);
    return outcome == Outcome::kDone ? RemoveHalf(contest.Its(), names, count) : outcome;
  });
  const std::string goal = run.directory + "/goal";
  Outcome outcome = contest.State();
  const auto start = Clock::now();
  if (contest.Stands()) outcome = contest.Its().Compact(goal);
  const double seconds = SecondsSince(start);
  std::error_code error;
  if (outcome == Outcome::kDone && std::filesystem::file_size(goal, error) < count / 2 * kSize)
    outcome = Outcome::kFailed;
  contest.Note("W11", outcome, seconds, count / 2);
}

/// Two streams that were appended in turn, so that each of their records is a block of its own.
void W13(Run& run) {
  constexpr std::size_t kSize = 64, kRead = 16;
  const std::size_t blocks = 100000 / run.divisor, seeks = 10000 / run.divisor;
  Contest contest(run, {run.directory, Content::kRecords, blocks, kSize});
  contest.Prepare([&] {
    return Repeat(blocks, [&](std::uint32_t i) {
      std::uint32_t record[kSize / sizeof i];
      std::fill(std::begin(record), std::end(record), i);
      const Outcome first = contest.Its().Append(0, record, kSize);
      return first == Outcome::kDone ? contest.Its().Append(1, record, kSize) : first;
    });
  });
  Sample sample(kRead);
  const auto readAt = [&](std::uint32_t block, std::uint32_t within) {
    const auto position = static_cast<std::uint32_t>(block * kSize + within);
    return sample.Check(contest.Its().ReadAt(position, sample.Buffer(), kRead), block, kRead);
  };
  // The first way to the end passes every block; the seeks after it know them.
  const auto passAll = [&] {
    const auto start = Clock::now();
    const Outcome outcome = readAt(static_cast<std::uint32_t>(blocks - 1), 0);
    contest.Note("W13-first", outcome, SecondsSince(start), blocks);
    return outcome;
  };
  std::uint64_t random = 13;
  const auto seek = [&](std::uint32_t) {
    const std::uint64_t pick = NextRandom(random);
    return readAt(static_cast<std::uint32_t>(pick % blocks),
                  static_cast<std::uint32_t>(pick >> 32) % 4 * kRead);
  };
  std::size_t done = 0;
  contest.Read(
      "W13", done, [&] { return RepeatWithPatience(seeks, done, seek); }, passAll);
}

void Scaling(Run& run) {
  for (const std::size_t count : {100U, 1000U, 10000U, 100000U}) {
    if (run.divisor > 1 && count > 10000) break;
    // Small stores are made anew until there is enough to be timed.
    const std::size_t rounds = std::clamp<std::size_t>(20000 / count, 1, 50);
    for (std::size_t round = 0; round < rounds; ++round) {
      const TempDir directory(run.directory);
      Run inner{run.competitor, directory.Path(), 1, std::move(run.rows)};
      RootStreams(inner, count, "S-W3", "S-W4");
      Values(inner, count, "S-W5", "S-W6", "S-W7", false);
      run.rows = std::move(inner.rows);
    }
  }
}

}  // namespace

const std::vector<Scenario>& Scenarios() {
  static const std::vector<Scenario> scenarios = {
      {"W1-64K W2-64K", W1And2InLargePieces, kWorks},
      {"W1-512 W2-512", W1And2InSmallPieces, kWorks},
      {"W3 W4", W3And4, kWorks},
      {"W5 W6 W7 W9 W9-any", W5To7And9, kWorks},
      {"W8", W8, kChanges},
      {"W10", W10, kChanges},
      {"W11", W11, kCompaction},
      {"W12-write W12-read", W12, kWorks},
      {"W13 W13-first", W13, kWorks},
      {"S", Scaling, kScaling},
  };
  return scenarios;
}

}  // namespace aobench
