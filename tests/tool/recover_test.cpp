// A new store of a damaged one: all that can be had, and nothing false as whole.
#include <unistd.h>

#include <algorithm>
#include <map>
#include <set>

#include <aostorage/inspect.h>

#include "support/check_file.h"
#include "support/handles.h"
#include "support/syscalls.h"
#include "tool/tool_fixture.h"

namespace aostorage::testing {
namespace {

constexpr std::uint64_t kPage = 4096;

/// The bytes of a file that were lost.
struct Hole {
  std::uint64_t begin, end;
  bool Meets(std::uint64_t from, std::uint64_t size) const {
    return from < end && from + size > begin;
  }
};

/// The undamaged file, read without the library, and what of it lies outside a hole.
class Original {
 public:
  explicit Original(const Bytes& file) : image(ReadImage(file)) {
    std::map<std::string, const RawStream*> seen;
    for (const RawStream& stream : image.streams) {
      // At the root the later stream of a name is found, in a folder the earlier one.
      const bool isRoot = stream.path == stream.name;
      if (isRoot || seen.count(stream.path) == 0) seen[stream.path] = &stream;
    }
    for (const auto& [path, stream] : seen) visible.insert(stream);
  }

  bool IsVisible(const RawStream& stream) const { return visible.count(&stream) != 0; }

  static bool IsIntact(const RawStream& stream, const Hole& hole) {
    return !hole.Meets(stream.recordOffset, kSlotSize) &&
           std::none_of(stream.blocks.begin(), stream.blocks.end(), [&](const RawBlock& block) {
             return hole.Meets(block.offset, block.capacity);
           });
  }

  /// Whether the header lies in several blocks of its folder: only the folder's chain tells where.
  bool IsSplit(const RawStream& stream) const {
    if (stream.path == stream.name) return false;
    const std::string above = stream.path.substr(0, stream.path.size() - stream.name.size() - 1);
    const std::vector<RawBlock>& blocks = image.Find(above)->blocks;
    return std::none_of(blocks.begin(), blocks.end(), [&](const RawBlock& block) {
      return stream.recordOffset > block.offset &&
             stream.recordOffset + kSlotSize <= block.offset + block.used;
    });
  }

  /// Everything that leads to the stream by its path lies outside the hole.
  bool WayIsIntact(const RawStream& stream, const Hole& hole) const {
    if (hole.Meets(0, 32)) return false;
    const RawStream* root = &stream;
    for (std::size_t slash = stream.path.find('/'); slash != std::string::npos;
         slash = stream.path.find('/', slash + 1)) {
      const RawStream* folder = image.Find(stream.path.substr(0, slash));
      if (folder == nullptr || !IsVisible(*folder) || !IsIntact(*folder, hole)) return false;
      if (root == &stream) root = folder;
    }
    for (const std::uint32_t directory : image.directories) {
      if (hole.Meets(directory, 12)) return false;
      if (root->recordOffset - directory < kDirectorySize) return true;
    }
    return false;
  }

  /// Whether these are the bytes of a stream of that path, but for data bytes in the hole.
  bool Holds(const RawStream& found, const Hole& hole, bool visibleOnly) const {
    return std::any_of(image.streams.begin(), image.streams.end(), [&](const RawStream& stream) {
      if (stream.path != found.path || stream.kind != found.kind) return false;
      if (visibleOnly && !IsVisible(stream)) return false;
      if (stream.kind == 1) return true;
      if (stream.length != found.length || stream.duration != found.duration) return false;
      for (std::uint32_t at = 0; at < stream.length; ++at) {
        if (stream.chain[at] != found.chain.at(at) && !hole.Meets(stream.PlaceOf(at), 1))
          return false;
      }
      return true;
    });
  }

  const RawImage image;

 private:
  std::set<const RawStream*> visible;
};

class Recover : public Tool {
 protected:
  Outcome RunOn(const Bytes& file, const std::vector<std::string>& more = {}) {
    WriteFile(damaged, file);
    fs::remove(made);
    std::vector<std::string> words = {"recover", damaged, "-o", made};
    words.insert(words.end(), more.begin(), more.end());
    const Outcome outcome = Run(words);
    EXPECT_EQ(ReadFile(damaged), file) << "the source was written";
    if (fs::exists(made)) {
      EXPECT_EQ(CheckFile(made), "");
    }
    EXPECT_EQ(outcome.code == 0 || outcome.code == 1, fs::exists(made)) << outcome.err;
    for (const auto& entry : fs::directory_iterator(dir.Path()))
      EXPECT_NE(entry.path().extension(), ".tmp");
    return outcome;
  }

