// The command line tool, run as a program: round trips, exit codes, hostile names.

#include "support/check_file.h"
#include "support/handles.h"
#include "tool/tool_fixture.h"

namespace aostorage::testing {
namespace {

// Sizes around the piece in which the tool moves data.
TEST_F(Tool, PutAndGetMoveWholeStreamsAndReplaceOldOnes) {
  for (const std::size_t size : {0, 1, 262143, 262144, 262145, 600000, 5, 0}) {
    const std::string data = Bulk(size);
    ASSERT_EQ(Code({"put", store, "s"}, data), 0) << size;
    EXPECT_EQ(Cat("s"), data) << size;
    SetText(dir.File("target"), "what stood there before and is longer than five bytes");
    ASSERT_EQ(Code({"get", store, "s", dir.File("target")}), 0);
    EXPECT_EQ(Text(dir.File("target")), data) << size;
  }
  EXPECT_EQ(CheckFile(store), "");
  ASSERT_EQ(Code({"rm", store, "s"}), 0);
  EXPECT_EQ(Run({"ls", store}).out, "");
}

TEST_F(Tool, ImportAndExportCarryATree) {
  fs::create_directories(dir.File("in/sub/deeper/empty"));
  SetText(dir.File("in/file with spaces"), Bulk(300000));
  SetText(dir.File("in/sub/e"), "");
  SetText(dir.File("in/sub/deeper/" + std::string(60, 'n')), "sixty");
  SetText(dir.File("in/sub/" + std::string(61, 'n')), "too long");
  fs::create_symlink("/etc", dir.File("in/link"));

  const Outcome import = Run({"import", store, dir.File("in"), "--into", "x/y"});
  EXPECT_EQ(import.code, 2);
  EXPECT_NE(import.err.find(std::string(61, 'n')), std::string::npos);
  EXPECT_EQ(Code({"export", store, dir.File("out"), "x/y"}), 0);
  fs::remove(dir.File("in/link"));
  fs::remove(dir.File("in/sub/" + std::string(61, 'n')));
  EXPECT_EQ(
      std::system(("diff -r " + Quoted(dir.File("in")) + " " + Quoted(dir.File("out"))).c_str()),
      0);
  EXPECT_EQ(CheckFile(store), "");

  // Nothing is overwritten unasked, on either side.
  SetText(dir.File("in/sub/e"), "new");
  EXPECT_EQ(Code({"import", store, dir.File("in"), "--into", "x/y"}), 2);
  EXPECT_EQ(Cat("x/y/sub/e"), "");
  EXPECT_EQ(Code({"import", store, dir.File("in"), "--into", "x/y", "--force"}), 0);
  EXPECT_EQ(Code({"export", store, dir.File("out"), "x/y"}), 2);
  EXPECT_EQ(Text(dir.File("out/sub/e")), "");
  EXPECT_EQ(Code({"export", store, dir.File("out"), "x/y", "--force"}), 0);
  EXPECT_EQ(Text(dir.File("out/sub/e")), "new");
}

TEST_F(Tool, ImportCutsLongNamesToDifferentOnes) {
  fs::create_directory(dir.File("in"));
  const std::string sixty(60, 'n');
  SetText(dir.File("in/" + sixty), "plain");
  SetText(dir.File("in/" + sixty + "1"), "one");
  SetText(dir.File("in/" + sixty + "2"), "two");
  SetText(dir.File("in/" + std::string(59, 'm') + "\xC3\xA4\xC3\xA4"), "umlaut");
  ASSERT_EQ(Code({"import", store, dir.File("in"), "--cut"}), 0);
  EXPECT_EQ(Cat(sixty), "plain");
  EXPECT_EQ(Cat(std::string(58, 'n') + "~2"), "one");
  EXPECT_EQ(Cat(std::string(58, 'n') + "~3"), "two");
  EXPECT_EQ(Cat(std::string(59, 'm')), "umlaut");  // not cut inside of a character
}

TEST_F(Tool, ExportStaysInsideItsDirectory) {
  const std::vector<std::string> hostile = {"..",           ".",   "/",     "/etc/passwd",
                                            "../../escape", "a/b", "a%2Fb", "line\nbreak\x1b[2J"};
  {
    Storage storage(aoStorage::Open(store.c_str(), kWriteFlags, 0));
    for (const std::string& name : hostile) {
      Stream(storage->CreateStream(name.c_str(), kWriteFlags))->Write(name.data(), 1, true);
    }
    Stream folder(storage->CreateStream("f", PackKind(true), kWriteFlags));
    Stream inner(folder->CreateStream("../up", PackKind(true), kWriteFlags));
    Stream(inner->CreateStream("..", 0, kWriteFlags));
    Stream twin(folder->CreateStream("one", 0, kWriteFlags));
    Stream(folder->CreateStream("two", 0, kWriteFlags));
    ASSERT_TRUE(twin->Rename("two"));  // two children of one name
    for (const char* name : {"linked", "linkedDir"}) {
      Stream(storage->CreateStream(name, PackKind(name[6] == 'D'), kWriteFlags));
    }
  }
  const std::string out = dir.File("jail/out");
  fs::create_directories(out);
  SetText(dir.File("victim"), "untouched");
  fs::create_symlink(dir.File("victim"), out + "/linked");
  fs::create_directory(dir.File("victimDir"));
  fs::create_symlink(dir.File("victimDir"), out + "/linkedDir");

  EXPECT_EQ(Code({"export", store, out}), 2);             // the two links are in the way
  EXPECT_EQ(Code({"export", store, out, "--force"}), 2);  // a link is no directory
  EXPECT_EQ(Text(dir.File("victim")), "untouched");
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(out + "/linked")));
  EXPECT_TRUE(fs::is_empty(dir.File("victimDir")));
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.File("jail")), {}), 1);

  std::size_t files = 0;
  for (const auto& entry : fs::recursive_directory_iterator(out)) {
    files += entry.is_regular_file() ? 1U : 0U;
    for (const char letter : entry.path().filename().string()) EXPECT_GE(letter, ' ');
  }
  EXPECT_EQ(files, hostile.size() + 4);  // linked, f/one as f/two~2, f/two, f/../up/..
  EXPECT_EQ(Text(out + "/%2E%2E"), ".");
  EXPECT_EQ(Cat("/etc/passwd") + Cat("a/b") + Cat("/"), "/a/") << "root names with slashes";
  EXPECT_EQ(Text(out + "/a%2Fb") + Text(out + "/a%2Fb~2"), "aa");

  // What is printed cannot move the cursor of a terminal either.
  EXPECT_NE(Run({"ls", store}).out.find("line\\x0Abreak\\x1B[2J\n"), std::string::npos);
}

