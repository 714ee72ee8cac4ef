// dump, load, diff, blocks, hexdump.
#include <unistd.h>

#include <algorithm>
#include <random>
#include <set>
#include <sstream>
#include <tuple>

#include "support/check_file.h"
#include "support/model.h"
#include "support/raw_file.h"
#include "support/tree_text.h"
#include "tool/tool_fixture.h"

namespace aostorage::testing {
namespace {

bool Holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// What two stores of the same contents have in common.
using Contents = std::set<std::tuple<std::string, int, int, bool, Bytes>>;

Contents ContentsOf(const std::string& path) {
  const RawImage image = ReadImage(ReadFile(path));
  const std::uint32_t firstOrdinary = SlotOffset(6);
  Contents contents;
  for (const RawStream& stream : image.streams) {
    contents.emplace(stream.path, stream.kind, stream.duration, stream.recordOffset < firstOrdinary,
                     stream.kind == 1 ? Bytes() : stream.Value());
  }
  return contents;
}

std::string RandomName(std::mt19937& random) {
  static const std::vector<std::string> kParts = {
      "a",     "B",   "/", "\"", "\\", "\n",  "\x1b", " ", "\xff", "\xc3", "ä", "\xe2\x80\xae",
      "\\x41", "...", "#", "@1", "|",  "\x7f"};
  std::string name;
  for (std::size_t parts = 1 + random() % 5; parts > 0; --parts)
    name += kParts[random() % kParts.size()];
  return name;
}

// At the borders of lines, of the 64 KiB in which streams are read, and of characters.
std::string RandomValue(std::mt19937& random) {
  static const std::vector<std::size_t> kSizes = {0,    1,    63,   64,    65,    128,
                                                  1023, 1024, 1025, 65535, 65536, 65537};
  const std::size_t size = kSizes[random() % kSizes.size()];
  std::string value;
  switch (random() % 4) {
    case 0:
      return Bulk(size);
    case 1:
      while (value.size() < size) value += "a line\r\n\tof \"text\"\\\n";
      return value;
    case 2:  // one long line
      while (value.size() < size) value += random() % 3 == 0 ? "x" : "\xe2\x82\xac";
      return value;
    default:  // text but for its end
      return std::string(size, 'y') + "\xe2\x82";
  }
}

class TextVerbs : public Tool {
 protected:
  // Makes streams in random places; the same seeds give the same contents.
  void Grow(const std::string& path, unsigned seed) {
    std::mt19937 random(seed);
    const Storage storage(aoStorage::Open(path.c_str(), kWriteFlags, 0));
    ASSERT_TRUE(storage);
    for (int i = 0; i < 3; ++i) {
      const std::string name = "fast" + std::to_string(i);
      Fill(Stream(storage->CreateStreamFast(name.c_str(), PackKind(i == 1), kWriteFlags)), random);
    }
    std::vector<Stream> folders;
    for (int i = 0; i < 40; ++i) {
      const std::string name = RandomName(random);
      const bool folder = random() % 3 == 0;
      const std::uint32_t kind = PackKind(folder, static_cast<std::uint16_t>(random() % 3 * 30000));
      aoStream* const parent =
          folders.empty() || random() % 4 == 0 ? nullptr : folders[random() % folders.size()].get();
      Stream made(parent != nullptr ? parent->CreateStream(name.c_str(), kind, kWriteFlags)
                                    : storage->CreateStream(name.c_str(), kind, kWriteFlags));
      if (made && !folder) Fill(std::move(made), random);
      if (made) folders.push_back(std::move(made));
    }
    while (!folders.empty()) folders.pop_back();
  }

  static void Fill(const Stream& stream, std::mt19937& random) {
    if (!stream || stream->IsFolder() == 1) return;
    const std::string value = RandomValue(random);
    const auto count = static_cast<std::uint32_t>(value.size());
    ASSERT_EQ(stream->Write(value.data(), count), count);
  }

  std::size_t FilesHere() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(fs::path(store).parent_path()), {}));
  }

  const std::string other = dir.File("b.store");
};

TEST_F(TextVerbs, WhatIsDumpedIsLoadedWhole) {
  for (const unsigned seed : HistorySeeds(6)) {
    SCOPED_TRACE(seed);
    fs::remove(other);
    ASSERT_EQ(Code({"create", "--force", store}), 0);
    Grow(store, seed);
    const Outcome dumped = Run({"dump", store});
    ASSERT_EQ(dumped.code, 0) << dumped.err;
    const Outcome loaded = Run({"load", other}, dumped.out);
    ASSERT_EQ(loaded.code, 0) << loaded.err;
    EXPECT_EQ(ContentsOf(other), ContentsOf(store));
    EXPECT_EQ(CheckFile(other), "");
    EXPECT_EQ(Run({"dump", other}).out, dumped.out);
    const Outcome same = Run({"diff", store, other});
    EXPECT_EQ(std::to_string(same.code) + same.out + same.err, "0");
    for (const char letter : dumped.out)
      ASSERT_TRUE(letter == '\n' || static_cast<unsigned char>(letter) >= 0x20) << dumped.out;
  }
}

