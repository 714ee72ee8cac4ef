// The k-th call fails, k = 1, 2, 3 ... until a run is clean.
#include <cerrno>
#include <filesystem>

#include <gtest/gtest.h>

#include "support/handles.h"
#include "support/life.h"
#include "support/raw_file.h"
#include "support/syscalls.h"
#include "support/temp_dir.h"

namespace aostorage::testing {
namespace {

struct FaultKind {
  const char* label;
  int error;
  std::size_t cutBytes;  // 0: the call fails as a whole; else a write at the end that takes so many
                         // bytes before
};

class EachCallFailsOnce : public ::testing::TestWithParam<FaultKind> {
 protected:
  void Plan(Watch& watch, std::size_t k) const {
    if (GetParam().cutBytes != 0) {
      watch.CutAppendAt(k, GetParam().cutBytes, GetParam().error);
    } else {
      watch.FailAt(k, kAnyCall, GetParam().error);
    }
  }
  // Longer than any life here; a fault that never stops firing must not make the test endless.
  static constexpr std::size_t kMostCalls = 2000;
  TempDir dir;
  const std::string path = dir.File("life");
};

TEST_P(EachCallFailsOnce, WhatWasCommittedBeforeIsThere) {
  bool fired = true;
  for (std::size_t k = 1; fired && k < kMostCalls; ++k) {
    SCOPED_TRACE("call " + std::to_string(k));
    WriteFile(path, LifeStart());
    Values before, after;
    std::string label;
    bool flushing = false;
    {
      const Storage storage(aoStorage::Open(path.c_str(), kStreamWrite, kLifeReserve));
      Watch watch;
      Plan(watch, k);
      for (const Step& step : ScriptedLife()) {
        before = after;
        label = step.label;
        flushing = step.flushing;
        step.expect(after);
        ClearLastError();
        if (!step.perform(*storage, false)) {
          EXPECT_NE(LastError(), Error::kNone) << label;
          EXPECT_EQ(LastSystemError(), GetParam().error) << label;
          break;
        }
        before = after;  // reported as done: it has to be there
      }
      fired = watch.FaultFired();
    }
    ASSERT_EQ("", CheckBetween(path, before, after, flushing)) << label;
    ASSERT_EQ("", CheckFile(path, Rules::kAfterFault)) << label;
  }
  EXPECT_FALSE(fired);
}

TEST_P(EachCallFailsOnce, ASecondTryOnTheSameObjectGoesThrough) {
  bool fired = true;
  for (std::size_t k = 1; fired && k < kMostCalls; ++k) {
    SCOPED_TRACE("call " + std::to_string(k));
    WriteFile(path, LifeStart());
    Values values;
    {
      const Storage storage(aoStorage::Open(path.c_str(), kStreamWrite, kLifeReserve));
      Watch watch;
      Plan(watch, k);
      for (const Step& step : ScriptedLife()) {
        ASSERT_TRUE(step.perform(*storage, true)) << step.label;
        step.expect(values);
      }
      fired = watch.FaultFired();
    }
    ASSERT_EQ("", CheckBetween(path, values, values));
    ASSERT_EQ("", CheckFile(path));
  }
  EXPECT_FALSE(fired);
}

INSTANTIATE_TEST_SUITE_P(Faults, EachCallFailsOnce,
                         ::testing::Values(FaultKind{"InputOutput", EIO, 0},
                                           FaultKind{"DiskFull", ENOSPC, 0},
                                           FaultKind{"CutAfter1", ENOSPC, 1},
                                           FaultKind{"CutAfter21", ENOSPC, 21}),
                         [](const auto& row) { return std::string(row.param.label); });

TEST(FaultsOfOpening, GiveNullAndLeaveNoFileOfTheirOwn) {
  const TempDir dir;
  const std::string path = dir.File("new");
  using Make = aoStorage* (*)(const char*, std::uint32_t, std::uint32_t);
  for (const Make make : {Make{&aoStorage::Create}, Make{&aoStorage::OpenOrCreate}}) {
    bool fired = true;
    for (std::size_t k = 1; fired && k < 20; ++k) {
      Watch watch;
      watch.FailAt(k, kAnyCall & ~Only(Call::kUnlink), EIO);
      const Storage storage(make(path.c_str(), kStreamWrite, 0));
      fired = watch.FaultFired();
      ASSERT_EQ(storage != nullptr, std::filesystem::exists(path)) << "call " << k;
      EXPECT_TRUE(storage || fired);
      if (storage) {
        EXPECT_EQ(ReadFile(path), FileBuilder().bytes) << "call " << k;
      }
      std::filesystem::remove(path);
    }
    EXPECT_FALSE(fired);
  }
}

TEST(FaultsOfOpening, LeaveTheFileAsItWas) {
  const TempDir dir;
  FileBuilder builder;
  builder.AddDirectory();
  builder.AddStream(6, "a", Pattern(10));
  const std::string path = dir.File("old");
  WriteFile(path, builder.bytes);
  bool fired = true;
  for (std::size_t k = 1; fired && k < 20; ++k) {
    Storage storage;
    {
      Watch watch;
      watch.FailAt(k, kAnyCall, EIO);
      storage.reset(aoStorage::OpenOrCreate(path.c_str(), kStreamWrite, 0));
      fired = watch.FaultFired();
    }
    EXPECT_EQ(ReadFile(path), builder.bytes) << "call " << k;
    EXPECT_TRUE(fired || (storage && Stream(storage->OpenStream("a", kReadFlags))));
  }
  EXPECT_FALSE(fired);
}

// A disk that stays full: every write from the k-th on fails. Nothing is lost, and reading goes on.
TEST(FaultsForGood, AFullDiskLosesNothing) {
  const TempDir dir;
  const std::string path = dir.File("full");
  bool fired = true;
  for (std::size_t k = 1; fired && k < 500; ++k) {
    WriteFile(path, LifeStart());
    Values before, after;
    bool flushing = false;
    {
      const Storage storage(aoStorage::Open(path.c_str(), kStreamWrite, kLifeReserve));
      Watch watch;
      watch.FailAt(k, Only(Call::kWrite), ENOSPC, SIZE_MAX);
      for (const Step& step : ScriptedLife()) {
        before = after;
        flushing = step.flushing;
        step.expect(after);
        if (!step.perform(*storage, true)) {
          EXPECT_EQ(LastError(), Error::kDiskFull) << step.label;
          break;
        }
        before = after;
      }
      fired = watch.FaultFired();
    }
    ASSERT_EQ("", CheckBetween(path, before, after, flushing)) << "write " << k;
    ASSERT_EQ("", CheckFile(path, Rules::kAfterFault)) << "write " << k;
  }
  EXPECT_FALSE(fired);
}

}  // namespace
}  // namespace aostorage::testing
