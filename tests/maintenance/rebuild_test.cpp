// The rebuild: what the new file holds, what is refused, and what stays of the old one.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <functional>

#include "maintenance/rebuild_fixture.h"

namespace aostorage::testing {
namespace {

// The bytes must be those that plain calls in the same order leave, whatever stood between.
TEST_F(Rebuild, WritesTheFileThatPlainCallsWouldMake) {
  TreeText lines;
  for (int i = 0; i < 70; ++i) lines.push_back("r" + std::to_string(i) + "=value");
  for (const char* line :
       {"f/", "f/empty=", "f/a=1", "f/g/", "f/g/x=deep", "f/z=last", "none/", "e="}) {
    lines.emplace_back(line);
  }
  {
    const Storage storage = Create(64);
    Plant(*storage, lines);
    Plant(*storage, {"gone/", "gone/x=1", "f/gone=2", "-gone", "-f/gone", "-r3"});
    const Stream long_(storage->CreateStreamFast("fast", PackKind(false, 5), kWriteFlags));
    for (int i = 0; i < 50; ++i) {  // in many blocks
      long_->Write(Pattern(200).data(), 200);
      const Stream other(storage->OpenStream("r1", kWriteFlags));
      other->Seek(0, 1);
      other->Write("more", 4);
    }
  }
  {  // larger than what is gathered in memory, and more behind it
    const Storage storage = Open();
    Plant(*storage, {"big=" + std::string(5000000, 'b'), "behind=" + std::string(2000000, 'c')});
    for (char c = 'a'; c <= 'z'; ++c)  // small enough to be gathered, across its wrap
      Plant(*storage, {std::string("f/m") + c + "=" + std::string(90001, c)});
  }
  TreeText order;  // as the cookie iteration has it
  {
    const Storage storage = Open();
    StreamCookie cookie = 0;
    for (Stream s(storage->OpenStreamFirst(cookie, kReadFlags)); s;
         s.reset(storage->OpenStreamNext(cookie, kReadFlags))) {
      order.emplace_back(s->GetName());
    }
  }
  const RawImage before = Image();
  {
    const Storage plain(aoStorage::Create(dir.File("plain").c_str(), 0, 0));
    for (const std::string& name : order) {
      const RawStream* stream = before.Find(name);
      ASSERT_TRUE(stream);
      const Bytes bytes = stream->Value();
      if (stream->kind == 0) {
        Plant(*plain, {name + "=" + std::string(bytes.begin(), bytes.end())});
      } else {
        TreeText below{name + "/"};
        for (const std::string& line : TreeOf(before, name)) below.push_back(name + "/" + line);
        Plant(*plain, below);
      }
    }
  }
  std::vector<RebuildReport> reports;
  ASSERT_EQ(aoStorage::Recreate(path.c_str(),
                                [&](const RebuildReport& report) {
                                  reports.push_back(report);
                                  return true;
                                }),
            1);
  EXPECT_EQ(File(), ReadFile(dir.File("plain")));
  EXPECT_FALSE(Exists(path + "_tmp"));
  const RawImage after = Image();
  EXPECT_EQ(after.orphanedBytes, 0U);
  EXPECT_EQ(after.directories.size(), 2U);

  ASSERT_EQ(reports.size(), after.streams.size() + 1);
  EXPECT_EQ(reports.front().reserved, 1U);
  EXPECT_EQ(reports.back().streams, after.streams.size());
  EXPECT_EQ(reports.back().durations, 1U);
  EXPECT_GT(reports.back().bytes, 7000000U);
  EXPECT_LT(reports.back().bytes, File().size());
  const Storage storage = Open();
  EXPECT_FALSE(Got(storage->OpenStreamFast("fast", kReadFlags)));
  EXPECT_TRUE(Got(storage->OpenStream("fast", kReadFlags)));
}

TEST_F(Rebuild, FollowsTheSortingOfItsSource) {
  Storage storage = Create();
  Plant(*storage, {"b=2", "c=3", "a=1"});
  storage->EnableSorting(1, 1);
  ASSERT_TRUE(Recreate(storage, path));
  EXPECT_EQ(TreeOf(Image()), (TreeText{"c=3", "b=2", "a=1"}));
}

TEST_F(Rebuild, ToAnotherPathLeavesTheSourceAlone) {
  { Plant(*Create(), {"a=1", "gone=2", "-gone"}); }
  const Bytes before = File();
  const std::string goal = dir.File("goal");
  for (const bool exists : {false, true}) {
    if (exists) WriteFile(goal, Bytes(100000, 7));
    Storage storage = Open();
    ASSERT_TRUE(Recreate(storage, goal));
    EXPECT_EQ(storage->GetPath(), goal);
    EXPECT_TRUE(Got(storage->CreateStream("later", kWriteFlags)));  // open for writing
    EXPECT_EQ(File(), before);
    EXPECT_EQ(TreeOf(ReadImage(ReadFile(goal))), (TreeText{"a=1", "later="}));
  }
}

TEST_F(Rebuild, LeavesBehindWhatTheMapDoesNotHave) {
  FileBuilder builder;
  builder.AddStream(6, "twice", Pattern(10));
  builder.AddStream(7, "twice", Pattern(20));
  builder.AddStream(8, "dropped", Pattern(30));
  Storage storage = OpenBytes(builder.bytes);
  ASSERT_TRUE(storage->RemoveStream("dropped"));
  RebuildReport first;
  const RebuildProgress giveUp = [&](const RebuildReport& report) {
    first = report;
    return false;
  };
  ASSERT_EQ(aoStorage::Recreate(storage.get(), path.c_str(), giveUp), storage.get());
  EXPECT_EQ(first.hidden, 2U);
  EXPECT_EQ(File(), builder.bytes);
  ASSERT_TRUE(Recreate(storage, path));
  const RawImage image = Image();
  ASSERT_EQ(image.streams.size(), 1U);
  EXPECT_EQ(image.Find("twice")->Value(), Pattern(20));
}

// --- What stays of the place

TEST_F(Rebuild, KeepsModeOwnerAndLinks) {
  { Plant(*Create(), {"a=1"}); }
  ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
  const bool mayGive = ::chown(path.c_str(), 12345, 54321) == 0;
  const std::string link = dir.File("link"), further = dir.File("sub");
  ASSERT_EQ(::mkdir(further.c_str(), 0777), 0);
  ASSERT_EQ(::symlink("sub/second", link.c_str()), 0);
  ASSERT_EQ(::symlink("../storage", (further + "/second").c_str()), 0);
  const struct stat old = StatusOf(path);
  ASSERT_EQ(aoStorage::Recreate(link.c_str()), 1);
  const struct stat now = StatusOf(path);
  EXPECT_NE(now.st_ino, old.st_ino);  // in one step, not copied
  EXPECT_EQ(now.st_mode & 07777U, 0640U);
  if (mayGive) {
    EXPECT_EQ(now.st_uid, 12345U);
    EXPECT_EQ(now.st_gid, 54321U);
  }
  EXPECT_TRUE(S_ISLNK(StatusOf(link).st_mode));
  EXPECT_FALSE(Exists(link + "_tmp"));
  EXPECT_EQ(TreeOf(Image()), (TreeText{"a=1"}));

  const std::string dangling = dir.File("dangling"), born = dir.File("born");
  ASSERT_EQ(::symlink("born", dangling.c_str()), 0);
  Storage storage = Open();
  ASSERT_TRUE(Recreate(storage, dangling));
  EXPECT_TRUE(S_ISLNK(StatusOf(dangling).st_mode));
  EXPECT_TRUE(S_ISREG(StatusOf(born).st_mode));
}

TEST_F(Rebuild, OfAFileWithTwoNamesReplacesWhatBothLeadTo) {
  { Plant(*Create(), {"a=1", "gone=2", "-gone"}); }
  const std::string second = dir.File("second");
  ASSERT_EQ(::link(path.c_str(), second.c_str()), 0);
  Watch watch;
  ASSERT_EQ(aoStorage::Recreate(path.c_str()), 1);
  EXPECT_EQ(watch.Count(Call::kRename), 0U);
  EXPECT_GE(watch.Count(Call::kCopy), 1U);
  EXPECT_EQ(StatusOf(path).st_ino, StatusOf(second).st_ino);
  EXPECT_EQ(ReadFile(second), File());
  EXPECT_EQ(TreeOf(Image()), (TreeText{"a=1"}));
  EXPECT_EQ(Image().orphanedBytes, 0U);
  EXPECT_FALSE(Exists(path + "_tmp"));
}

// What another storage object knows of the blocks would be wrong in the copied content.
TEST_F(Rebuild, DoesNotCopyOverAFileThatAnotherObjectHasOpen) {
  { Plant(*Create(), {"gone=0", "a=1", "-gone"}); }
  ASSERT_EQ(::link(path.c_str(), dir.File("second").c_str()), 0);
  const Bytes before = File();
  opened = Open();
  EXPECT_EQ(aoStorage::Recreate(path.c_str()), 0);
  EXPECT_EQ(File(), before);
  EXPECT_FALSE(Exists(path + "_tmp"));
  EXPECT_TRUE(Recreate(opened, path));
}

TEST_F(Rebuild, WritesOverAStaleTemporaryFileAndNothingBehindIt) {
  { Plant(*Create(), {"a=1"}); }
  const std::string stale = path + "_tmp", other = dir.File("precious");
  WriteFile(other, Bytes(99999, 5));
  ASSERT_EQ(::link(other.c_str(), stale.c_str()), 0);
  ASSERT_EQ(aoStorage::Recreate(path.c_str()), 1);
  EXPECT_EQ(ReadFile(other), Bytes(99999, 5));
  EXPECT_EQ(TreeOf(Image()), (TreeText{"a=1"}));
  EXPECT_FALSE(Exists(stale));
}

// --- Refusals: the old file whole, the storage still open, no file left

struct Refusal {
  const char* what;
  std::function<void(Rebuild&)> arrange;  // may change the path to rebuild to
  bool byPath = true;                     // the second form refuses it too
};

const Refusal kRefusals[] = {
    {"a folder at the path", [](Rebuild& t) { t.target = t.Directory("folder"); }},
    {"a pipe at the path",
     [](Rebuild& t) { ASSERT_EQ(::mkfifo((t.target = t.dir.File("pipe")).c_str(), 0666), 0); }},
    {"links in a circle",
     [](Rebuild& t) {
       t.target = t.dir.File("loop");
       ASSERT_EQ(::symlink("loop", t.target.c_str()), 0);
     }},
    {"no directory", [](Rebuild& t) { t.target = t.dir.File("absent/storage"); }},
    {"a folder at the temporary path", [](Rebuild& t) { t.Directory("storage_tmp"); }},
    {"a link at the temporary path",
     [](Rebuild& t) { ASSERT_EQ(::symlink("other", (t.path + "_tmp").c_str()), 0); }},
    {"a pipe at the temporary path",
     [](Rebuild& t) { ASSERT_EQ(::mkfifo((t.path + "_tmp").c_str(), 0666), 0); }},
    {"the source at the temporary path",
     [](Rebuild& t) { ASSERT_EQ(::link(t.path.c_str(), (t.path + "_tmp").c_str()), 0); }},
    {"a path too long", [](Rebuild& t) { t.target = t.path + std::string(250, 'x'); }},
    {"an empty path", [](Rebuild& t) { t.target.clear(); }},
    {"a stream held by somebody",
     [](Rebuild& t) { t.held.reset(t.opened->OpenStream("a", kExclusive)); }, false},
    {"a stream made through another handle", [](Rebuild& t) { Plant(*t.Open(), {"unseen=1"}); },
     false},
    {"a stream renamed through another handle",
     [](Rebuild& t) { ASSERT_TRUE(OpenPath(*t.Open(), "a")->Rename("b")); }, false},
    {"a stream removed through another handle", [](Rebuild& t) { Plant(*t.Open(), {"-a"}); },
     false},
    {"a map that was not read", [](Rebuild& t) { t.opened = t.OpenFast(); }, false},
    {"a directory chain that breaks off", [](Rebuild& t) { t.Patch(32 + 8, 0x100000); }},
    {"a damaged slot", [](Rebuild& t) { t.Patch(t.Raw("a").recordOffset, 0); }},
    {"a damaged block", [](Rebuild& t) { t.Patch(t.Raw("a").firstBlock, 0); }},
    {"a length above the chain", [](Rebuild& t) { t.Patch(t.Raw("a").recordOffset + 68U, 9); }},
    {"a damaged child", [](Rebuild& t) { t.Patch(t.Raw("f/x").recordOffset, 0); }},
    {"a damaged block of a child", [](Rebuild& t) { t.Patch(t.Raw("f/g/y").firstBlock, 0); }},
    {"a folder's chain that ends too soon",
     [](Rebuild& t) { t.Patch(t.Raw("f").blocks[0].offset + 16, 0); }},
    {"a count word above the slots", [](Rebuild& t) { t.Patch(t.Raw("f").firstBlock + 20, 3); }},
    {"a negative count word", [](Rebuild& t) { t.Patch(t.Raw("f").firstBlock + 20, 0x80000001); }},
    {"a folder without a length that cannot be read",
     [](Rebuild& t) {
       ASSERT_TRUE(OpenPath(*t.opened, "f/g")->Erase());
       t.Patch(t.Raw("f/g").firstBlock, 0);
     }},
    {"a name that a later slot has on disk",
     [](Rebuild& t) { ASSERT_TRUE(OpenPath(*t.opened, "a")->Rename("big")); }, false},
    {"a folder in itself",
     [](Rebuild& t) { t.Patch(t.Raw("f/g").recordOffset + 76U, t.Raw("f").firstBlock); }},
    {"one chain in two streams, with more bytes than the file has",
     [](Rebuild& t) {
       t.Patch(t.Raw("a").recordOffset + 76U, t.Raw("big").firstBlock);
       t.Patch(t.Raw("a").recordOffset + 68U, t.Raw("big").length);
     }},
};

TEST_F(Rebuild, RefusesWhatItCannotCarryWholeAndLeavesEverything) {
  {
    Plant(*Create(), {"a=1", "f/", "f/x=22", "f/g/", "f/g/y=3", "big=" + std::string(20000, 'b')});
  }
  const Bytes sound = File();
  for (const Refusal& row : kRefusals) {
    SCOPED_TRACE(row.what);
    opened = OpenBytes(sound);
    target = path;
    row.arrange(*this);
    const Bytes before = File();
    const std::vector<std::string> names = NamesInDirectory();
    EXPECT_EQ(aoStorage::Recreate(opened.get(), target.c_str()), opened.get());
    EXPECT_NE(LastError().code, ErrorCode::kNone);
    if (row.byPath) {
      EXPECT_EQ(aoStorage::Recreate(target.c_str()), 0);
    }
    EXPECT_EQ(File(), before);
    EXPECT_EQ(NamesInDirectory(), names);
    EXPECT_TRUE(Got(opened->CreateStream("still open", kWriteFlags)));
    Clean();
  }
  EXPECT_EQ(aoStorage::Recreate(static_cast<aoStorage*>(nullptr), path.c_str()), nullptr);
  EXPECT_EQ(aoStorage::Recreate(static_cast<const char*>(nullptr)), 0);
  opened = OpenBytes(sound);
  EXPECT_EQ(aoStorage::Recreate(opened.get(), nullptr), opened.get());
}

TEST_F(Rebuild, DoesNotReplaceWhatOthersChangedMeanwhile) {
  { Plant(*Create(), {"a=1"}); }
  const Bytes sound = File();
  const std::function<void()> changes[] = {
      [&] { Plant(*Open(), {"b=2"}); },  // through another storage object
      [&] { OpenPath(*opened, "a")->Write("9", 1); },
      [&] { opened->RemoveStream("a"); },
      [&] { aoStorage::Recreate(path.c_str()); },  // takes the temporary file away, too
      [&] {  // in another one; in the same tick of the clock, perhaps
        PatchFile32(path, Raw("a").firstBlock + 12, 5);
        std::filesystem::last_write_time(
            path, std::filesystem::last_write_time(path) + std::chrono::seconds(2));
      },
      [&] {  // the path leads elsewhere
        WriteFile(dir.File("new"), Bytes(100, 1));
        std::filesystem::rename(dir.File("new"), path);
      },
  };
  for (const auto& change : changes) {
    opened = OpenBytes(sound);
    Bytes changed;
    const RebuildProgress meanwhile = [&](const RebuildReport& report) {
      if (report.streams == 1) {
        change();
        changed = File();
      }
      return true;
    };
    EXPECT_EQ(aoStorage::Recreate(opened.get(), path.c_str(), meanwhile), opened.get());
    EXPECT_EQ(File(), changed);
    EXPECT_EQ(NamesInDirectory(), std::vector<std::string>{"storage"});
    Clean();
  }
}

}  // namespace
}  // namespace aostorage::testing
