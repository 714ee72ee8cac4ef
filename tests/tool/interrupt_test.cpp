// Ctrl-C, and whatever else breaks a write off: nothing old is lost and nothing half is left.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <thread>

#include "support/check_file.h"
#include "support/handles.h"
#include "tool/tool_fixture.h"

namespace aostorage::testing {
namespace {

class ToolInterrupt : public Tool {
 protected:
  // Starts the tool with pipes for all three streams; the one for messages takes none when it is
  // `full`.
  void Start(std::vector<std::string> words, bool full = false) {
    for (auto& pipe : pipes) ASSERT_EQ(::pipe2(pipe, O_CLOEXEC), 0);
    if (full) {
      ::fcntl(pipes[2][1], F_SETFL, O_NONBLOCK);
      while (::write(pipes[2][1], "", 1) > 0) continue;
      ::fcntl(pipes[2][1], F_SETFL, 0);
    }
    child = ::fork();
    if (child == 0) {
      for (const int stream : {0, 1, 2}) ::dup2(pipes[stream][stream == 0 ? 0 : 1], stream);
      std::vector<char*> arguments = {const_cast<char*>(AOSTORAGE_TOOL_PATH)};
      for (std::string& word : words) arguments.push_back(word.data());
      arguments.push_back(nullptr);
      ::execv(AOSTORAGE_TOOL_PATH, arguments.data());
      ::_exit(127);
    }
    for (const int stream : {0, 1, 2}) ::close(pipes[stream][stream == 0 ? 0 : 1]);
  }

  void Feed(const std::string& data) {
    ASSERT_EQ(::write(pipes[0][1], data.data(), data.size()), static_cast<ssize_t>(data.size()));
  }

