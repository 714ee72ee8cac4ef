// The rules that hold for every verb of the tool: output apart from messages, exit codes, names fit
// for terminals, colours.
#include <pty.h>
#include <unistd.h>

#include <map>
#include <utility>

#include "support/handles.h"
#include "tool/tool_fixture.h"

namespace aostorage::testing {
namespace {

class ToolRules : public Tool {
 protected:
  void Make(const std::vector<std::string>& names) {
    Storage storage(aoStorage::Open(store.c_str(), kWriteFlags, 0));
    for (const std::string& name : names) Stream(storage->CreateStream(name.c_str(), kWriteFlags));
  }

  // What the tool prints on a terminal, both streams.
  std::string OnTerminal(const std::vector<std::string>& words, const std::string& environment) {
    std::string command = "exec env -u NO_COLOR " + environment + " " AOSTORAGE_TOOL_PATH;
    for (const std::string& word : words) command += " " + Quoted(word);
    int terminal = -1;
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
      ::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
      ::_exit(127);
    }
    std::string printed;
    char piece[4096];
    for (ssize_t got = 0; (got = ::read(terminal, piece, sizeof piece)) > 0;) {
      printed.append(piece, static_cast<std::size_t>(got));
    }
    ::close(terminal);
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << printed;
    return printed;
  }
};

TEST_F(ToolRules, EveryVerbTellsItsFailureByTheSameCodesAndOnStandardError) {
  SetText(dir.File("text"), "this is no storage file, though it is longer than its header");
  SetText(dir.File("damaged"), Text(store));
  PatchFile32(dir.File("damaged"), 32, 0);  // the magic word of the directory
  fs::create_directory(dir.File("in"));
  const std::string other = dir.File("other.store");
  ASSERT_EQ(Code({"create", other}) + Code({"put", other, "s"}), 0);
  const std::vector<std::vector<std::string>> rows = {{"put", "S", "s"},
                                                      {"get", "S", "s"},
                                                      {"cat", "S", "s"},
                                                      {"rm", "S", "s"},
                                                      {"ls", "S"},
                                                      {"ls", "S", "--json"},
                                                      {"tree", "S"},
                                                      {"tree", "S", "--json"},
                                                      {"info", "S"},
                                                      {"mkdir", "S", "f"},
                                                      {"mkdir", "-p", "S", "f"},
                                                      {"mv", "S", "s", "t"},
                                                      {"cp", "S:s", other + ":"},
                                                      {"cp", other + ":s", "S:"},
                                                      {"compact", "S"},
                                                      {"compact", "S", "--output", dir.File("new")},
                                                      {"upgrade", "S"},
                                                      {"import", "S", dir.File("in")},
                                                      {"export", "S", dir.File("out")},
                                                      {"set", "S", "e", "--int", "1"},
                                                      {"get-entry", "S", "e", "--int"},
                                                      {"log", "S", "l"},
                                                      {"log", "--list", "S", "l"}};
  const std::map<std::string, int> codes = {{"none", 1}, {"text", 4}, {"damaged", 3}};
  for (const auto& row : rows) {
    for (const auto& [file, code] : codes) {
      std::vector<std::string> words = row;
      for (std::string& word : words) {
        if (word[0] == 'S') word.replace(0, 1, dir.File(file));
      }
      const Bytes before = file == "none" ? Bytes() : ReadFile(dir.File(file));
      const Outcome outcome = Run(words, "input");
      EXPECT_EQ(outcome.code, code) << ::testing::PrintToString(words) << outcome.err;
      EXPECT_EQ(outcome.err.rfind("aostorage: " + dir.File(file), 0), 0U) << outcome.err;
      EXPECT_TRUE(code == 3 || outcome.out.empty()) << outcome.out;  // damage leaves some answer
      EXPECT_EQ(file == "none" ? Bytes() : ReadFile(dir.File(file)), before);
    }
    const Outcome wrong = Run({row[0], "--nonsense"});
    EXPECT_EQ(wrong.code, 2) << row[0];
    EXPECT_EQ(wrong.out, "");
    const Outcome help = Run({row[0], "--help"});
    EXPECT_NE(help.out.find("\nExamples:\n  "), std::string::npos) << help.out;
    EXPECT_EQ(help.err, "");
  }
}

TEST_F(ToolRules, AnswersStayWholeBesideFailures) {
  ASSERT_EQ(Code({"put", store, "a"}) + Code({"mkdir", store, "f"}) + Code({"put", store, "z"}), 0);
  for (const std::string verb : {"ls", "tree", "info", "--help"}) {
    const std::string words = verb == "--help" ? verb : verb + " " + Quoted(store);
    const int status =
        std::system((AOSTORAGE_TOOL_PATH " " + words + " >/dev/full 2>/dev/null").c_str());
    EXPECT_EQ(WEXITSTATUS(status), 5) << verb;
  }

  PatchFile32(store, ReadImage(ReadFile(store)).Find("f")->recordOffset, 0);
  const Outcome ls = Run({"ls", "-l", store});
  const Outcome document = Run({"ls", "--json", store});
  EXPECT_EQ(ls.code * 10 + document.code, 33);
  EXPECT_EQ(ls.err, document.err);
  EXPECT_EQ(ls.out.find("aostorage"), std::string::npos);
  EXPECT_EQ(document.out.substr(document.out.size() - 4), "\n]}\n");
}

TEST_F(ToolRules, NamesCannotActOnATerminal) {
  const std::pair<std::string, std::string> rows[] = {
      {"\x01\x1f\x7f", "\\x01\\x1F\\x7F"},
      {"a\\x41", "a\\x5Cx41"},
      {"\xC2\x80\xC2\x9B", "\\xC2\\x80\\xC2\\x9B"},  // C1
      {"\xC2\xA0\xC2\xAD", "\xC2\xA0\\xC2\\xAD"},    // a space that is seen, a hyphen not
      {"\xD8\x9B\xD8\x9C", "\xD8\x9B\\xD8\\x9C"},    // U+061C
      {"\xE2\x80\x8A\xE2\x80\x8B", "\xE2\x80\x8A\\xE2\\x80\\x8B"},  // U+200B
      {"\xE2\x80\x8F\xE2\x80\x90", "\\xE2\\x80\\x8F\xE2\x80\x90"},  // U+200F
      {"\xE2\x80\xA8\xE2\x80\xAE", "\\xE2\\x80\\xA8\\xE2\\x80\\xAE"},
      {"\xE2\x80\xAF\xE2\x81\xA0", "\xE2\x80\xAF\\xE2\\x81\\xA0"},  // U+202F, U+2060
      {"\xE2\x81\xA6\xE2\x81\xA9", "\\xE2\\x81\\xA6\\xE2\\x81\\xA9"},
      {"\xEF\xBB\xBF", "\\xEF\\xBB\\xBF"},  // U+FEFF
      {"\xF3\xA0\x80\xA1\xF0\x9F\x98\x80", "\\xF3\\xA0\\x80\\xA1\xF0\x9F\x98\x80"},
      {"\xC1\x81\xED\xA0\x80\xF4\x90\x80\x80\xE2\x80",  // overlong, surrogate, too high, broken off
       "\\xC1\\x81\\xED\\xA0\\x80\\xF4\\x90\\x80\\x80\\xE2\\x80"}};
  for (const auto& [name, shown] : rows) {
    Make({name});
    EXPECT_EQ(Run({"ls", store, name}).out, shown + "\n");
    EXPECT_NE(Run({"put", store, name + "/x"}).err.find("'" + shown + "'"), std::string::npos);
  }
}

TEST_F(ToolRules, ColoursFollowTheOptionTheTerminalAndTheEnvironment) {
  ASSERT_EQ(Code({"mkdir", store, "folder"}), 0);
  const struct {
    const char *environment, *option;
    bool onTerminal, elsewhere;
  } rows[] = {{"TERM=xterm", "--color=auto", true, false},
              {"TERM=xterm NO_COLOR=", "--color=auto", true, false},
              {"TERM=xterm NO_COLOR=0", "--color=auto", false, false},
              {"TERM=dumb", "--color=auto", false, false},
              {"-u TERM", "--color=auto", false, false},
              {"TERM=dumb NO_COLOR=1", "--color=always", true, true},
              {"TERM=xterm", "--color=never", false, false}};
  for (const auto& row : rows) {
    for (const std::string verb : {"ls", "tree"}) {
      SCOPED_TRACE(std::string(row.environment) + row.option + verb);
      const std::vector<std::string> words = {verb, store, row.option, verb == "ls" ? "-l" : "/"};
      const std::string terminal = OnTerminal(words, row.environment);
      const std::string before = std::string("env -u NO_COLOR ") + row.environment + " ";
      const Outcome file = Run(words, "", before);
      EXPECT_EQ(terminal.find("\x1b[") != std::string::npos, row.onTerminal) << terminal;
      EXPECT_EQ(file.out.find("\x1b[") != std::string::npos, row.elsewhere) << file.out;
      EXPECT_NE(terminal.find("folder"), std::string::npos);
    }
  }
  EXPECT_NE(OnTerminal({"tree", store}, "TERM=xterm").find("\x1b["), std::string::npos);
  EXPECT_EQ(Code({"ls", store, "--color=sometimes"}), 2);
}

}  // namespace
}  // namespace aostorage::testing
