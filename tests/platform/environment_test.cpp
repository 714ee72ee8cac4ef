// Surroundings that are short of something: room on the disk, rights, descriptors, rest from
// signals, paths that lead to a file. Failure or success as documented, and no other file changed.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>

#include <aostorage/inspect.h>

#include "folder/storage_fixture.h"
#include "support/check_file.h"

namespace aostorage::testing {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kStep = 700;  // bytes of one stream of a script

class Environment : public StorageFileTest {
 protected:
  // Runs `body` in a process of its own. @return its exit status as waitpid tells it; 0 when no
  // expectation failed
  static int InChild(const std::function<void()>& body) {
    const pid_t child = fork();
    if (child == 0) {
      body();
      _exit(HasFailure() ? 1 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
  }
  // The next stream of a script: at the root, and every fifth in a folder.
  static bool Put(aoStorage& storage, unsigned number) {
    const std::string name = "s" + std::to_string(number);
    const Bytes data = Pattern(kStep, number);
    if (number % 5 == 4) {
      const Stream folder(storage.OpenOrCreateStream("folder", kFolderKind));
      return folder && folder->SetEntryEraseOld(name.c_str(), data.data(), kStep) == int{kStep};
    }
    const Stream stream(storage.OpenOrCreateStream(name.c_str(), kPlainKind));
    return stream && stream->Seek(0, 1) == 0 && stream->Write(data.data(), kStep) == kStep;
  }
  void ExpectPut(unsigned count) const {
    const Storage storage(aoStorage::Open(path.c_str(), kReadFlags, 0));
    ASSERT_TRUE(storage);
    EXPECT_EQ("", CheckFile(path, Rules::kAfterFault));
    const RawImage image = Image();
    for (unsigned number = 0; number < count; ++number) {
      const std::string name = (number % 5 == 4 ? "folder/s" : "s") + std::to_string(number);
      const RawStream* stream = image.Find(name);
      ASSERT_TRUE(stream) << name;
      ASSERT_EQ(stream->Value(), Pattern(kStep, number)) << name;
    }
  }
  // What makes, opens or replaces a file at a path, none of which may do so.
  static void ExpectRefused(const std::string& at, bool exists) {
    SCOPED_TRACE(at.substr(0, 100));
    const char* where = at.c_str();
    EXPECT_FALSE(Storage(aoStorage::Create(where, 0, 0)));
    EXPECT_NE(LastError().code, ErrorCode::kNone);
    EXPECT_FALSE(Storage(aoStorage::Open(where, kWriteFlags, 0)));
    EXPECT_FALSE(Storage(aoStorage::OpenFast(where, kReadFlags, 0)));
    EXPECT_FALSE(Storage(aoStorage::OpenOrCreate(where, kWriteFlags, 0)));
    EXPECT_EQ(aoStorage::Recreate(where), 0);
    EXPECT_FALSE(Inspection::Of(where));
    CCompStgFile facade;
    EXPECT_EQ(facade.Open(where, 1) + facade.Open(where, 2), 0);
    struct stat state {};
    EXPECT_EQ(::lstat(where, &state) == 0, exists);
  }
};

// --- Room

class SmallDisk : public Environment {
 protected:
  static void Limit(rlim_t bytes) {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
};

TEST_F(SmallDisk, KeepsWhatHadReturnedAndServesAgain) {
  for (const rlim_t size : {rlim_t{64} << 10, rlim_t{1} << 20}) {
    SCOPED_TRACE(size);
    EXPECT_EQ(0, InChild([&] {
                signal(SIGXFSZ, SIG_IGN);
                Limit(size);
                Storage storage = Create(100);
                unsigned done = 0;
                while (Put(*storage, done)) ++done;
                EXPECT_TRUE(LastError().code == ErrorCode::kDiskFull) << LastError().text;
                EXPECT_GT(done * (kStep + 200), size / 2);
                EXPECT_LE(fs::file_size(path), size);
                ExpectPut(done);
                storage.reset(aoStorage::Recreate(storage.release(), path.c_str()));
                EXPECT_TRUE(storage) << "done or in vain";
                ExpectPut(done);
                Limit(RLIM_INFINITY);
                storage = Open(100);
                for (const unsigned end = done + 20; done < end; ++done)
                  ASSERT_TRUE(Put(*storage, done));
                ExpectPut(done);
              }));
  }
}

TEST_F(SmallDisk, WhoseSignalKillsLeavesWhatHadReturned) {
  for (const rlim_t size : {rlim_t{64} << 10, rlim_t{1} << 20}) {
    int report[2];
    ASSERT_EQ(pipe(report), 0);
    fcntl(report[0], F_SETFL, O_NONBLOCK);
    const int status = InChild([&] {
      signal(SIGXFSZ, SIG_DFL);
      Limit(size);
      const Storage storage = Create(100);
      for (unsigned number = 0; Put(*storage, number); ++number) {
        if (write(report[1], "x", 1) != 1) _exit(2);
      }
    });
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGXFSZ);
    char returned[4096];
    const ssize_t count = read(report[0], returned, sizeof returned);
    ASSERT_GT(count, 40);
    ExpectPut(static_cast<unsigned>(count));
    close(report[0]);
    close(report[1]);
  }
}

// --- Rights

TEST_F(Environment, WithoutRightsNothingChanges) {
  {
    const Storage storage = Create();
    for (unsigned number = 0; number < 10; ++number) ASSERT_TRUE(Put(*storage, number));
  }
  const Bytes sound = File();
  const std::string other = dir.File("other");
  ASSERT_EQ(chmod(path.c_str(), 0444) + chmod(dir.Path().c_str(), 0555), 0);
  const int status = InChild([&] {
    if (geteuid() == 0) {
      ASSERT_EQ(setgid(65534) + setuid(65534), 0);
    }
    EXPECT_FALSE(Open());
    EXPECT_EQ(LastError().code, ErrorCode::kAccessDenied);
    EXPECT_FALSE(Create());
    EXPECT_FALSE(Storage(aoStorage::OpenOrCreate(path.c_str(), kWriteFlags, 0)));
    EXPECT_FALSE(Storage(aoStorage::Create(other.c_str(), 0, 0)));
    EXPECT_EQ(LastError().code, ErrorCode::kAccessDenied);
    EXPECT_FALSE(Storage(aoStorage::OpenOrCreate(other.c_str(), kWriteFlags, 0)));
    EXPECT_EQ(aoStorage::Recreate(path.c_str()), 0) << "no temporary file beside it";
    EXPECT_EQ(LastError().code, ErrorCode::kAccessDenied);
    const Storage storage(aoStorage::Open(path.c_str(), kReadFlags, 0));
    ASSERT_TRUE(storage);
    EXPECT_FALSE(Got(storage->CreateStream("new", kWriteFlags)));
    const Stream stream(storage->OpenStream("s0", kWriteFlags));
    EXPECT_TRUE(!stream || stream->Write("x", 1) == kFailed);
    EXPECT_TRUE(Inspection::Of(path.c_str()));
  });
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(fs::exists(other));
  ASSERT_EQ(chmod(dir.Path().c_str(), 0700), 0);
  ExpectPut(10);
  EXPECT_EQ(File(), sound);
}

// --- Paths

TEST_F(Environment, PathsThatLeadToNoFileAreRefused) {
  const std::string pipe = dir.File("pipe"), folder = dir.File("folder");
  WriteFile(path, Pattern(50));
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  fs::create_directory(folder);
  const std::pair<const char*, std::string> links[] = {{"itself", dir.File("itself")},
                                                       {"one", dir.File("two")},
                                                       {"two", dir.File("one")},
                                                       {"to pipe", pipe},
                                                       {"to folder", folder},
                                                       {"to device", "/dev/null"},
                                                       {"into nothing", dir.File("no/such")},
                                                       {"through a file", path + "/x"}};
  for (const auto& [name, target] : links)
    ASSERT_EQ(symlink(target.c_str(), dir.File(name).c_str()), 0);
  for (const auto& link : links) ExpectRefused(dir.File(link.first), true);
  for (const std::string& at : {pipe, folder, std::string("/dev/null")}) ExpectRefused(at, true);
  for (const std::string& at : {path + "/x", path + "/", dir.File("no/such"), folder + "/"})
    ExpectRefused(at, at == folder + "/");
  EXPECT_EQ(File(), Pattern(50));
  EXPECT_TRUE(fs::is_empty(folder));
}

TEST_F(Environment, LinksThatLeadNowhereGetAFileAtTheirEndOrNone) {
  const std::string link = dir.File("link"), end = dir.File("sub/end");
  std::filesystem::create_directory(dir.File("sub"));
  ASSERT_EQ(::symlink("sub/end", link.c_str()), 0);
  for (const auto create : {&aoStorage::Create, &aoStorage::OpenOrCreate}) {
    {
      Watch watch;
      watch.FailAt(1, Only(Call::kWrite), ENOSPC);
      EXPECT_EQ(create(link.c_str(), kWriteFlags, 0), nullptr);
    }
    EXPECT_FALSE(std::filesystem::exists(end)) << "a file that this call made is gone again";
    const Storage made(create(link.c_str(), kWriteFlags, 0));
    ASSERT_TRUE(made);
    EXPECT_EQ(made->GetPath(), link);
    EXPECT_EQ(std::filesystem::file_size(end), kEmptyFileSize);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    std::filesystem::remove(end);
  }
}

TEST_F(Environment, WhatStandsAtTheTemporaryPathIsNeverFollowed) {
  const std::string temporary = path + "_tmp", victim = dir.File("victim");
  const std::pair<const char*, std::function<int()>> rows[] = {
      {"link", [&] { return symlink(victim.c_str(), temporary.c_str()); }},
      {"dangling link", [&] { return symlink(dir.File("none").c_str(), temporary.c_str()); }},
      {"looping link", [&] { return symlink(temporary.c_str(), temporary.c_str()); }},
      {"link to the storage", [&] { return symlink(path.c_str(), temporary.c_str()); }},
      {"hard link", [&] { return link(victim.c_str(), temporary.c_str()); }},
      {"hard link to the storage", [&] { return link(path.c_str(), temporary.c_str()); }},
      {"pipe", [&] { return mkfifo(temporary.c_str(), 0600); }},
      {"folder", [&] { return mkdir(temporary.c_str(), 0700); }},
  };
  for (const auto& [name, place] : rows) {
    SCOPED_TRACE(name);
    {
      const Storage storage = Create();
      for (unsigned number = 0; number < 3; ++number) ASSERT_TRUE(Put(*storage, number));
    }
    WriteFile(victim, Pattern(50));
    ASSERT_EQ(place(), 0);
    const bool plain = fs::is_regular_file(fs::symlink_status(temporary));
    const bool own = fs::equivalent(path, temporary, *std::make_unique<std::error_code>());
    EXPECT_EQ(aoStorage::Recreate(path.c_str()), plain && !own ? 1 : 0);
    EXPECT_EQ(ReadFile(victim), Pattern(50));
    EXPECT_FALSE(fs::exists(dir.File("none")));
    ExpectPut(3);
    fs::remove(temporary);
  }
}

TEST_F(Environment, PathsOfAnyLength) {
  const auto make = [](const std::string& at) {
    return Storage(aoStorage::Create(at.c_str(), 0, 0));
  };
  const std::string name = dir.File(std::string(255, 'n'));
  ASSERT_TRUE(make(name));
  EXPECT_EQ(aoStorage::Recreate(name.c_str()), 0) << "no room for the temporary name";
  EXPECT_EQ(ReadFile(name), FileBuilder().bytes);
  ExpectRefused(name + "n", false);
  std::string deep = dir.Path();
  while (deep.size() < 3800) deep += "/" + std::string(200, 'd');
  deep += "/" + std::string(4095 - 150 - deep.size() - 2, 'e');
  fs::create_directories(deep);
  const std::string longest = deep + "/" + std::string(4095 - deep.size() - 1, 'f');
  ASSERT_EQ(longest.size(), 4095U);
  {
    const Storage storage = make(longest);
    ASSERT_TRUE(storage);
    EXPECT_EQ(storage->GetPath(), longest);
    EXPECT_TRUE(Put(*storage, 0));
  }
  EXPECT_EQ(aoStorage::Recreate(longest.c_str()), 0);
  ExpectRefused(longest + "f", false);
  EXPECT_TRUE(Storage(aoStorage::Open(longest.c_str(), kWriteFlags, 0)));
  EXPECT_EQ(fs::exists(longest.substr(0, 4095)), true);
  // Nothing but that one file.
  EXPECT_EQ(std::distance(fs::directory_iterator(deep), fs::directory_iterator()), 1);
}

// --- Descriptors and signals

TEST_F(Environment, StandardStreamsThatWereClosedStayClosed) {
  for (unsigned closed = 1; closed < 8; ++closed) {
    SCOPED_TRACE(closed);
    const int status = InChild([&] {
      for (int stream = 0; stream < 3; ++stream) {
        if ((closed >> stream & 1) != 0) close(stream);
      }
      const auto areClosed = [&] {
        for (int stream = 0; stream < 3; ++stream) {
          if ((closed >> stream & 1) != 0 && fcntl(stream, F_GETFD) != -1) return false;
        }
        return true;
      };
      Storage storage = Create();
      EXPECT_TRUE(Put(*storage, 0) && areClosed());
      storage.reset(aoStorage::Recreate(storage.release(), path.c_str()));
      EXPECT_TRUE(storage && Put(*storage, 1) && areClosed());
      const auto inspected = Inspection::Of(path.c_str());
      EXPECT_TRUE(inspected && areClosed());
      storage = OpenFast();
      EXPECT_TRUE(storage && areClosed());
      CCompStgFile facade;
      EXPECT_TRUE(facade.Open(path.c_str(), 2) == 1 && areClosed());
    });
    EXPECT_EQ(status, 0);
    ExpectPut(2);
  }
}

TEST_F(Environment, WithoutRoomForADescriptorOnlyAFileOfThisCallGoes) {
  { ASSERT_TRUE(Put(*Create(), 0)); }
  const std::string other = dir.File("other");
  const int status = InChild([&] {
    close(STDIN_FILENO);  // what is opened comes there, and cannot be moved away
    const rlimit three{3, 3};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &three), 0);
    EXPECT_FALSE(Open());
    EXPECT_FALSE(Storage(aoStorage::OpenOrCreate(path.c_str(), kWriteFlags, 0)));
    EXPECT_FALSE(Storage(aoStorage::OpenOrCreate(other.c_str(), kWriteFlags, 0)));
    EXPECT_FALSE(fs::exists(other));
  });
  EXPECT_EQ(status, 0);
  ExpectPut(1);
}

TEST_F(Environment, SignalsEveryMillisecondDisturbNothing) {
  static volatile sig_atomic_t signals = 0;
  struct sigaction action {};
  action.sa_handler = [](int) { signals = signals + 1; };
  struct sigaction before {};
  ASSERT_EQ(sigaction(SIGALRM, &action, &before), 0);  // calls are not begun anew
  const itimerval often{{0, 1000}, {0, 1000}}, never{};
  Storage storage = Create(100);
  ASSERT_EQ(setitimer(ITIMER_REAL, &often, nullptr), 0);
  unsigned number = 0;
  for (signals = 0; signals < 200; ++number) {
    ASSERT_TRUE(Put(*storage, number));
    if (number % 500 == 499) {
      const aoStorage* old = storage.get();
      storage.reset(aoStorage::Recreate(storage.release(), path.c_str()));
      ASSERT_TRUE(storage && storage.get() != old) << LastError().text;
    }
    if (number % 100 == 99) {
      ASSERT_TRUE(storage->Sync());
    }
  }
  setitimer(ITIMER_REAL, &never, nullptr);
  sigaction(SIGALRM, &before, nullptr);
  storage.reset();
  ExpectPut(number);
}

}  // namespace
}  // namespace aostorage::testing
