// Folder copies: what is refused, and what a damaged source gives. What is merged, the history of
// the whole interface tells; what failures leave, the faults of a life.
#include "folder/storage_fixture.h"
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

}  // namespace
}  // namespace aostorage::testing