TEST_F(TextVerbs, HistoryDoesNotShowInTheText) {
  ASSERT_EQ(Code({"create", other}), 0);
  Plant(*Storage(aoStorage::Open(store.c_str(), kWriteFlags, 0)),
        {"a=1", "f/", "f/z=22", "f/e/", "f/a=", "b=333"});
  Plant(*Storage(aoStorage::Open(other.c_str(), kWriteFlags, 100)),
        {"x/", "x/y=gone", "b=333", "f/", "-x", "f/a=", "f/q=q", "a=1", "-f/q", "f/e/", "f/z=22"});
  EXPECT_EQ(Run({"dump", store}).out,
            "aostorage text 1\n"
            "plain 1 \"a\" duration 0 length 1\n  \"1\"\n"
            "plain 1 \"b\" duration 0 length 3\n  \"333\"\n"
            "folder 1 \"f\" duration 0\n"
            "plain 2 \"f\"/\"a\" duration 0 length 0\n"
            "folder 2 \"f\"/\"e\" duration 0\n"
            "plain 2 \"f\"/\"z\" duration 0 length 2\n  \"22\"\n"
            "end folders 2 plain 4 bytes 6\n");
  EXPECT_EQ(Code({"dump", other, dir.File("text")}), 0);
  EXPECT_EQ(Text(dir.File("text")), Run({"dump", store}).out);
}

TEST_F(TextVerbs, WhatCannotBeCarriedIsTold) {
  FileBuilder file;
  file.AddStream(6, "twin", Pattern(3, 1));
  file.AddStream(7, "twin", Pattern(3, 2));
  SetText(store, std::string(file.bytes.begin(), file.bytes.end()));
  const Outcome hidden = Run({"dump", store});
  EXPECT_EQ(hidden.code, 0);
  EXPECT_TRUE(Holds(hidden.out, "# hidden: plain 1 \"twin\"")) << hidden.out;
  EXPECT_TRUE(Holds(hidden.err, "twin: is hidden")) << hidden.err;
  EXPECT_TRUE(Holds(hidden.out, "end folders 0 plain 1 bytes 3"));

  const std::uint32_t cut = file.AddStream(8, "cut", Pattern(100), {40, 40});
  file.AddStream(9, "whole", {'o', 'k'});
  Put32(file.bytes, cut + 16, 0x7FFFFFF0);
  SetText(store, std::string(file.bytes.begin(), file.bytes.end()));
  const Outcome damaged = Run({"dump", store});
  EXPECT_EQ(damaged.code, 3);
  EXPECT_TRUE(Holds(damaged.out, "# damaged: plain 1 \"cut\"")) << damaged.out;
  EXPECT_TRUE(Holds(damaged.err, "cut: the chain leads out of the file")) << damaged.err;
  EXPECT_TRUE(Holds(damaged.out, "\"whole\" duration 0 length 2\n  \"ok\"\n"));
  EXPECT_EQ(Code({"load", other}, damaged.out), 0);
  EXPECT_EQ(Run({"diff", store, other}).code, 2);
}