  /// Holds the outcome against what was there before the damage.
  void Compare(const Original& original, const Hole& hole, const Outcome& outcome) {
    const RawImage image = ReadImage(ReadFile(made));
    std::set<std::pair<std::string, Bytes>> found;
    for (const RawStream& stream : image.streams) {
      found.emplace(Beginning(stream.name), stream.Value());
      if (stream.path.rfind("lost+found", 0) == 0) continue;
      EXPECT_TRUE(original.Holds(stream, hole, false)) << "false: " << stream.path;
    }
    for (const RawStream& stream : original.image.streams) {
      const RawStream* same = image.Find(stream.path);
      if (outcome.code == 0 && original.IsVisible(stream)) {
        EXPECT_TRUE(same != nullptr && original.Holds(*same, hole, true))
            << "not said to be missing: " << stream.path;
      }
      if (!Original::IsIntact(stream, hole)) continue;
      if (original.IsVisible(stream) && original.WayIsIntact(stream, hole)) {
        EXPECT_TRUE(same != nullptr && same->kind == stream.kind &&
                    same->duration == stream.duration &&
                    (same->kind == 1 || same->Value() == stream.Value()))
            << "not under its path: " << stream.path;
      } else if (stream.kind != 1 && !original.IsSplit(stream)) {
        EXPECT_EQ(found.count({Beginning(stream.name), stream.Value()}), 1U)
            << "lost: " << stream.path;
      }
    }
    for (const RawStream& stream : original.image.vacated) {
      if (!Original::IsIntact(stream, hole) || stream.chain.empty()) continue;
      const std::string name = "removed-" + std::to_string(stream.recordOffset);
      EXPECT_EQ(found.count({name, stream.chain}), 1U)
          << "lost: removed at " << stream.recordOffset;
    }
  }

  /// What a name keeps when it is cut to make room for what the stream is.
  static std::string Beginning(const std::string& name) {
    return name.substr(0, std::min<std::size_t>(name.find('~'), 25));
  }

