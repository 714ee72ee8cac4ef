// Folder copies: what is merged, what is refused, and what failures leave.
#include <cerrno>
#include <functional>

#include "folder/storage_fixture.h"
#include "support/allocations.h"
#include "support/check_file.h"
#include "support/tree_text.h"

namespace aostorage::testing {
namespace {

class FolderCopy : public StorageFileTest {
 protected:
  // Copies "s" of this storage onto "d" of the same or of another one.
  bool Copy(aoStorage& from, aoStorage& to, const char* source = "s", const char* goal = "d") {
    const Stream s = OpenPath(from, source), d = OpenPath(to, goal);
    return s && d && s->CopyFolder(d.get());
  }
  const std::string otherPath = dir.File("other");
};

struct MergeRow {
  const char* what;
  TreeText source, goal, expected;
  bool result;
};

const MergeRow kMerges[] = {
    {"an empty folder", {}, {"a=1"}, {"a=1"}, true},
    {"only vacated slots", {"a=1", "-s/a"}, {"b/", "b/x=1"}, {"b/", "b/x=1"}, true},
    {"slots in order, without gaps",
     {"c=3", "gone=0", "a=1", "f/", "b=", "-s/gone", "-s/b"},
     {},
     {"c=3", "a=1", "f/"},
     true},
    {"the first vacated slot is taken",
     {"new=n", "more=m"},
     {"x=1", "y=2", "z=3", "-d/y"},
     {"x=1", "new=n", "z=3", "more=m"},
     true},
    {"same kinds merge, what only the goal has stays",
     {"f/", "f/x=new", "f/g/", "f/g/deep=1", "p=ab"},
     {"p=longer than before", "f/", "f/own=1", "f/x=older and longer", "q=2"},
     {"p=ab", "f/", "f/own=1", "f/x=new", "f/g/", "f/g/deep=1", "q=2"},
     true},
    {"a plain stream over a folder, a folder over a plain stream",
     {"a=now plain", "b/", "b/x=1"},
     {"a/", "a/in=1", "a/g/", "a/g/deep=2", "b=was plain", "c=3"},
     {"a=now plain", "b/", "b/x=1", "c=3"},
     true},
    {"an empty plain child is told, and the walk goes on",
     {"e=", "f/", "f/e=", "f/after=1", "z=2"},
     {"e=old"},
     {"e=", "f/", "f/e=", "f/after=1", "z=2"},
     false},
};

TEST_F(FolderCopy, MergesIntoTheSameStorageAndIntoAnother) {
  for (const MergeRow& row : kMerges) {
    for (const bool across : {false, true}) {
      SCOPED_TRACE(std::string(row.what) + (across ? ", across" : ", within"));
      const Storage storage = Create(across ? 16 : 0);
      const Storage other(across ? aoStorage::Create(otherPath.c_str(), 0, 0) : nullptr);
      aoStorage& to = across ? *other : *storage;
      const auto under = [](const char* folder, const TreeText& lines) {
        TreeText all{std::string(folder) + "/"};
        for (const std::string& line : lines)
          all.push_back(line[0] == '-' ? line : std::string(folder) + "/" + line);
        return all;
      };
      Plant(*storage, under("s", row.source));
      Plant(to, under("d", row.goal));
      const TreeText before = TreeOf(Image(), "s");
      EXPECT_EQ(Copy(*storage, to), row.result);
      const RawImage after = ReadImage(ReadFile(across ? otherPath : path));
      EXPECT_EQ(TreeOf(after, "d"), row.expected);
      EXPECT_EQ(CheckFile(across ? otherPath : path), "");
      EXPECT_EQ(TreeOf(Image(), "s"), before);
      // Nothing stays counted as open.
      for (const std::string& line : row.expected) {
        if (line.find('/') < line.size() - 1) continue;
        const Stream parent = OpenPath(to, "d");
        EXPECT_TRUE(
            Got(parent->OpenStream(line.substr(0, line.find_first_of("/=")).c_str(), kExclusive)));
      }
    }
  }
}

TEST_F(FolderCopy, CarriesNoDurationAndKeepsThoseOfTheGoal) {
  const Storage storage = Create();
  const Stream s(storage->CreateStream("s", kFolderKind, kWriteFlags));
  const Stream d(storage->CreateStream("d", kFolderKind, kWriteFlags));
  for (const char* name : {"new", "old"}) {
    const Stream child(s->CreateStream(name, PackKind(false, 7), kWriteFlags));
    child->Write("x", 1);
  }
  ASSERT_TRUE(Got(d->CreateStream("old", PackKind(false, 9), kWriteFlags)));
  ASSERT_TRUE(s->CopyFolder(d.get()));
  EXPECT_EQ(Raw("d/new").duration, 0);
  EXPECT_EQ(Raw("d/old").duration, 9);
}

TEST_F(FolderCopy, APlainStreamIsCopiedAsAWhole) {
  const Storage storage = Create();
  Plant(*storage, {"s=short", "d=something longer", "empty="});
  EXPECT_TRUE(Copy(*storage, *storage));
  EXPECT_EQ(TreeOf(Image()), (TreeText{"s=short", "d=short", "empty="}));
  EXPECT_FALSE(Copy(*storage, *storage, "empty"));
  EXPECT_EQ(Raw("d").length, 0U);
}

TEST_F(FolderCopy, RefusesWhatWouldRunIntoItselfAndWritesNothing) {
  const Storage storage = Create();
  Plant(*storage, {"s/", "s/in/", "s/in/x=1", "s/p=plain", "p=root"});
  const Storage second = Open();
  const Bytes before = File();
  const struct {
    const char *source, *goal;
  } rows[] = {{"s", "s"}, {"s", "s/in"}, {"s/in", "s"}, {"s/in/x", "s/in/x"},
              {"p", "s"}, {"s/p", "s"},  {"p", "p"}};
  for (const auto& row : rows) {
    for (aoStorage* to : {storage.get(), second.get()}) {
      SCOPED_TRACE(std::string(row.source) + " to " + row.goal);
      EXPECT_FALSE(Copy(*storage, *to, row.source, row.goal));
      EXPECT_EQ(File(), before);
    }
  }
  const Stream s = OpenPath(*storage, "s");
  EXPECT_FALSE(s->CopyFolder(nullptr));
  EXPECT_FALSE(Copy(*storage, *storage, "s", "p"));  // children have no place in a plain stream
  EXPECT_EQ(File(), before);
}

// A folder that was opened by its place in the file does not know the folders around it.
TEST_F(FolderCopy, RefusesFoldersOfOneFileThatMayLieInsideEachOtherUnseen) {
  const Storage storage = Create();
  Plant(*storage, {"s/", "s/a=1", "s/in/", "s/in/a/", "s/in/x=2"});
  const auto byPlace = [&](const char* parent, const char* name) {
    tag_aoStream header;
    tag_aoStreamOffset place;
    EXPECT_TRUE(OpenPath(*storage, parent)->FindStream(name, header, place));
    return Stream(storage->OpenStreamByOffset(place, name, kWriteFlags));
  };
  const Stream s = OpenPath(*storage, "s"), in = byPlace("s", "in");
  const Stream below(in->OpenStream("a", kWriteFlags));
  const Bytes before = File();
  EXPECT_FALSE(s->CopyFolder(below.get()));
  EXPECT_FALSE(in->CopyFolder(s.get()));  // would replace the folder that it reads
  EXPECT_EQ(File(), before);
  const Storage other(aoStorage::Create(otherPath.c_str(), 0, 0));
  Plant(*other, {"d/"});
  EXPECT_TRUE(in->CopyFolder(OpenPath(*other, "d").get()));
}

TEST_F(FolderCopy, GoesOnBehindWhatItCannotOpen) {
  const Storage storage = Create();
  Plant(*storage, {"s/", "s/a=1", "s/held=2", "s/f/", "s/f/x=1", "s/z=3", "d/", "d/z=old"});
  const Stream s = OpenPath(*storage, "s"), d = OpenPath(*storage, "d");
  {
    const Stream held(s->OpenStream("held", kExclusive));
    EXPECT_FALSE(s->CopyFolder(d.get()));
    EXPECT_EQ(TreeOf(Image(), "d"), (TreeText{"z=3", "a=1", "f/", "f/x=1"}));
  }
  const Stream held(d->OpenStream("f", kExclusive));
  EXPECT_FALSE(s->CopyFolder(d.get()));
  EXPECT_EQ(TreeOf(Image(), "d"), (TreeText{"z=3", "a=1", "f/", "f/x=1", "held=2"}));
}

TEST_F(FolderCopy, TakesFromADamagedSourceWhatIsWhole) {
  const Storage good = Create();
  Plant(*good, {"s/", "s/a=1", "s/bad=22", "s/f/", "s/f/x=1", "s/z=3", "d/"});
  const Bytes sound = File();
  const RawStream bad = Raw("s/bad"), inner = Raw("s/f");
  const struct {
    const char* what;
    std::size_t offset;
    std::uint32_t value;
    TreeText expected;
  } rows[] = {
      {"magic of a slot", bad.recordOffset, 0, {"a=1", "f/", "f/x=1", "z=3"}},
      {"magic of a block", bad.firstBlock, 1, {"a=1", "bad=", "f/", "f/x=1", "z=3"}},
      {"length above the chain", bad.recordOffset + 68U, 50, {"a=1", "bad=", "f/", "f/x=1", "z=3"}},
      {"length above the file",
       bad.recordOffset + 68U,
       0x7FFFFFFF,
       {"a=1", "bad=", "f/", "f/x=1", "z=3"}},
      {"a folder's block", inner.firstBlock, 1, {"a=1", "bad=22", "f/", "z=3"}},
      {"a folder in itself",
       inner.recordOffset + 76U,
       Raw("s").firstBlock,
       {"a=1", "bad=22", "z=3"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    Bytes bytes = sound;
    Put32(bytes, row.offset, row.value);
    const Storage storage = OpenBytes(bytes);
    const Storage other(aoStorage::Create(otherPath.c_str(), 0, 0));
    Plant(*other, {"d/"});
    EXPECT_FALSE(Copy(*storage, *other));
    EXPECT_EQ(TreeOf(ReadImage(ReadFile(otherPath)), "d"), row.expected);
    EXPECT_EQ(CheckFile(otherPath), "");
    EXPECT_EQ(File(), bytes);
  }
}

// Each level holds two records of the one folder below: 2^30 ways down.
TEST_F(FolderCopy, OfOneChainUnderManyNamesEndsSoon) {
  FileBuilder builder;
  std::uint32_t below = 0;
  for (int level = 0; level < 30; ++level) {
    const auto chain = static_cast<std::uint32_t>(builder.bytes.size());
    builder.AddChain(FolderPayload(
        {StreamRecord("l", below != 0, 84, below), StreamRecord("r", below != 0, 84, below)}));
    below = chain;
  }
  builder.AddStream(6, "s", FolderPayload({StreamRecord("t", true, 84, below)}), {}, true);
  const Storage storage = OpenBytes(builder.bytes);
  const Storage other(aoStorage::Create(otherPath.c_str(), 0, 0));
  Plant(*other, {"d/"});
  EXPECT_FALSE(Copy(*storage, *other));
  EXPECT_LT(ReadFile(otherPath).size(), 1000000U);
  Plant(*storage, {"d/"});
  EXPECT_FALSE(Copy(*storage, *storage));  // where each copy makes the source's file longer
  EXPECT_LT(File().size(), 1000000U);
}

TEST_F(FolderCopy, KeepsTheGoalReadableWhateverFails) {
  const TreeText source{"s/", "s/a=1", "s/f/", "s/f/x=22", "s/f/y=3", "s/k=4"};
  const TreeText goal{"d/", "d/a=old", "d/f=plain", "d/k/", "d/k/x=1"};
  { Plant(*Create(), source); }
  const std::size_t sourceSize = source.size() - 1;
  for (const bool memory : {false, true}) {
    bool fired = true;
    for (std::size_t k = 1; fired; ++k) {
      SCOPED_TRACE((memory ? "allocation " : "call ") + std::to_string(k));
      const Storage storage = Open();
      Storage other(aoStorage::Create(otherPath.c_str(), 0, 0));
      Plant(*other, goal);
      bool result = false;
      if (memory) {
        const Stream s = OpenPath(*storage, "s"), d = OpenPath(*other, "d");
        ClearLastError();
        const FailAllocation fault(k);
        result = s->CopyFolder(d.get());
        fired = fault.Fired();
        ASSERT_TRUE(result || LastError().code == ErrorCode::kNoMemory) << LastError().text;
      } else {
        const Stream s = OpenPath(*storage, "s"), d = OpenPath(*other, "d");
        Watch watch;
        watch.FailAt(k, kAnyCall, EIO);
        ClearLastError();
        result = s->CopyFolder(d.get());
        fired = watch.FaultFired();
        ASSERT_TRUE(result || LastError().systemError == EIO) << LastError().text;
      }
      const std::string violations = CheckFile(otherPath, Rules::kAfterFault);
      ASSERT_EQ(violations, "");
      if (result) {
        ASSERT_EQ(TreeOf(ReadImage(ReadFile(otherPath)), "d").size(), sourceSize);
      }
      ASSERT_TRUE(fired || result);
      // The same objects can do it over.
      OpenPath(*other, "d")->ClearFolder();
      ASSERT_TRUE(Copy(*storage, *other));
      ASSERT_EQ(TreeOf(ReadImage(ReadFile(otherPath)), "d").size(), sourceSize);
    }
  }
}

}  // namespace
}  // namespace aostorage::testing