TEST_F(TextVerbs, WrongTextsAreRefusedWithTheirLine) {
  const std::string first = "aostorage text 1\n";
  const std::string folder = "folder 1 \"f\" duration 0\n";
  const std::string deep = std::string(70000, '#') + "\n";
  struct Row {
    std::string text, message;
  };
  const std::vector<Row> rows = {
      {"", "line 1: the text breaks off"},
      {std::string(1000, '\0'), "line 1: the text does not begin"},
      {"aostorage text 2\n", "line 1: the text does not begin"},
      {first, "line 2: the text breaks off"},
      {first + "plain 1 \"a\" duration 0 length 1\n", "line 3: the text breaks off"},
      {first + "end folders 0 plain 0 bytes 1\n", "line 2: the text has other totals"},
      {first + "end folders 0 plain 0 bytes 0\n" + folder, "line 3: there is more"},
      {first + "plain 1 \"a\" duration 0 length 3\n  6162\nend folders 0 plain 1 bytes 3\n",
       "line 4: 1 bytes of the stream before are missing"},
      {first + "plain 1 \"a\" duration 0 length 1\n  6162\n", "line 3: these are more bytes"},
      {first + "plain 1 \"a\" duration 0 length 4294967295\n  616\n", "line 3: these are neither"},
      {first + "plain 1 \"a\" duration 0 length 9\n  \"a\\q\"\n", "line 3: these are neither"},
      {first + "plain 1 \"a\" duration 0 length 9\n  \"a\n", "line 3: these are neither"},
      {first + "plain 1 \"a\" duration 0 length 4294967296\n", "line 2: this is no line"},
      {first + "plain 1 \"a\" duration 65536 length 0\n", "line 2: this is no line"},
      {first + "plain 1 \"a\" duration 0 length 0 \n", "line 2: this is no line"},
      {first + "plain 2 \"f\" duration 0 length 0\n", "line 2: this is no line"},
      {first + folder + "  00\n", "line 3: there is no plain stream"},
      {first + folder + folder, "line 3: there is a stream of this name already"},
      {first + folder + "plain 2 \"g\"/\"a\" duration 0 length 0\n", "line 3: the folders on"},
      {first + "plain 2 \"f\"/\"a\" duration 0 length 0\n", "line 2: there is no folder around"},
      {first + folder + "plain 2 \"f\"/\"a\" duration 0 length 0 reserved\n",
       "line 3: only root streams"},
      {first + "plain 1 \"\" duration 0 length 0\n", "line 2: a name on the path is empty"},
      {first + "plain 1 \"a\\x00b\" duration 0 length 0\n", "line 2: the name holds a zero byte"},
      {first + "plain 1 \"" + std::string(61, 'n') + "\" duration 0 length 0\n",
       "line 2: the name"},
      {first + deep, "line 2: the line is longer than"},
      {first + std::string(300000, 'x'), "line 2: the line is longer than"},
      {first + "folder 4294967295 .../\"a\" duration 0\n", "line 2: the folders lie deeper"},
  };
  const std::size_t before = (Run({"--version"}), FilesHere());
  for (const Row& row : rows) {
    const Outcome outcome = Run({"load", other}, row.text);
    EXPECT_EQ(outcome.code, 2) << row.message;
    EXPECT_TRUE(Holds(outcome.err, row.message)) << outcome.err << row.message;
    EXPECT_EQ(FilesHere(), before) << row.message;
  }
  std::string seven = first;
  for (char name = 'a'; name <= 'g'; ++name)
    seven += std::string("plain 1 \"") + name + "\" duration 0 length 0 reserved\n";
  EXPECT_TRUE(Holds(Run({"load", other}, seven).err, "line 8: there are more streams in reserved"));
}

