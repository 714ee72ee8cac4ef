// Copies, compaction and upgrade from the command line: all is there, and nothing is lost by them.
#include <map>
#include <sstream>
#include <tuple>

#include "support/check_file.h"
#include "support/handles.h"
#include "tool/tool_fixture.h"

namespace aostorage::testing {
namespace {

using namespace std::string_literals;
/// Kind, duration and bytes of each stream, by its path below a folder or the stream itself.
using Tree = std::map<std::string, std::tuple<int, int, Bytes>>;

Tree TreeAt(const std::string& file, const std::string& top) {
  Tree tree;
  for (const RawStream& stream : ReadImage(ReadFile(file)).streams) {
    if ((stream.path + "/").rfind(top + "/", 0) != 0) continue;
    tree[stream.path.substr(top.size())] = {stream.kind, stream.duration,
                                            stream.kind == 1 ? Bytes() : stream.Value()};
  }
  return tree;
}

class CopyTool : public Tool {
 protected:
  void SetUp() override {
    for (const std::string& file : {store, other}) ASSERT_EQ(Code({"create", file}), 0);
    {
      Storage storage(aoStorage::Open(store.c_str(), kWriteFlags, 0));
      Stream folder(storage->CreateStream("f", PackKind(true, 5), kWriteFlags));
      Stream(folder->CreateStream("g", PackKind(true, 6), kWriteFlags));
      Stream(folder->CreateStream("big", PackKind(false, 7), kWriteFlags));
      Stream(folder->CreateStream("empty", PackKind(false, 8), kWriteFlags));
    }
    ASSERT_EQ(Code({"put", store, "f/big"}, Bulk(270000)), 0);
    ASSERT_EQ(Code({"put", store, "f/g/deep"}, "deep") + Code({"put", store, "p"}, "plain"), 0);
  }
  /// Copies with the words of the line; a capital letter at the start of one stands for a file.
  Outcome Copy(const std::string& line, const std::string& before = "") {
    const std::map<char, std::string> files = {
        {'A', store}, {'B', other}, {'C', dir.File("c:1")}, {'N', dir.File("none")}};
    std::vector<std::string> words = {"cp"};
    std::istringstream in(line);
    for (std::string word; in >> word; words.push_back(word)) {
      if (files.count(word[0]) != 0) word.replace(0, 1, files.at(word[0]));
    }
    return Run(words, "", before);
  }