TEST_F(Tool, MoveNeverOverwritesAndKeepsTheContent) {
  const std::string data = Bulk(300000);
  ASSERT_EQ(Code({"mkdir", store, "a"}) + Code({"mkdir", store, "-p", "b/c"}), 0);
  ASSERT_EQ(Code({"put", store, "a/s"}, data) + Code({"put", store, "a/t"}, "t"), 0);
  EXPECT_EQ(Code({"mv", store, "a/s", "t"}), 2);
  EXPECT_EQ(Code({"mv", store, "a/s", "a/t"}), 2);
  EXPECT_EQ(Code({"mv", store, "a/s", "none/s"}), 1);
  EXPECT_EQ(Cat("a/s") + Cat("a/t"), data + "t");

  EXPECT_EQ(Code({"mv", store, "a/s", "r"}), 0);
  EXPECT_EQ(Code({"mv", store, "a/r", "b/c/"}), 0);
  EXPECT_EQ(Code({"cat", store, "a/r"}), 1);
  EXPECT_EQ(Cat("b/c/r"), data);
  EXPECT_EQ(Code({"mv", store, "b", "b/c/inside"}), 2);
  EXPECT_EQ(Code({"mv", store, "b/c", "/top"}), 0);
  EXPECT_EQ(Run({"tree", store}).out, "a/\n  t  1\nb/\ntop/\n  r  300000\n");
  EXPECT_EQ(Cat("top/r"), data);
  EXPECT_EQ(CheckFile(store), "");
}

TEST_F(Tool, SlashesInNamesStandBehindSlashesBetweenThem) {
  {
    Storage storage(aoStorage::Open(store.c_str(), kWriteFlags, 0));
    Stream(storage->CreateStream("a/b", kWriteFlags))->Write("one", 3);
    Stream(storage->CreateStream("x/y", PackKind(true), kWriteFlags));
  }
  ASSERT_EQ(Code({"mkdir", store, "a"}) + Code({"mkdir", store, "-p", "x/y/m/n"}), 0);
  ASSERT_EQ(Code({"put", store, "x/y/m/n/s"}, "two") + Code({"put", store, "p"}, "three"), 0);
  EXPECT_EQ(Cat("a/b") + Cat("/x/y/m/n/s/"), "onetwo");
  EXPECT_EQ(Run({"tree", store}).out, "a/\na/b  3\np  5\nx/y/\n  m/\n    n/\n      s  3\n");
  ASSERT_EQ(Code({"mv", store, "p", "a/"}) + Code({"mv", store, "a/p", "b"}), 0);
  EXPECT_EQ(Cat("a/b"), "three");
  ASSERT_EQ(Code({"rm", store, "a/b"}), 0);
  EXPECT_EQ(Cat("a/b"), "one");
  ASSERT_EQ(Code({"rm", store, "a/b"}) + Code({"rm", store, "x/y/m"}), 0);
  EXPECT_EQ(Run({"tree", store}).out, "a/\nx/y/\n");
  for (const std::string wrong : {"a//b", "n//m"}) {
    EXPECT_EQ(Code({"put", store, wrong}), 1) << wrong;
    EXPECT_EQ(Code({"mkdir", store, "-p", wrong}), 2) << wrong;
    EXPECT_EQ(Code({"rm", store, wrong}), 1) << wrong;
  }
  EXPECT_EQ(Run({"tree", store}).out, "a/\nx/y/\n") << "nothing of it was made";
}

