// The rebuild with each call failing, each allocation failing, and the process ending at each call.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <iostream>
#include <map>
#include <random>

#include "maintenance/rebuild_fixture.h"
#include "support/allocations.h"
#include "support/model.h"
#include "support/size.h"

namespace aostorage::testing {
namespace {

constexpr unsigned kChanges = Only(Call::kWrite) | Only(Call::kSync) | Only(Call::kRename) |
                              Only(Call::kUnlink) | Only(Call::kCopy) | Only(Call::kTruncate);

class RebuildFaults : public Rebuild {
 protected:
  // How the new file takes its place.
  enum class Way { kRename, kCopy };

  // A file with something to lose and something to gain.
  void SetUp() override {
    const Storage storage = Create();
    Plant(*storage, {"a=1", "gone=2", "f/", "f/x=22", "f/g/", "f/g/y=3", "-gone"});
    const Stream big(storage->CreateStream("big", kWriteFlags));
    big->Write(Pattern(kBigSize).data(), kBigSize);
    before = File();
    tree = TreeOf(Image());
  }
  void Arrange(Way way) {
    WriteFile(path, before);
    for (const std::string& name : {path + "_tmp", second}) ::unlink(name.c_str());
    if (way == Way::kCopy) {
      ASSERT_EQ(::link(path.c_str(), second.c_str()), 0);
    }
  }
  // What a successful rebuild makes of the file.
  Bytes Rebuilt(Way way) {
    Arrange(way);
    EXPECT_EQ(aoStorage::Recreate(path.c_str()), 1);
    EXPECT_FALSE(Exists(path + "_tmp"));
    return File();
  }
  // Which of the two stands whole where it must. `broken` tells that copying over was on its way:
  // then the temporary file counts as well.
  std::string WhatStands(const Bytes& after, bool broken) const {
    const Bytes now = File();
    if (now == before) return "old";
    if (now == after) return "new";
    return broken && ReadFile(path + "_tmp") == after ? "temporary" : "nothing";
  }