TEST_F(TextVerbs, AStoreIsThereOnlyWhenItIsWhole) {
  const std::string good =
      "aostorage text 1\r\n# a comment\r\n\r\nplain 1 \"new\" duration 7 length 4\r\n"
      "  61\r\n  \"b\\x63\\n\"\r\nend folders 0 plain 1 bytes 4\r\n";
  Run({"put", store, "old"}, "old");
  const std::string link = dir.File("link");
  fs::create_symlink(store, link);
  fs::permissions(store, fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(Code({"load", link}, good), 2);
  EXPECT_EQ(Code({"load", "--force", link}, good.substr(0, 90)), 2);
  EXPECT_EQ(Code({"load", "--force", fs::path(store).parent_path()}, good), 2);
  EXPECT_EQ(Cat("old"), "old");

  // It waits for more of the text when the interrupt comes.
  const std::size_t before = FilesHere();
  const std::string pipe = dir.File("pipe");
  ASSERT_EQ(std::system(("mkfifo " + Quoted(pipe)).c_str()), 0);
  const Outcome stopped =
      Run({"load", "--force", store, "/dev/fd/3"}, "",
          "exec 3<>" + Quoted(pipe) + "; timeout --preserve-status -s INT 0.3 ");
  EXPECT_EQ(stopped.code, 2);
  EXPECT_TRUE(Holds(stopped.err, "interrupted")) << stopped.err;
  EXPECT_EQ(FilesHere(), before + 1);
  EXPECT_EQ(Cat("old"), "old");

  EXPECT_EQ(Code({"load", "--force", link}, good), 0);
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(fs::status(store).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(Run({"ls", "--durations", store}).out, Run({"ls", "--durations", link}).out);
  EXPECT_EQ(Cat("new") + Cat("old"), "abc\n");
}

TEST_F(TextVerbs, EachDifferenceIsFound) {
  const std::string big(200000, 'x');
  std::string bigger = big;
  bigger[131072] = 'y';
  struct Row {
    TreeText left, right;
    std::string printed;
  };
  const std::vector<Row> rows = {
      {{"a=1", "f/", "f/g/"}, {"f/", "a=1", "f/g/"}, ""},
      {{"a=1", "b=", "z/", "z/y=1"}, {"b=", "c=1"}, "only in A: a\nonly in B: c\nonly in A: z/\n"},
      {{"a="}, {"a/"}, "a: kind plain and folder\n"},
      {{"f/", "f/a=12"}, {"f/", "f/a=123"}, "f/a: length 2 and 3 bytes\n"},
      {{"a=12"}, {"a=1"}, "a: length 2 and 1 bytes\n"},
      {{"a=12"}, {"a=21x"}, "a: length 2 and 3 bytes\na: differs at byte 0\n"},
      {{"a=" + big}, {"a=" + bigger}, "a: differs at byte 131072\n"},
      {{"\x1b[2J=1"}, {"\x1b[2J=2"}, "\\x1B[2J: differs at byte 0\n"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.printed);
    for (const auto& [path, lines] : {std::tie(store, row.left), std::tie(other, row.right)}) {
      fs::remove(path);
      ASSERT_EQ(Code({"create", path}), 0);
      Plant(*Storage(aoStorage::Open(path.c_str(), kWriteFlags, 0)), lines);
    }
    Outcome found = Run({"diff", "A", "B"}, "",
                        "cd " + Quoted(fs::path(store).parent_path()) +
                            " && ln -sf a.store A && ln -sf b.store B; ");
    EXPECT_EQ(found.out + found.err, row.printed);
    EXPECT_EQ(found.code, row.printed.empty() ? 0 : 1);
    const Outcome quiet = Run({"diff", "--quiet", store, other});
    EXPECT_EQ(quiet.out + quiet.err, "");
    EXPECT_EQ(quiet.code, found.code);
  }
}

TEST_F(TextVerbs, DurationsDifferUnlessToldOtherwiseAndTroubleIsTwo) {
  Storage(aoStorage::Open(store.c_str(), kWriteFlags, 0))
      ->CreateStream("t", PackKind(false, 9), kWriteFlags)
      ->Release();
  fs::copy_file(store, other);
  ASSERT_EQ(Code({"compact", other}), 0);
  EXPECT_EQ(Run({"diff", store, other}).out, "t: duration 9 and 0 minutes\n");
  EXPECT_EQ(Code({"diff", "--no-durations", store, other}), 0);

  Bytes damaged = ReadFile(store);
  Put32(damaged, SlotOffset(6) + 76, 0x7FFFFFF0);
  WriteFile(dir.File("damaged"), damaged);
  SetText(dir.File("none"), std::string(6000, 'n'));
  for (const std::string& wrong : {dir.File("damaged"), dir.File("none"), dir.File("absent")}) {
    EXPECT_EQ(Code({"diff", store, wrong}), 2) << wrong;
    EXPECT_EQ(Code({"diff", "-q", wrong, other}), 2) << wrong;
  }
}

TEST_F(TextVerbs, ChainsAreShownAsFarAsTheyGo) {
  FileBuilder file;
  const std::uint32_t first = file.AddStream(6, "s", Pattern(100), {40, 40});
  const std::uint32_t second = Get32(file.bytes, first + 16);
  const std::uint32_t third = Get32(file.bytes, second + 16);
  file.AddStream(7, "a/b\n", Pattern(1));
  WriteFile(store, file.bytes);
  const Outcome whole = Run({"blocks", store, "s"});
  EXPECT_EQ(whole.code, 0);
  EXPECT_TRUE(Holds(whole.out, "follows directly\nthe chain is whole, 3 blocks, 100 bytes"))
      << whole.out;
  EXPECT_EQ(Run({"blocks", store, "@" + std::to_string(second)}).out, whole.out);
  EXPECT_EQ(Run({"blocks", store, "@" + std::to_string(SlotOffset(6))}).out, whole.out);
  EXPECT_TRUE(Holds(Run({"blocks", store, "/a/b\n"}).out, "a/b\\x0A: plain stream, length 1"));
  for (const char* nowhere : {"x", "s/x", "@0", "@99999999", "@", "@1x"})
    EXPECT_NE(Code({"blocks", store, nowhere}), 0) << nowhere;

  struct Row {
    std::uint32_t at, value;
    const char* printed;
  };
  const std::vector<Row> rows = {
      {second, 0, "the chain leads to something that is no block, at offset "},
      {second + 4, 19, "the words of the block contradict each other, at offset "},
      {first + 16, 0x7FFFFFF0, "the chain leads out of the file, at offset 2147483632"},
      {second + 16, first, "the chain leads into another record, at offset "},
      {second + 8, 0x7FFFFFF0, "cut off by the end of the file"},
      {third + 12, first, "prevBlock names another block"},
      {SlotOffset(6) + 68, 40, "behind the length"},
  };
  for (const Row& row : rows) {
    Bytes damaged = file.bytes;
    Put32(damaged, row.at, row.value);
    WriteFile(store, damaged);
    const Outcome shown = Run({"blocks", store, "s"});
    EXPECT_TRUE(Holds(shown.out, row.printed)) << row.printed << "\n" << shown.out;
    EXPECT_EQ(ReadFile(store), damaged);
  }
  // What has no name any more is reached by its place.
  WriteFile(store, file.bytes);
  ASSERT_EQ(Code({"rm", store, "s"}), 0);
  EXPECT_EQ(Code({"blocks", store, "s"}), 1);
  const Outcome removed = Run({"blocks", store, "@" + std::to_string(first)});
  EXPECT_TRUE(Holds(removed.out, "<removed " + std::to_string(SlotOffset(6)) + ">")) << removed.out;
}

TEST_F(TextVerbs, EachByteOfASmallFileHasItsMeaning) {
  {
    const Storage storage(aoStorage::Create(store.c_str(), kWriteFlags, 0));
    const Stream hello(storage->CreateStream("hello", kWriteFlags));
    ASSERT_EQ(hello->Write("Hi there", 8), 8U);
    const Stream settings(storage->CreateStream("settings", PackKind(true), kWriteFlags));
    ASSERT_EQ(settings->SetEntry("volume", std::int32_t{7}), 1);
  }
  const std::string all = Run({"hexdump", store}).out;
  // As docs/format.md has it.
  for (const char* row : {
           "00000010  53 74 6f 72 61 67 65 40",
           "0000001a  40 00                                            slotsPerDirectory 64",
           "00000024  40 00 00 00                                      slotCount 64",
           "          ... 5 slots more are the same, the last at 000001bc",
           "00000210  68 65 6c 6c 6f 00 00 00 00 00 00 00 00 00 00 00  name \"hello\"",
           "0000029f  01                                               kind 1: folder",
           "000002a0  54 00 00 00                                      length 84",
           "          ... 55 slots more are the same, the last at 000013dc",
           "00001430  1c 00 00 00                                      used 28",
           "00001440  48 69 20 74 68 65 72 65                          |Hi there|",
           "0000145c  01 00 00 00                                      child count 1",
           "00001464  76 6f 6c 75 6d 65 00 00 00 00 00 00 00 00 00 00  name \"volume\"",
           "000014ac  b0 14 00 00                                      firstBlock 5296",
           "000014c4  07 00 00 00                                      |....|",
       }) {
    EXPECT_TRUE(Holds(all, std::string("\n") + row + "\n")) << row << "\n" << all;
  }
  const std::string one = Run({"hexdump", store, "settings/volume"}).out;
  EXPECT_TRUE(Holds(one, "\n00001460  fc fc fc fc")) << one;
  EXPECT_TRUE(Holds(one, "\n000014c4  07 00 00 00")) << one;
  EXPECT_FALSE(Holds(one, "\n0000145c") || Holds(one, "\n0000025c")) << one;
  const std::string part = Run({"hexdump", store, "--offset", "0x1442", "--length", "3"}).out;
  EXPECT_EQ(part, "00001442  20 74 68                                         | th|\n");
}

TEST_F(TextVerbs, LongDataIsShortenedAndSplitRecordsArePutTogether) {
  FileBuilder file;
  file.AddStream(6, "s", Pattern(1000));
  const Bytes child = StreamRecord("c\x1b", false, 0, 0);
  file.AddStream(7, "f", FolderPayload({child}), {4 + 30, 50}, true);
  WriteFile(store, file.bytes);
  EXPECT_TRUE(Holds(Run({"hexdump", store, "s"}).out, "... 744 bytes more\n"));
  EXPECT_FALSE(Holds(Run({"hexdump", "--all", store, "s"}).out, "bytes more"));
  const std::string split = Run({"hexdump", store, "f"}).out;
  EXPECT_TRUE(Holds(split, "slot 0 of its folder: \"f/c\\x1B\", a part")) << split;
  EXPECT_TRUE(Holds(split, "part of name\n") && Holds(split, "firstBlock 0: none")) << split;
}

}  // namespace
}  // namespace aostorage::testing