TEST_F(Tool, EntriesKeepTheirValuesAtTheRootAndInFolders) {
  ASSERT_EQ(Code({"mkdir", store, "f"}), 0);
  const std::vector<std::vector<std::string>> values = {
      {"--int", "-2147483648"}, {"--int64", "-9223372036854775808"},
      {"--uint", "4294967295"}, {"--double", "-1.5e-300"},
      {"--double", "nan"},      {"--string", "text"},
      {"--string", ""},         {"--size", "-1,2147483647"},
      {"--rect", "-1,2,-3,4"}};
  for (const std::string place : {"e", "f/e"}) {
    for (const auto& value : values) {
      ASSERT_EQ(Code({"set", store, place, value[0], value[1]}), 0)
          << place << value[0] << value[1];
      EXPECT_EQ(Run({"get-entry", store, place, value[0]}).out, value[1] + "\n")
          << place << value[0];
    }
    ASSERT_EQ(Code({"set", store, place, "--raw", "abc"}), 0);
    EXPECT_EQ(Cat(place), "abc");
    EXPECT_EQ(Run({"get-entry", store, place, "--raw"}).out, "abc");
    ASSERT_EQ(Code({"set", store, place, "--raw", ""}), 0);
    EXPECT_EQ(Cat(place), "");
  }
  for (const std::string place : {"fresh", "f/fresh"}) {
    ASSERT_EQ(Code({"set", store, place, "--size", "1,2"}), 0);
    EXPECT_EQ(Cat(place), std::string("\1\0\0\0\2\0\0\0", 8)) << place;
    EXPECT_EQ(Code({"get-entry", store, place, "--rect"}), 2) << "too short for four numbers";
    EXPECT_EQ(Run({"get-entry", store, place, "--rect", "--default", "1,2,3,4"}).out, "1,2,3,4\n");
  }
  EXPECT_EQ(Code({"get-entry", store, "f/none", "--int"}), 1);
  EXPECT_EQ(Run({"get-entry", store, "f/none", "--int", "--default", "-7"}).out, "-7\n");
  for (const std::string wrong : {"2147483648", "1x", "", " 1"}) {
    EXPECT_EQ(Code({"set", store, "f/e", "--int", wrong}), 2) << wrong;
  }
  EXPECT_EQ(Code({"set", store, "f", "--int", "1"}), 2) << "a folder";
}

TEST_F(Tool, LogsGrowAndTellWhereTheirValuesLie) {
  ASSERT_EQ(Code({"mkdir", store, "f"}), 0);
  for (const std::string place : {"log", "f/log"}) {
    ASSERT_EQ(Code({"log", store, place}, "0123456789"), 0);
    ASSERT_EQ(Code({"log", store, place}, "abcde"), 0);
    EXPECT_EQ(Cat(place), std::string("\16\0\0\0", 4) + "0123456789abcde") << place;
    const std::string list = Run({"log", "--list", store, place}).out;
    EXPECT_NE(list.find("         4         10  older"), std::string::npos) << list;
    EXPECT_NE(list.find("        14          5  newest"), std::string::npos) << list;
    EXPECT_EQ(Code({"log", store, place}, ""), 2);
  }
  ASSERT_EQ(Code({"put", store, "text"}, "no log entry at all"), 0);
  EXPECT_EQ(Code({"log", store, "text"}, "value"), 2);
  EXPECT_EQ(Cat("text"), "no log entry at all");
}

TEST_F(Tool, ListsInTheOrderAskedFor) {
  for (const std::string name : {"5F000708", "a", "5F000000"}) Code({"put", store, name}, "12");
  EXPECT_EQ(Run({"ls", store}).out, "5F000000\n5F000708\na\n");
  EXPECT_EQ(Run({"ls", store, "--sort", "slot"}).out, "5F000708\na\n5F000000\n");
  for (const std::string order : {"name", "none", "slot"}) {
    EXPECT_EQ(Code({"ls", store, "--sort", order}), 0) << order;
  }
  EXPECT_EQ(Run({"ls", store, "--sort", "none", "-l"}).out.size(),
            Run({"ls", "-l", store}).out.size());
  EXPECT_EQ(Run({"ls", store, "--durations"}).out,
            "    1800s 5F000000\n    1800s 5F000708\n       0s a\n");
  EXPECT_EQ(Run({"ls", "-l", store, "a"}).out, "-          2 a\n");
}