  const std::string other = dir.File("b.store");
};

TEST_F(CopyTool, CarriesStreamsAndFoldersWithinAStoreAndToAnother) {
  ASSERT_EQ(Code({"mkdir", store, "x"}) + Code({"mkdir", other, "x"}), 0);
  const std::string rows[][3] = {
      {"p", "q", "q"},     {"p", "/top", "top"},     {"p", "x/", "x/p"},
      {"f", "c", "c"},     {"f", "x/", "x/f"},       {"f/g", "", "g"},
      {"f", "x/y", "x/y"}, {"f/big", "x/", "x/big"}, {"f/empty", "e", "e"}};
  for (const auto& [from, to, made] : rows) {
    SCOPED_TRACE(from + " " + to);
    const Tree tree = TreeAt(store, from);
    EXPECT_EQ(Copy("A:" + from + " A:" + to).err + Copy("A:" + from + " B:" + to).err, "");
    EXPECT_EQ(TreeAt(store, made), tree);
    EXPECT_EQ(TreeAt(other, made), tree);
  }
  EXPECT_EQ(CheckFile(store) + CheckFile(other), "");

  fs::copy_file(store, dir.File("c:1"));
  EXPECT_EQ(Copy("C:p B:a:b").code + Copy("B:a:b A:b:c").code, 0);
  EXPECT_EQ(Cat("b:c"), "plain");
}

TEST_F(CopyTool, OverwritesNothingUnaskedAndNeverCopiesIntoItself) {
  ASSERT_EQ(Code({"mkdir", other, "f"}) + Code({"put", other, "p"}, "old"), 0);
  fs::create_hard_link(store, dir.File("c:1"));
  const std::string rows[] = {
      "2 A:p B:",          "2 A:p B: --merge",   "2 A:p B:f --force",
      "2 A:f B:f",         "2 A:f B:f --force",  "2 A:f B:p --force --merge",
      "2 A:p A:p --force", "2 A:f A:f/ --merge", "2 A:f A:f/g/new",
      "2 A:f C:f/g/new",   "2 A:f A: --merge",   "2 A:f/g A:f --merge",
      "2 A: B:x",          "2 A:p nocolon",      "1 A:none B:x",
      "1 A:p B:none/x",    "1 A:p N:x",          "1 N:p B:x"};
  const std::pair<Bytes, Bytes> before(ReadFile(store), ReadFile(other));
  for (const std::string& row : rows) {  // the exit code and the words
    const Outcome outcome = Copy(row.substr(2));
    EXPECT_EQ(outcome.code, row[0] - '0') << row << "\n" << outcome.err;
    EXPECT_EQ(outcome.err.find('\n') + 1, outcome.err.size()) << outcome.err;
  }
  EXPECT_EQ(std::make_pair(ReadFile(store), ReadFile(other)), before);
}

TEST_F(CopyTool, MergesAndReplacesOnRequest) {
  ASSERT_EQ(Code({"mkdir", other, "-p", "f/only"}) + Code({"mkdir", other, "-p", "f/big/in"}), 0);
  for (const std::string path : {"f/empty", "f/g", "f/own", "p"})
    ASSERT_EQ(Code({"put", other, path}, Bulk(280000)), 0);
  ASSERT_EQ(Copy("A:f B:f --merge").err, "");
  Tree merged = TreeAt(store, "f");
  for (const std::string kept : {"/own", "/only"}) merged[kept] = TreeAt(other, "f")[kept];
  std::get<1>(merged[""]) = 0;  // what was there keeps its duration
  std::get<1>(merged["/empty"]) = 0;
  EXPECT_EQ(TreeAt(other, "f"), merged);
  ASSERT_EQ(Copy("A:p B:p --force").err, "");
  EXPECT_EQ(TreeAt(other, "p"), TreeAt(store, "p"));
  EXPECT_EQ(CheckFile(other), "");
}

TEST_F(CopyTool, LeavesNothingOfAFailedCopy) {
  const Tree none;
  EXPECT_EQ(Copy("A:f B:new", "ulimit -f 200; ").code, 5);
  EXPECT_EQ(TreeAt(other, "new"), none);
  const std::uint32_t block = ReadImage(ReadFile(store)).Find("f/g/deep")->firstBlock;
  PatchFile32(store, block, 0);
  const Outcome damaged = Copy("A:f B:new");
  EXPECT_EQ(damaged.code, 3);
  EXPECT_NE(damaged.err.find("'g/deep'"), std::string::npos) << damaged.err;
  EXPECT_EQ(TreeAt(other, "new"), none);
  // What would have made way for a folder of the copy stays too.
  ASSERT_EQ(Code({"mkdir", other, "f"}) + Code({"put", other, "f/g"}, "old"), 0);
  const Tree old = TreeAt(other, "f/g");
  EXPECT_EQ(Copy("A:f B:f --merge").code, 3);
  EXPECT_EQ(TreeAt(other, "f/g"), old);
  EXPECT_EQ(Run({"ls", other, "f"}).out.find("~new~"), std::string::npos);
  EXPECT_EQ(CheckFile(other), "");
  PatchFile32(store, block, kBlockMagic);
  {
    Storage storage(aoStorage::Open(store.c_str(), kWriteFlags, 0));
    Stream folder(storage->OpenStream("f", kWriteFlags));
    ASSERT_TRUE(Stream(folder->OpenStream("empty", kWriteFlags))->Rename("big"));
  }
  EXPECT_EQ(Copy("A:f B:new --merge").code, 2) << "one of two of a name would be lost";
  EXPECT_EQ(TreeAt(other, "new"), none);
}

TEST_F(CopyTool, CompactsInPlaceAndToAnotherFile) {
  Tree all = TreeAt(store, "f");
  for (auto& [path, stream] : all) std::get<1>(stream) = 0;
  ASSERT_EQ(Code({"put", store, "gone"}, Bulk(100000)) + Code({"rm", store, "gone"}), 0);
  const Bytes before = ReadFile(store);
  const std::string out = dir.File("out");
  const std::string told = Run({"compact", store, "--output", out}).out;
  EXPECT_EQ(told, std::to_string(before.size()) + " bytes before, " +
                      std::to_string(ReadFile(out).size()) +
                      " bytes after, 6 streams carried, 4 durations became 0\n");
  EXPECT_LE(ReadFile(out).size() + 100000, before.size());
  EXPECT_EQ(ReadFile(store), before);

  // Only another regular file, and only on request, makes way.
  fs::create_hard_link(store, dir.File("hard"));
  fs::create_symlink(store, dir.File("soft"));
  EXPECT_EQ(Code({"compact", store, "--output", out}), 2);
  for (const std::string& file : {dir.File("hard"), dir.File("soft"), dir.Path(), ""s, "-"s})
    EXPECT_EQ(Code({"compact", store, "--force", "--output", file}), 2) << file;
  EXPECT_EQ(Code({"compact", store, "--output", dir.File("none/out")}), 5);
  EXPECT_EQ(ReadFile(store), before);
  EXPECT_EQ(Code({"compact", store, "--output", out, "--force"}), 0);
  EXPECT_EQ(Code({"compact", store}), 0);
  EXPECT_EQ(ReadFile(store), ReadFile(out));
  EXPECT_EQ(TreeAt(store, "f"), all);
  EXPECT_EQ(CheckFile(store), "");
}

TEST_F(CopyTool, ARebuildThatFailsChangesNothing) {
  const Bytes sound = ReadFile(store);
  PatchFile32(store, ReadImage(sound).Find("f/g/deep")->firstBlock, 0);
  const Bytes damaged = ReadFile(store);
  const Outcome compact = Run({"compact", store});
  EXPECT_EQ(compact.code, 3);
  EXPECT_NE(compact.err.find("'f/g/deep'"), std::string::npos) << compact.err;
  EXPECT_EQ(ReadFile(store), damaged);
  WriteFile(store, sound);
  EXPECT_EQ(Run({"compact", store}, "", "ulimit -f 200; ").code, 5);
  EXPECT_FALSE(fs::exists(store + "_tmp"));
  SetText(store + "_tmp", "perhaps the only whole store");
  EXPECT_EQ(Code({"compact", store}), 2);
  EXPECT_EQ(Text(store + "_tmp"), "perhaps the only whole store");
  EXPECT_EQ(ReadFile(store), sound);
}

TEST_F(CopyTool, UpgradesTheOlderFormAndTellsWhatHidesWhat) {
  FileBuilder builder(FileBuilder::Form::kOlder);
  builder.AddStream(0, "reserved", Pattern(5));
  builder.AddStream(3, "twin", Pattern(6, 2));
  builder.AddStream(4, "twin", Pattern(7, 3));
  WriteFile(store, builder.bytes);
  for (const std::string verb : {"upgrade", "compact"}) {
    const Outcome refused = Run({verb, store});
    EXPECT_EQ(refused.code, 2);
    EXPECT_NE(refused.err.find(" 1 stream is hidden"), std::string::npos) << refused.err;
    EXPECT_NE(refused.err.find("--drop-hidden"), std::string::npos) << refused.err;
    EXPECT_EQ(ReadFile(store), builder.bytes);
  }
  const std::string shown = Cat("twin");
  const Outcome upgrade = Run({"upgrade", store, "--drop-hidden"});
  for (const std::string told : {"2 streams carried", "1 stream of a reserved slot", "1 hidden"})
    EXPECT_NE(upgrade.out.find(told), std::string::npos) << upgrade.out;
  EXPECT_EQ(Cat("twin"), shown);
  const Bytes current = ReadFile(store);
  EXPECT_FALSE(ReadImage(current).older);
  EXPECT_EQ(Run({"upgrade", store}).out, "the store is in the current form already\n");
  EXPECT_EQ(ReadFile(store), current);
}

}  // namespace
}  // namespace aostorage::testing