  const std::string damaged = dir.File("damaged");
  const std::string made = dir.File("made");
};

/// Folders three deep, two directory blocks, streams of many blocks, reserved slots, empty streams,
/// removed and hidden ones.
void Fill(const std::string& path) {
  Storage storage(aoStorage::Open(path.c_str(), kWriteFlags, 0));
  unsigned seed = 0;
  const auto put = [&seed](aoStream& stream, std::size_t size) {
    const Bytes bytes = Pattern(size, ++seed);
    EXPECT_EQ(stream.Write(bytes.data(), static_cast<std::uint32_t>(size)), size);
  };
  const auto create = [&](aoStream* folder, const std::string& name, bool isFolder = false) {
    const std::uint32_t kind = PackKind(isFolder, static_cast<std::uint16_t>(name.size()));
    return Stream(folder != nullptr ? folder->CreateStream(name.c_str(), kind, kWriteFlags)
                                    : storage->CreateStream(name.c_str(), kind, kWriteFlags));
  };
  put(*Stream(storage->CreateStreamFast("fast", PackKind(false, 3), kWriteFlags)), 100);
  const Stream a = create(nullptr, "a", true), b = create(a.get(), "b", true);
  const Stream c = create(b.get(), "c", true), slow = create(c.get(), "slow"),
               log = create(nullptr, "log");
  for (int i = 0; i < 70; ++i) {
    const std::string number = std::to_string(i);
    put(*create(nullptr, "root stream with a long name, so that borders cut it " + number),
        i % 3 == 0 ? 0 : 700);
    aoStream* const folder = i % 3 == 0 ? a.get() : i % 3 == 1 ? b.get() : c.get();
    put(*create(folder, "child " + number), i % 4 == 0 ? 0 : 10 * static_cast<std::size_t>(i) + 7);
    put(*slow, 300);
    if (i % 5 == 0) put(*log, 500);
  }
  put(*create(nullptr, "large"), 30000);
  // A folder in the blocks of a plain stream: the headers of its children cross their borders.
  Stream before = create(nullptr, "before");
  for (int i = 0; i < 12; ++i) {
    put(*before, 110);
    put(*log, 90);
  }
  EXPECT_TRUE(Remove(before));
  const Stream taken = create(nullptr, "taken", true);
  for (int i = 0; i < 14; ++i)
    put(*create(taken.get(), "in taken " + std::to_string(i)), i % 2 == 0 ? 0 : 40);
  const Stream late = create(nullptr, "late", true);  // its first block holds no child
  put(*create(nullptr, "between"), 10);
  put(*create(late.get(), "one"), 900);
  put(*create(late.get(), "two"), 5000);
  for (aoStream* folder : {a.get(), b.get()}) {
    for (const char* name : {"removed 1", "removed 2"}) {
      Stream stream = create(folder, name);
      put(*stream, 2500);
      EXPECT_TRUE(Remove(stream));
      put(*create(folder, std::string("after ") + name), name[8] == '1' ? 2500 : 10);
    }
    put(*create(folder, "twin"), 222);
    Stream twin = create(folder, "other twin");
    put(*twin, 333);
    EXPECT_TRUE(twin->Rename("twin"));
    Stream last = create(folder, "last");
    put(*last, 1111);
    EXPECT_TRUE(Remove(last));
  }
  put(*create(nullptr, "double"), 50);
  Stream second = create(nullptr, "second double");
  put(*second, 60);
  EXPECT_TRUE(second->Rename("double"));
}

TEST_F(Recover, WithOnePageLostEverythingOutsideItIsBack) {
  Fill(store);
  const Bytes file = ReadFile(store);
  const Original original(file);
  ASSERT_EQ(original.image.directories.size(), 2U);
  const Hole none{0, 0};
  Compare(original, none, RunOn(file));
  EXPECT_EQ(RunOn(file).code, 0);
  for (std::uint64_t page = 0; page < file.size(); page += kPage) {
    const std::uint64_t end = std::min<std::uint64_t>(page + kPage, file.size());
    const auto at = file.begin() + static_cast<std::ptrdiff_t>(page);
    for (const char* damage : {"zeros", "noise", "cut"}) {
      SCOPED_TRACE(std::string(damage) + " at " + std::to_string(page));
      Bytes bytes = file;
      Hole hole{page, end};
      if (*damage == 'c') {
        if (page == 0) continue;
        bytes.resize(page);
        hole.end = file.size();
      } else {
        const Bytes other = *damage == 'z' ? Bytes(end - page) : Pattern(end - page, 99);
        std::copy(other.begin(), other.end(), bytes.begin() + (at - file.begin()));
      }
      Compare(original, hole, RunOn(bytes));
    }
  }
}

TEST_F(Recover, GivesAnAnswerForAnyFile) {
  const Bytes hello = Pattern(100), other = Pattern(200, 2);
  FileBuilder shared, counted, orphan, older(FileBuilder::Form::kOlder), cyclic, taken, removed,
      early;
  const std::uint32_t chain = shared.AddChain(hello, {10});
  shared.PutSlot(6, StreamRecord("one", false, 100, chain));
  shared.PutSlot(7, StreamRecord("two", false, 100, chain));
  counted.AddStream(6, "long", hello);
  Put32(counted.bytes, counted.SlotAt(6) + 68, 5000);
  orphan.AddChain(hello, {10, 30});
  older.AddStream(0, "fast", hello);
  older.AddStream(5, std::string("\xFF\x1B[2J"), other);
  const std::uint32_t self = cyclic.AddChain(FolderPayload({StreamRecord("in", true, 84, 5164)}));
  cyclic.PutSlot(6, StreamRecord("f", true, 84, self));
  taken.AddStream(6, "lost+found", hello);
  taken.AddStream(7, "x", hello);
  taken.AddStream(8, "x", other);
  const std::uint32_t below = removed.AddChain(hello);
  const std::uint32_t folder = removed.AddChain(
      FolderPayload({StreamRecord("", false, 0, below), StreamRecord("", false, 0, 0)}));
  removed.PutSlot(6, StreamRecord("", false, 0, folder));
  // The chain ends a block early, and its second block leads elsewhere.
  early.AddStream(6, "e", hello, {10, 10});
  Put32(early.bytes, early.SlotAt(6) + 68, 10);
  Put32(early.bytes, Get32(early.bytes, early.SlotAt(6) + 76) + 16, 1);

  struct Row {
    const char* what;
    Bytes file;
    int code;
    std::map<std::string, Bytes> streams;  // in the new store, without folders and the report
    const char* told;
  };
  const std::string second = std::to_string(chain + 30);
  const auto place = [](std::uint32_t offset) { return std::to_string(offset); };
  const std::vector<Row> rows = {
      {"empty", {}, 4, {}, ""},
      {"text", Pattern(10000), 4, {}, ""},
      {"header alone", Slice(orphan.bytes, 0, 40), 1, {}, "no directory"},
      {"shared chain",
       shared.bytes,
       1,
       {{"lost+found/one~doubtful-" + place(SlotOffset(6)), hello},
        {"lost+found/two~cut-0-of-100", {}}},
       "same blocks"},
      {"length above the data",
       counted.bytes,
       1,
       {{"lost+found/long~cut-100-of-5000", hello}},
       "100 of 5000 bytes"},
      {"orphan chain", orphan.bytes, 0, {{"lost+found/orphan-5164", hello}}, "no header leads"},
      {"older form", older.bytes, 0, {{"fast", hello}, {"\xFF\x1B[2J", other}}, "2 streams"},
      {"folder in itself", cyclic.bytes, 1, {}, "f/in: folder"},
      {"names taken",
       taken.bytes,
       0,
       {{"lost+found", hello},
        {"x", other},
        {"lost+found~2/x~hidden-" + place(SlotOffset(7)), hello}},
       "under lost+found~2"},
      {"removed folder",
       removed.bytes,
       0,
       {{"lost+found/removed-" + place(SlotOffset(6)) + "/removed-" + place(folder + 24), hello}},
       "it was removed"},
      {"chain broken behind the length",
       early.bytes,
       1,
       {{"lost+found/e~doubtful-" + place(SlotOffset(6)), Slice(hello, 0, 10)},
        {"lost+found/orphan-5194-cut-90", Slice(hello, 10, 90)}},
       "offset 1,"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const Outcome outcome = RunOn(row.file);
    EXPECT_EQ(outcome.code, row.code) << outcome.err;
    EXPECT_NE(outcome.out.find(row.told), std::string::npos) << outcome.out;
    if (outcome.code > 1) continue;
    std::map<std::string, Bytes> streams;
    std::string kept;
    const RawImage image = ReadImage(ReadFile(made));
    for (const RawStream& stream : image.streams) {
      const Bytes value = stream.Value();
      if (stream.name == "report.txt") {
        kept.assign(value.begin(), value.end());
      } else if (stream.kind != 1) {
        streams[stream.path] = value;
      }
    }
    EXPECT_EQ(streams, row.streams);
    // What is printed is kept, when there is anything to tell.
    EXPECT_EQ(kept,
              std::count(outcome.out.begin(), outcome.out.end(), '\n') > 1 ? outcome.out : "");
    if (const RawStream* fast = image.Find("fast")) {
      EXPECT_EQ(fast->recordOffset, SlotOffset(0));
    }
  }
}

TEST_F(Recover, TouchesNothingButTheNewStore) {
  ASSERT_EQ(Code({"put", store, "x"}, "1") + Code({"put", store, "big"}, Bulk(100000)), 0);
  const std::string before = Text(store);
  fs::create_hard_link(store, dir.File("hard"));
  fs::create_symlink(store, dir.File("soft"));
  SetText(dir.File("there"), "old");
  for (const char* name : {"a.store", "hard", "soft", "there", ".", "none/new"}) {
    const bool isSource = std::set<std::string>({"a.store", "hard", "soft"}).count(name) != 0;
    for (const bool force : {false, true}) {
      if (force && !isSource) continue;
      std::vector<std::string> words = {"recover", store, "-o", dir.File(name)};
      if (force) words.emplace_back("--force");
      const Outcome outcome = Run(words);
      EXPECT_EQ(outcome.code, std::string(name) == "none/new" ? 5 : 2) << name;
      EXPECT_EQ(outcome.err.find("is the store itself") != std::string::npos, isSource) << name;
    }
  }
  EXPECT_EQ(Code({"recover", store}), 2);
  EXPECT_EQ(Code({"recover", dir.File("none"), "-o", dir.File("new")}), 1);
  EXPECT_EQ(Text(dir.File("there")), "old");
  EXPECT_EQ(Code({"recover", "--force", store, "-o", dir.File("there")}), 0);
  EXPECT_EQ(Run({"cat", dir.File("there"), "x"}).out, "1");
  // A disk that is full.
  EXPECT_EQ(Run({"recover", store, "-o", dir.File("new")}, "", "ulimit -f 40; trap '' XFSZ; ").code,
            5);
  std::set<std::string> files;
  for (const auto& entry : fs::directory_iterator(dir.Path()))
    files.insert(entry.path().filename());
  EXPECT_EQ(files, (std::set<std::string>{"a.store", "hard", "soft", "there", "stdin", "stdout",
                                          "stderr"}));
  EXPECT_EQ(Text(store), before);
}

TEST_F(Recover, BytesThatTheSystemCannotReadAreCounted) {
  Fill(store);
  const auto inspection = Inspection::Of(store.c_str());
  const auto& streams = inspection->Streams();
  const auto large = std::find_if(
      streams.begin(), streams.end(),
      [](const InspectedStream& stream) { return std::string(stream.header.name) == "large"; });
  EXPECT_EQ(inspection->BytesMadeUp(), 0U);
  Bytes bytes;
  Watch watch;
  watch.FailAt(1, Only(Call::kRead), EIO, 2);  // the whole piece, then its first two sectors
  const auto take = [&bytes](const void* piece, std::size_t count) {
    const auto* first = static_cast<const std::uint8_t*>(piece);
    bytes.insert(bytes.end(), first, first + count);
    return true;
  };
  EXPECT_EQ(inspection->ReadStream(static_cast<std::uint32_t>(large - streams.begin()), take),
            30000U);
  EXPECT_EQ(inspection->BytesMadeUp(), 1024U);
  EXPECT_EQ(Slice(bytes, 0, 1024), Bytes(1024));
}

}  // namespace
}  // namespace aostorage::testing