TEST_F(Tool, EveryKindOfFailureHasItsExitCode) {
  ASSERT_EQ(Code({"put", store, "s"}, Bulk(1000)), 0);
  SetText(dir.File("text"), "this is no storage file, though it is longer than its header");
  const std::string missing = dir.File("missing");
  const std::vector<std::pair<int, std::vector<std::string>>> rows = {
      {0, {"--help"}},
      {0, {"--version"}},
      {0, {"put", "--help"}},
      {2, {}},
      {2, {"nonsense"}},
      {2, {"put", store}},
      {2, {"set", store, "s", "--int", "1", "--uint", "1"}},
      {1, {"ls", missing}},
      {1, {"put", missing, "s"}},
      {1, {"cat", store, "none"}},
      {1, {"rm", store, "none"}},
      {1, {"put", store, "none/s"}},
      {1, {"put", store, "new", missing}},
      {1, {"import", store, missing}},
      {2, {"put", store, "s/below"}},
      {2, {"put", store, std::string(61, 'n')}},
      {2, {"put", store, "s", store}},
      {2, {"get", store, "s", store}},
      {2, {"create", store}},
      {2, {"mkdir", store, "s"}},
      {4, {"ls", dir.File("text")}},
      {4, {"ls", dir.Path()}},
      {4, {"create", "--force", dir.File("text")}},
      {5, {"get", store, "s", dir.File("none/file")}},
      {5, {"create", dir.File("none/file")}},
  };
  const Bytes before = ReadFile(store);
  for (const auto& [code, words] : rows) {
    const Outcome outcome = Run(words);
    EXPECT_EQ(outcome.code, code) << ::testing::PrintToString(words) << outcome.err;
    const bool oneLine = outcome.err.find('\n') + 1 == outcome.err.size();
    EXPECT_TRUE(code == 0 ? outcome.err.empty() : oneLine && !outcome.err.empty()) << outcome.err;
  }
  EXPECT_EQ(ReadFile(store), before);
}

TEST_F(Tool, AFullDiskLosesNothing) {
  ASSERT_EQ(Code({"put", store, "old"}, Bulk(1000)), 0);
  SetText(dir.File("big"), Bulk(400000));
  const std::string limit = "ulimit -f 200; ";  // blocks of 512 or 1024 bytes
  const Outcome put = Run({"put", store, "new", dir.File("big")}, "", limit);
  EXPECT_EQ(put.code, 5) << put.err;
  EXPECT_EQ(Run({"ls", store}).out, "old\n");
  ASSERT_EQ(Code({"put", store, "big", dir.File("big")}), 0);
  EXPECT_EQ(Run({"get", store, "big", dir.File("out")}, "", limit).code, 5);
  EXPECT_FALSE(fs::exists(dir.File("out")));
  EXPECT_EQ(Run({"cat", store, "big"}).out, Bulk(400000));
  EXPECT_EQ(Cat("old"), Bulk(1000));
}

TEST_F(Tool, DamageIsToldAndEndsEveryWalk) {
  ASSERT_EQ(Code({"mkdir", store, "-p", "a/b"}), 0);
  ASSERT_EQ(Code({"put", store, "a/b/s"}, "data"), 0);
  ASSERT_EQ(Code({"put", store, "t"}, "data"), 0);
  const RawImage image = ReadImage(ReadFile(store));
  const Bytes sound = ReadFile(store);

  // The folder b holds what the folder a holds: itself.
  PatchFile32(store, image.Find("a/b")->recordOffset + 76, image.Find("a")->firstBlock);
  for (const std::string verb : {"tree", "info"}) EXPECT_EQ(Code({verb, store}), 3) << verb;
  EXPECT_EQ(Code({"export", store, dir.File("out")}), 3);
  EXPECT_EQ(Text(dir.File("out/t")), "data");

  WriteFile(store, sound);
  PatchFile32(store, image.Find("t")->firstBlock, 0);  // the magic word of a block
  EXPECT_EQ(Code({"cat", store, "t"}), 3);
  EXPECT_EQ(Code({"get", store, "t", dir.File("t")}), 3);
  EXPECT_FALSE(fs::exists(dir.File("t")));
  EXPECT_EQ(Cat("a/b/s"), "data");

  WriteFile(store, sound);
  PatchFile32(store, 32, 0);  // the magic word of the directory
  EXPECT_EQ(Code({"ls", store}), 3);
  EXPECT_EQ(Code({"put", store, "new"}, "data"), 3);
}

}  // namespace
}  // namespace aostorage::testing
