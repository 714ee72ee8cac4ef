// The facade: opening, selecting, walking, removing, and what copies share.
#include <functional>

#include "access/access_fixture.h"
#include "support/check_file.h"

namespace aostorage::testing {
namespace {

using Names = std::vector<std::string>;

class Facade : public AccessTest {
 protected:
  /// Root streams of these names; "~" is a slot whose stream was removed.
  void MakeRoots(const Names& names) const {
    const Storage storage = Create();
    std::vector<Stream> streams;
    for (const std::string& name : names)
      streams.emplace_back(storage->CreateStream(name.c_str(), kWriteFlags));
    for (Stream& stream : streams) ASSERT_TRUE(stream->GetName()[0] != '~' || Remove(stream));
  }
  /// How far it is open: 0 not at all, 1 the storage, 2 a stream, 3 a child.
  static int Level(CCompStgFile& of) {
    if (HasChild(of)) return 3;
    if (of.GetStreamName() != nullptr) return 2;
    return of.Mode() != 0 ? 1 : 0;
  }
  void ExpectNothing(CCompStgFile& on, int aboveLevel) const;
};

TEST_F(Facade, OpensAsTheModeSays) {
  struct Target {
    const char* what;
    std::string target;
    std::int64_t size;  // of the file there, -1: none
    const char* opens;  // the modes that open it
    const char* creates;
  };
  const std::string other = dir.File("other");
  const Target targets[] = {{"storage", other, static_cast<std::int64_t>(start.size()), "123", ""},
                            {"no file", other, -1, "2", "2"},
                            {"empty file", other, 0, "2", "2"},
                            {"short head", other, 31, "", ""},
                            {"directory", dir.Path(), -1, "", ""},
                            {"no directory", other + "/x", -1, "", "2"},  // creating was tried
                            {"no path", "", -1, "", ""}};
  for (const Target& row : targets) {
    for (const std::int32_t mode : {-1, 0, 1, 2, 3, 4}) {
      SCOPED_TRACE(std::string(row.what) + ", mode " + std::to_string(mode));
      const auto in = [&](const char* modes) {
        return std::string(modes).find(std::to_string(mode)) != std::string::npos;
      };
      const int opens = in(row.opens) ? 1 : 0;
      std::remove(other.c_str());
      const Bytes bytes(start.begin(), start.begin() + std::max<std::int64_t>(row.size, 0));
      if (row.size >= 0) WriteFile(other, bytes);
      CCompStgFile opening;
      ASSERT_EQ(opening.Open(path.c_str(), kReading), 1);
      ASSERT_EQ(opening.OpenGenericStreams("f", "a"), 1);
      EXPECT_EQ(opening.Open(row.target.c_str(), mode), opens);
      EXPECT_EQ(opening.CreatedNew(), in(row.creates));
      EXPECT_EQ(Level(opening), opens) << "closed first";
      EXPECT_EQ(opening.Mode(), opens * mode);
      EXPECT_TRUE(row.size < 0 || in(row.creates) || ReadFile(other) == bytes);
      EXPECT_EQ(opening.Close(), opens);
      EXPECT_EQ(opening.Open(path.c_str(), kWriting), 1);
      EXPECT_EQ(opening.CreatedNew(), in(row.creates)) << "stays";
    }
  }
  EXPECT_EQ(facade.Open(nullptr, kWriting), 0);
}

void Facade::ExpectNothing(CCompStgFile& on, int aboveLevel) const {
  std::uint8_t data[4] = {};
  aoStream* child = nullptr;
  EXPECT_EQ(0, on.CloseChildStream() + on.GoToBeginningOfGenericChildStream() +
                   on.GoToEndOfGenericChildStream());
  EXPECT_EQ(0U, on.WriteGenericChildOpenedStream(data, 4, 0) | on.ReadGenericChildStream(data, 4) |
                    on.ReadGenericChildStream(data, -1));
  if (aboveLevel == 2) return;
  EXPECT_EQ(0, on.CloseStream() + on.GetStreamSize() + on.RemoveGenericStream() +
                   on.GoToBeginningOfGenericStream() + on.WriteGenericStream(data, 4) +
                   on.WriteGenericChildStream("n", data, 4, 0, 0) + on.SeekForward(0));
  EXPECT_EQ(0U, on.ReadGenericStream(data, 4) | on.ReadGenericStream(data, -1));
  EXPECT_EQ(0, on.ReadTagSeekBack(data, 4));
  EXPECT_EQ(nullptr, on.GetStreamName());
  EXPECT_EQ(nullptr, on.GetNextChildStreamName(child));
}

TEST_F(Facade, GivesZeroForWhatIsNotThere) {
  OpenFresh();
  ExpectNothing(facade, 1);
  ASSERT_EQ(facade.OpenGenericStream("f"), 1);
  ExpectNothing(facade, 2);
  ASSERT_EQ(facade.OpenGenericStreams("f", "a"), 1);
  CCompStgFile copy(facade);
  ASSERT_EQ(facade.CloseStream(), 1);
  ExpectNothing(copy, 1);
  EXPECT_EQ(File(), start);
}

TEST_F(Facade, SelectsStreams) {
  struct Row {
    char operation;  // one stream, two, or create
    const char *name, *child;
    int result;
    std::string generic;
    int level;
  };
  const Row rows[] = {
      {'1', "p", "", 1, "p", 2},  {'1', "n", "", 0, "none", 1},   {'1', nullptr, "", 0, "none", 1},
      {'2', "f", "a", 1, "f", 3}, {'2', "p", "a", 1, "p", 2},     {'2', "p", nullptr, 1, "p", 2},
      {'2', "f", "n", 0, "f", 2}, {'2', "f", nullptr, 0, "f", 2}, {'2', "n", "a", 0, "none", 1},
      {'c', "p", "", 1, "p", 2},  {'c', "n", "", 11, "n", 2},     {'c', "", "", 10, "none", 1}};
  std::int32_t created = 9;
  for (const Row& row : rows) {
    SCOPED_TRACE(&row - rows);
    OpenFresh();
    ASSERT_EQ(facade.OpenGenericStreams("f", "b"), 1);
    int result = 0;
    if (row.operation == '1') result = facade.OpenGenericStream(row.name);
    if (row.operation == '2') result = facade.OpenGenericStreams(row.name, row.child);
    if (row.operation == 'c') {
      result = facade.OpenOrCreateGenericStream(row.name, 1, PackKind(true, 3), created);
      result += 10 * created;
    }
    EXPECT_EQ(result, row.result);
    EXPECT_EQ(Generic(facade), row.generic);
    EXPECT_EQ(Level(facade), row.level);
    EXPECT_EQ(Raw("n").duration, row.result == 11 ? 3 : 0);
  }
  for (const std::int32_t toEnd : {0, 1}) {
    Bytes bytes(100);
    ASSERT_EQ(facade.OpenOrCreateGenericStream("p", toEnd, 0), 1);
    EXPECT_EQ(facade.ReadGenericStream(bytes.data(), 100), toEnd == 0 ? 10U : 0U);
  }
  // For the first the mode only decides in the file, for the others it is in the stream's flags.
  for (const std::int32_t mode : {kReading, kWriting}) {
    OpenFresh(mode);
    const int mayWrite = mode == kWriting ? 1 : 0;
    ASSERT_EQ(facade.OpenGenericStream("p"), 1);
    EXPECT_EQ(facade.WriteGenericStream(Pattern(3).data(), 3), mayWrite);
    ASSERT_EQ(facade.OpenGenericStreams("f", "a"), 1);
    EXPECT_EQ(facade.RemoveGenericStream(), mayWrite);
    EXPECT_EQ(facade.CloseStream(), 1 - mayWrite);
    ASSERT_EQ(facade.OpenNextGenericStream(), 1);
    EXPECT_EQ(facade.RemoveGenericStream(), mayWrite);
  }
}

TEST_F(Facade, WalksTheRootInSlotOrder) {
  const Names all{"1a2b3c4d", "0a2b3c4d", "1a2b3c4",  "1a2b3c4d5", "ffffffff",
                  "FFFFffff", "fffffffe", "g1234567", "1234567g",  "0x123456",
                  " 1234567", "-1234567", "1A2B3C4D", "10000000",  "value"};
  struct Row {
    Names slots, names, numbered;
  };
  const Row rows[] = {{all, all, {"1a2b3c4d", "fffffffe", "1A2B3C4D", "10000000"}},
                      {{}, {""}, {}},
                      {{"~", "12345678"}, {"", "12345678"}, {"12345678"}},
                      {{"12345678", "x", "~", "22345678"}, {"12345678", "x"}, {"12345678"}}};
  for (const Row& row : rows) {
    MakeRoots(row.slots);
    ASSERT_EQ(facade.Open(path.c_str(), kReading), 1);
    for (int round = 0; round < 2; ++round) {
      Names names, opened, numbered;
      while (const char* name = facade.GetNextStreamName(kReadFlags)) names.emplace_back(name);
      EXPECT_EQ(names, row.names);
      EXPECT_EQ(facade.GetNextStreamName(kReadFlags), nullptr);
      EXPECT_EQ(Generic(facade), row.names.back()) << "stays on the last slot";
      EXPECT_EQ(facade.CloseStream(), 1);
      while (facade.OpenNextGenericStream() == 1) opened.push_back(Generic(facade));
      EXPECT_EQ(opened, row.names);
      EXPECT_EQ(Level(facade), 1) << "the end closes";
      while (facade.OpenNextStream() == 1) numbered.push_back(Generic(facade));
      EXPECT_EQ(numbered, row.numbered);
      EXPECT_EQ(Level(facade), 1);
    }
    facade.Close();
  }
  OpenFresh();
  ASSERT_EQ(facade.OpenGenericStreams("p", ""), 1);
  EXPECT_STREQ(facade.GetNextStreamName(kReadFlags), "f") << "goes on from the open stream";
  ASSERT_EQ(facade.OpenGenericStreams("f", "a"), 1);
  EXPECT_EQ(facade.GetNextStreamName(kReadFlags), nullptr);
  EXPECT_TRUE(HasChild(facade)) << "walks leave the child alone";
  EXPECT_EQ(facade.OpenNextGenericStream(), 0);
  EXPECT_EQ(facade.CloseChildStream(), 0);
}

TEST_F(Facade, WalksTheChildrenOfAFolder) {
  OpenFresh();
  ASSERT_EQ(facade.OpenOrCreateGenericStream("g", 0, kFolderKind), 1);
  ASSERT_EQ(facade.WriteGenericChildStream("x", nullptr, 0, 0, 0), 1);
  ASSERT_EQ(facade.OpenGenericStream("f"), 1);
  ASSERT_EQ(facade.WriteGenericChildStream("c", nullptr, 0, 0, 0), 1);
  ASSERT_EQ(facade.RemoveGenericChildStream("f", "sub"), 1);
  ASSERT_EQ(facade.OpenGenericStreams("f", "b"), 1);
  aoStream* child = nullptr;
  const auto next = [&] {
    const std::string name = facade.GetNextChildStreamName(child);
    return (child != nullptr ? child->GetName() : "end of ") + name;
  };
  for (const char* expected : {"aa", "bb", "cc", "end of c", "aa", "bb"})
    EXPECT_EQ(next(), expected);
  // The caller may end the child and put another open stream in its place.
  child->Release();
  const Storage other = Open();
  child = other->OpenStream("p", kReadFlags);
  EXPECT_EQ(next(), "cc") << "goes on where it was";
  EXPECT_EQ(Users(*other, "p"), 0);
  ASSERT_EQ(facade.OpenGenericStream("f"), 1);
  EXPECT_EQ(next(), "aa") << "another open of the folder begins anew";
  EXPECT_STREQ(facade.GetNextStreamName(kReadFlags), "g");
  EXPECT_EQ(next(), "xx") << "and so does a step to another";
  aoStream* const held = child;
  ASSERT_EQ(facade.OpenGenericStream("p"), 1);
  EXPECT_EQ(facade.GetNextChildStreamName(child), nullptr);
  EXPECT_EQ(child, held) << "left as it was";
  EXPECT_EQ(facade.Close(), 1);
  child->Release();  // behind its folder and its storage
}

TEST_F(Facade, ClosesWhatARemovalMayTakeAway) {
  for (const char* child : {"a", "n", static_cast<const char*>(nullptr)}) {
    OpenFresh();
    ASSERT_EQ(facade.OpenGenericStreams("f", "a"), 1);
    EXPECT_EQ(facade.RemoveGenericChildStream("f", child), child == nullptr ? 0 : 1);
    EXPECT_EQ(Generic(facade), "none");
    EXPECT_FALSE(HasChild(facade));
    EXPECT_EQ(facade.RemoveGenericChildStream("p", "a"), 0);
    EXPECT_EQ(Generic(facade), "p");
  }
  // A folder that goes while its child is open here leaves a child that is of no use, and no crash.
  ASSERT_EQ(facade.OpenGenericStreams("f", "a"), 1);
  EXPECT_EQ(facade.RemoveGenericStream(), 1);
  EXPECT_EQ(facade.WriteGenericChildOpenedStream(Pattern(4).data(), 4, 0), 0U);
  EXPECT_EQ(facade.CloseStream(), 0) << "a child alone does not count";
  EXPECT_EQ("", CheckFile(path));
}

// What is shared is released once, by whichever closes it.
TEST_F(Facade, CopiesLoseWhatOneOfThemCloses) {
  using One = CCompStgFile&;
  struct Row {
    const char* what;
    std::function<void(One)> run;
    int level, otherLevel;
  };
  const Row rows[] = {
      {"close", [](One one) { one.Close(); }, 0, 0},
      {"close stream", [](One one) { one.CloseStream(); }, 1, 1},
      {"close child", [](One one) { one.CloseChildStream(); }, 2, 2},
      {"remove", [](One one) { one.RemoveGenericStream(); }, 1, 1},
      {"select", [](One one) { one.OpenGenericStreams("f", "a"); }, 3, 1},
      {"end of a walk", [](One one) { one.OpenNextGenericStream(); }, 1, 1},
      {"failed open", [](One one) { one.Open("", 1); }, 0, 0},
      {"a copy ends", [](One one) { const CCompStgFile third(one); }, 0, 0},
      {"itself", [](One one) { one = static_cast<const CCompStgFile&>(one); }, 3, 3},
      {"given away", [](One one) { one = CCompStgFile(); }, 0, 3}};
  for (const Row& row : rows) {
    for (const bool swapped : {false, true}) {
      SCOPED_TRACE(std::string(row.what) + (swapped ? ", by the copy" : ""));
      WriteFile(path, start);
      const auto descriptors = OpenDescriptors();
      CCompStgFile source, copy;
      ASSERT_EQ(copy.Open(path.c_str(), kReading), 1);
      ASSERT_EQ(copy.OpenGenericStreams("f", "a"), 1);
      ASSERT_EQ(source.Open(path.c_str(), kWriting), 1);
      ASSERT_EQ(source.OpenGenericStreams("f", "a"), 1);
      copy = source;
      EXPECT_EQ(OpenDescriptors(), descriptors + 1) << "what the copy alone had is closed";
      CCompStgFile& one = swapped ? copy : source;
      CCompStgFile& other = swapped ? source : copy;
      row.run(one);
      EXPECT_EQ(Level(one), row.level);
      EXPECT_EQ(Level(other), row.otherLevel);
      // The first to close takes with it what the other has opened since.
      other.OpenGenericStream("p");
      EXPECT_EQ(one.Close(), row.level > 0 ? 1 : 0);
      EXPECT_TRUE(row.level == 0 || Level(other) == 0);
      EXPECT_EQ(one.Open(path.c_str(), kReading), 1);
    }
  }
}

}  // namespace
}  // namespace aostorage::testing