  static constexpr std::uint32_t kBigSize = 100000;
  const std::string second = dir.File("second");
  Bytes before;
  TreeText tree;
};

TEST_F(RebuildFaults, EachCallFailsOnceOrForEver) {
  for (const Way way : {Way::kRename, Way::kCopy}) {
    const Bytes after = Rebuilt(way);
    for (const std::size_t more : {std::size_t{0}, SIZE_MAX}) {
      bool fired = true;
      for (std::size_t k = 1; fired; ++k) {
        SCOPED_TRACE("call " + std::to_string(k) + (more != 0 ? " and all behind it" : "") +
                     (way == Way::kCopy ? ", copied" : ""));
        Arrange(way);
        opened = Open();
        aoStorage* const old = opened.release();
        {
          Watch watch;
          watch.FailAt(k, kAnyCall, k % 2 == 0 ? EIO : ENOSPC, more);
          ClearLastError();
          opened.reset(aoStorage::Recreate(old, path.c_str()));
          fired = watch.FaultFired();
        }
        if (opened.get() == old || opened == nullptr) {
          ASSERT_EQ(LastError().systemError, k % 2 == 0 ? EIO : ENOSPC) << LastError().text;
          ASSERT_STREQ(LastError().operation, "aoStorage::Recreate");
        }
        const std::string stands = WhatStands(after, opened == nullptr);
        if (opened.get() == old) {
          ASSERT_EQ(stands, "old");
          ASSERT_TRUE(Got(opened->OpenStream("a", kReadFlags)));
          // The temporary file goes, unless its own removal is what fails.
          ASSERT_TRUE(more != 0 || !Exists(path + "_tmp"));
        } else if (opened != nullptr) {
          ASSERT_EQ(stands, "new");
        } else if (stands != "new") {  // not only its opening failed: copying over broke off
          ASSERT_EQ(way, Way::kCopy);
          ASSERT_EQ(ReadFile(path + "_tmp"), after);
        }
        ASSERT_TRUE(fired || stands == "new");
        opened.reset();
        ASSERT_LT(k, 2000U);
      }
    }
  }
}

// Where the system copies nothing by itself, and then a call of the copying by hand fails.
TEST_F(RebuildFaults, EachCallOfACopyByHandFails) {
  const Bytes after = Rebuilt(Way::kCopy);
  bool fired = true;
  for (std::size_t k = 1; fired; ++k) {
    SCOPED_TRACE(k);
    Arrange(Way::kCopy);
    bool copying = false;
    std::size_t behind = 0;
    fired = false;
    int result = 0;
    {
      Watch watch;
      watch.BeforeEach([&](Call call, std::size_t) {
        if (call == Call::kCopy) {
          copying = true;
          watch.FailAt(1, Only(Call::kCopy), EXDEV);
        } else if (copying && ++behind == k) {
          fired = true;
          watch.FailAt(1, Only(call), EIO);
        }
      });
      result = aoStorage::Recreate(path.c_str());
    }
    const std::string stands = WhatStands(after, result == 0);
    ASSERT_TRUE(stands == "new" || (result == 0 && stands == "temporary")) << stands;
    ASSERT_LT(k, 100U);
  }
}

TEST_F(RebuildFaults, ADiskThatGivesOtherBytesBackIsNotBelieved) {
  const std::string temporary = path + "_tmp";
  Call last = Call::kOpen;
  bool struck = false;
  Watch watch;
  watch.BeforeEach([&](Call call, std::size_t) {
    if (!struck && last == Call::kWrite && call == Call::kRead && Exists(temporary)) {
      Bytes bytes = ReadFile(temporary);
      bytes.back() ^= 1;
      WriteFile(temporary, bytes);
      struck = true;
    }
    last = call;
  });
  EXPECT_EQ(aoStorage::Recreate(path.c_str()), 0);
  EXPECT_EQ(LastError().code, ErrorCode::kInputOutput);
  EXPECT_TRUE(struck);
  EXPECT_EQ(File(), before);
}

TEST_F(RebuildFaults, EachAllocationFailsOnceOrForEver) {
  const Bytes after = Rebuilt(Way::kRename);
  bool fired = true;
  for (std::size_t i = 2; fired || i % 2 == 1; ++i) {
    const std::size_t k = i / 2;
    SCOPED_TRACE(k);
    Arrange(Way::kRename);
    int result = 0;
    {
      const FailAllocation fault(k, i % 2 == 1);
      ClearLastError();
      result = aoStorage::Recreate(path.c_str());
      fired = fault.Fired();
    }
    ASSERT_TRUE(result == 1 || LastError().code == ErrorCode::kNoMemory) << LastError().text;
    ASSERT_EQ(WhatStands(after, false), result == 1 ? "new" : "old");
    ASSERT_FALSE(Exists(path + "_tmp"));
  }
}

TEST_F(RebuildFaults, TheProcessEndsBehindEachCall) {
  for (const Way way : {Way::kRename, Way::kCopy}) {
    const Bytes after = Rebuilt(way);
    bool ended = true;
    std::string last = "old";
    for (std::size_t k = 1; ended; ++k) {
      SCOPED_TRACE("behind call " + std::to_string(k) + (way == Way::kCopy ? ", copied" : ""));
      Arrange(way);
      const pid_t child = ::fork();
      ASSERT_GE(child, 0);
      if (child == 0) {
        std::size_t done = 0;
        Watch watch;
        // At the call behind the k-th that changes something: the k-th has been made.
        watch.BeforeEach([&](Call call, std::size_t) {
          if (done == k) ::_exit(1);
          if ((kChanges & Only(call)) != 0) ++done;
        });
        ::_exit(aoStorage::Recreate(path.c_str()) == 1 ? 0 : 2);
      }
      int status = 0;
      ASSERT_EQ(::waitpid(child, &status, 0), child);
      ASSERT_TRUE(WIFEXITED(status));
      ASSERT_NE(WEXITSTATUS(status), 2);
      ended = WEXITSTATUS(status) == 1;
      const std::string stands = WhatStands(after, true);
      ASSERT_TRUE(stands == "old" || stands == "new" ||
                  (way == Way::kCopy && stands == "temporary"))
          << stands;
      ASSERT_FALSE(last == "new" && stands != "new");
      last = stands;
      // The next rebuild of what is whole goes through; of what is not it fails, and leaves the
      // only whole file alone.
      if (stands != "temporary") {
        ASSERT_EQ(aoStorage::Recreate(path.c_str()), 1);
        ASSERT_EQ(TreeOf(Image()).size(), tree.size());
        ASSERT_FALSE(Exists(path + "_tmp"));
      } else {
        ASSERT_EQ(aoStorage::Recreate(path.c_str()), 0);
        ASSERT_EQ(ReadFile(path + "_tmp"), after);
      }
      ASSERT_LT(k, 500U);
    }
    EXPECT_EQ(last, "new");
  }
}

// Killed at random: by then the path holds the old or the new file, whole.
TEST_F(RebuildFaults, TheProcessIsKilledAtAnyMoment) {
  const unsigned seed = HistorySeeds(1).front();
  SCOPED_TRACE("AOSTORAGE_TEST_SEED=" + std::to_string(seed));
  std::mt19937 random(seed);
  std::map<std::string, int> stood;
  for (const Way way : {Way::kRename, Way::kCopy}) {
    const Bytes after = Rebuilt(way);
    long limit = 300000;  // comes to be about as long as it takes here
    for (int kills = FullSize() ? 1000 : kSanitized ? 10 : 50; kills > 0; --kills) {
      Arrange(way);
      const pid_t child = ::fork();
      ASSERT_GE(child, 0);
      if (child == 0) {
        const int result = aoStorage::Recreate(path.c_str());
        ::_exit(result);
      }
      const timespec wait{0, static_cast<long>(random() % static_cast<unsigned long>(limit))};
      ::nanosleep(&wait, nullptr);
      ::kill(child, SIGKILL);
      int status = 0;
      ASSERT_EQ(::waitpid(child, &status, 0), child);
      ASSERT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 1);
      limit += WIFSIGNALED(status) ? limit / 4 : -limit / 2;
      const std::string stands = WhatStands(after, way == Way::kCopy);
      ASSERT_NE(stands, "nothing");
      ++stood[stands + (WIFSIGNALED(status) ? "" : ", done")];
    }
  }
  for (const auto& [what, times] : stood)
    std::cout << "[  POINTS  ] " << times << " times: " << what << "\n";
}

}  // namespace
}  // namespace aostorage::testing