  static void WaitUntil(const std::function<bool()>& holds) {
    for (int tries = 0; !holds(); ++tries) {
      ASSERT_LT(tries, 20000);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  void WaitForGrowth(std::uintmax_t bytes) {
    WaitUntil([&, goal = sizeBefore + bytes] { return fs::file_size(store) >= goal; });
  }

  // The wait status of the tool, and what it told.
  int End() {
    char text[4096];
    const ssize_t got = ::read(pipes[2][0], text, sizeof text);
    told.assign(text, static_cast<std::size_t>(got > 0 ? got : 0));
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    for (const int stream : {0, 1, 2}) ::close(pipes[stream][stream == 0 ? 1 : 0]);
    return status;
  }
  int Interrupt(int signal = SIGINT) {
    EXPECT_EQ(::kill(child, signal), 0);
    return End();
  }

  void Old(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) ASSERT_EQ(Code({"put", store, path}, "old " + path), 0);
    sizeBefore = fs::file_size(store);
  }

  int pipes[3][2] = {};
  pid_t child = -1;
  std::string told;
  std::uintmax_t sizeBefore = 0;
};

TEST_F(ToolInterrupt, ABegunStreamGoesAndAnOldOneStays) {
  ASSERT_EQ(Code({"mkdir", store, "f"}), 0);
  Old({"s", "f/s"});
  const std::string tree = Run({"tree", store}).out;
  for (const std::string path : {"s", "f/s", "n", "f/n"}) {
    for (const int signal : {SIGINT, SIGTERM}) {
      SCOPED_TRACE(path);
      sizeBefore = fs::file_size(store);
      Start({"put", store, path, "--reserve", "1000"});
      Feed(Bulk(600000));
      WaitUntil([&] {  // one piece is held back, the rest of the input is awaited
        int left = 1;
        return ::ioctl(pipes[0][1], FIONREAD, &left) == 0 && left == 0;
      });
      const int status = Interrupt(signal);
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 2) << status;
      EXPECT_NE(told.find("interrupted"), std::string::npos) << told;
      EXPECT_EQ(Run({"tree", store}).out, tree);
      EXPECT_EQ(Cat("s") + Cat("f/s"), "old sold f/s");
      EXPECT_EQ(CheckFile(store), "");
    }
  }
}

TEST_F(ToolInterrupt, AnImportStopsBetweenWholeStreams) {
  fs::create_directories(dir.File("in/d"));
  for (const std::string name : {"a", "d/big", "z"}) SetText(dir.File("in/" + name), "new");
  fs::resize_file(dir.File("in/d/big"), 0x60000000);  // sparse
  ASSERT_EQ(Code({"mkdir", store, "d"}), 0);
  for (const bool isThere : {false, true}) {
    Old(isThere ? std::vector<std::string>{"a", "d/big", "z"} : std::vector<std::string>{});
    Start({"import", "--force", store, dir.File("in")});
    WaitForGrowth(1 << 20);
    const int status = Interrupt();
    EXPECT_EQ(WEXITSTATUS(status), 2) << told;
    EXPECT_NE(told.find("d/big: interrupted"), std::string::npos) << told;
    EXPECT_EQ(told.find('\n') + 1, told.size()) << told;
    EXPECT_EQ(Run({"tree", store}).out, isThere ? "a  3\nd/\n  big  9\nz  5\n" : "a  3\nd/\n");
    EXPECT_EQ(Cat("a") + Cat("d/big") + Cat("z"), isThere ? "newold d/bigold z" : "new");
  }
  EXPECT_EQ(CheckFile(store), "");
}

TEST_F(ToolInterrupt, ARebuildGivesUp) {
  SetText(dir.File("big"), "");
  fs::resize_file(dir.File("big"), 10000000);
  for (const std::string name : {"a", "b", "c", "d", "e", "f"}) {
    ASSERT_EQ(Code({"put", store, name, dir.File("big")}), 0);
  }
  const Bytes before = ReadFile(store);
  Start({"compact", store});
  WaitUntil([&] { return fs::exists(store + "_tmp"); });
  EXPECT_EQ(WEXITSTATUS(Interrupt()), 2) << told;
  EXPECT_NE(told.find("interrupted; nothing was changed"), std::string::npos) << told;
  EXPECT_FALSE(fs::exists(store + "_tmp"));
  EXPECT_TRUE(ReadFile(store) == before);
}

TEST_F(ToolInterrupt, NobodyWaitsForAReaderThatIsGone) {
  {
    Storage storage(aoStorage::Open(store.c_str(), kWriteFlags, 0));
    for (int i = 10000; i < 12000; ++i) {
      const std::string name = std::string(50, 'n') + std::to_string(i);
      Stream(storage->CreateStream(name.c_str(), kWriteFlags));
    }
  }
  for (const std::string option : {"--color=never", "-l", "--json"}) {
    Start({"ls", option, store});
    WaitUntil([&] {
      int held = 0;
      return ::ioctl(pipes[1][0], FIONREAD, &held) == 0 && held == 0x10000;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // it waits for room now
    EXPECT_EQ(WEXITSTATUS(Interrupt()), 2) << option;
    EXPECT_EQ(told.find('\n') + 1, told.size()) << told;
  }
}

// The tool cannot end by itself while its message has nowhere to go.
TEST_F(ToolInterrupt, TheSecondOneEndsTheProgram) {
  Start({"put", store, "s"}, true);
  Feed("x");
  WaitUntil([&] {
    int left = 1;
    return ::ioctl(pipes[0][1], FIONREAD, &left) == 0 && left == 0;
  });
  int status = 0;
  WaitUntil([&] { return ::kill(child, SIGINT) == 0 && ::waitpid(child, &status, WNOHANG) != 0; });
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
}

TEST_F(ToolInterrupt, AFullDiskLeavesTheOldStream) {
  fs::create_directories(dir.File("in"));
  SetText(dir.File("in/s"), Bulk(400000));
  const std::string other = dir.File("b.store");
  ASSERT_EQ(Code({"create", other}) + Code({"put", other, "s", dir.File("in/s")}), 0);
  Old({"s"});
  const std::vector<std::vector<std::string>> rows = {{"put", store, "s", dir.File("in/s")},
                                                      {"import", "--force", store, dir.File("in")},
                                                      {"cp", "--force", other + ":s", store + ":"}};
  for (const auto& words : rows) {
    EXPECT_EQ(Run(words, "", "ulimit -f 200; ").code, 5) << words[0];
    EXPECT_EQ(Run({"ls", "-l", store}).out, "-          5 s\n");
    EXPECT_EQ(Cat("s"), "old s");
    EXPECT_EQ(CheckFile(store), "");
    EXPECT_EQ(Code(words), 0);
    EXPECT_EQ(Cat("s"), Bulk(400000));
    Old({"s"});
  }
}

// A reserved slot is what makes a stream quick to open, and of two streams of one name the one of
// the last slot is seen: neither may be lost to a new stream in the first free slot.
TEST_F(ToolInterrupt, ReplacingKeepsReservedSlotsDurationsAndTheOrderOfTwins) {
  for (const std::string name : {"reserved", "twin"}) {
    FileBuilder builder;
    builder.AddStream(name == "twin" ? 9 : 2, name, Pattern(5));
    if (name == "twin") builder.AddStream(10, name, Pattern(6, 2));
    const std::size_t count = ReadImage(builder.bytes).streams.size();
    WriteFile(store, builder.bytes);
    ASSERT_EQ(Code({"put", store, name}, "new"), 0);
    EXPECT_EQ(Cat(name), "new");
    EXPECT_EQ(ReadImage(ReadFile(store)).streams.size(), count);
    const std::string inUse = name == "twin" ? "0 of 6" : "1 of 6";
    EXPECT_NE(Run({"info", store}).out.find(inUse), std::string::npos) << name;
  }
  {
    Storage storage(aoStorage::Open(store.c_str(), kWriteFlags, 0));
    Stream folder(storage->CreateStream("f", PackKind(true), kWriteFlags));
    Stream(folder->CreateStream("s", PackKind(false, 7), kWriteFlags));
  }
  ASSERT_EQ(Code({"put", store, "f/s"}, "new"), 0);
  EXPECT_EQ(ReadImage(ReadFile(store)).Find("f/s")->duration, 7);
}

}  // namespace
}  // namespace aostorage::testing
