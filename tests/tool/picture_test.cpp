// stat and map: all bytes are told of, and the figures are those of the file.
#include <algorithm>
#include <cctype>
#include <sstream>

#include "support/handles.h"
#include "tool/tool_fixture.h"

namespace aostorage::testing {
namespace {

/// The number behind the title of a row of `stat`.
std::uint64_t Figure(const std::string& told, const std::string& title) {
  const std::size_t row = told.find("  " + title + " ");
  if (row == std::string::npos) return ~std::uint64_t{0};
  std::string digits;
  for (std::size_t i = row + title.size() + 2; i < told.size() && told[i] != '\n'; ++i) {
    if (told[i] == '%' || (!digits.empty() && told[i] == ' ')) break;
    if (std::isdigit(static_cast<unsigned char>(told[i])) != 0) digits += told[i];
  }
  return digits.empty() ? ~std::uint64_t{0} : std::stoull(digits);
}

std::uint64_t SumOfKinds(const std::string& told) {
  std::uint64_t sum = 0;
  for (const char* title :
       {"header and directory", "folder records", "data", "block headers", "reserve",
        "behind the length", "removed", "unreachable", "in no record"})
    sum += Figure(told, title);
  return sum;
}

class Pictures : public Tool {
 protected:
  void Put(const std::string& path, std::size_t size) {
    ASSERT_EQ(Code({"put", store, path}, Bulk(size)), 0) << path;
  }
  std::string Stat() { return Run({"stat", store}).out; }
};

TEST_F(Pictures, StatSumsEachByteOnceAndForetellsWhatCompactMakes) {
  const std::uint64_t kEmpty = Figure(Stat(), "the file would have");
  EXPECT_EQ(kEmpty, kEmptyFileSize);
  for (const std::string path : {"f", "f/g", "f/g/h", "gone"})
    ASSERT_EQ(Code({"mkdir", store, path}), 0);
  // Streams without bytes between others: a folder's records then share a block, or do not.
  const std::pair<const char*, std::size_t> rows[] = {
      {"f/a", 0},     {"f/b", 0},    {"f/c", 100},   {"f/d", 0},    {"f/g/a", 70000}, {"f/g/b", 1},
      {"f/g/h/x", 0}, {"f/e", 3000}, {"gone/a", 50}, {"gone/b", 0}, {"big", 90000}};
  for (const auto& [path, size] : rows) Put(path, size);
  for (int i = 0; i < 130; ++i) {  // more root streams than one directory block takes
    Storage storage(aoStorage::Open(store.c_str(), kWriteFlags, 0));
    Stream stream(storage->CreateStream(("r" + std::to_string(i)).c_str(), kWriteFlags));
    ASSERT_EQ(stream->Write("xyz", static_cast<std::uint32_t>(i % 4)),
              static_cast<unsigned>(i % 4));
  }
  ASSERT_EQ(Run({"log", store, "f/log"}, Bulk(10)).code, 0);
  ASSERT_EQ(Code({"put", store, "--reserve", "500", "roomy"}, "r"), 0);
  ASSERT_EQ(Code({"rm", store, "gone"}) + Code({"rm", store, "f/c"}), 0);
  const std::string told = Stat();
  EXPECT_EQ(SumOfKinds(told), fs::file_size(store)) << told;
  EXPECT_EQ(Figure(told, "the file"), fs::file_size(store));
  EXPECT_EQ(Figure(told, "header and directory"), 32 + 3 * kDirectorySize);
  EXPECT_EQ(Figure(told, "reserve"), 499U);  // of 500 the stream has one byte
  EXPECT_GE(Figure(told, "removed"), 100U + 50U + 40U);
  const std::string out = dir.File("compacted");
  ASSERT_EQ(Code({"compact", store, "--output", out}), 0);
  EXPECT_EQ(Figure(told, "the file would have"), fs::file_size(out)) << told;
  EXPECT_EQ(Figure(told, "given back"), fs::file_size(store) - fs::file_size(out));
}

TEST_F(Pictures, StatCountsFragmentsAndTellsDamageBehindItsAnswer) {
  FileBuilder builder;
  const std::uint32_t first = builder.AddStream(6, "scattered", Pattern(30), {10, 10, 10});
  builder.AddStream(7, "beside", Pattern(20), {10, 10});
  // The chain goes 1, 3, 2 in the file: three fragments.
  Put32(builder.bytes, first + 16, first + 60);
  Put32(builder.bytes, first + 60 + 12, first);
  Put32(builder.bytes, first + 60 + 16, first + 30);
  Put32(builder.bytes, first + 30 + 12, first + 60);
  Put32(builder.bytes, first + 30 + 16, 0);
  WriteFile(store, builder.bytes);
  const Outcome sound = Run({"stat", store});
  EXPECT_EQ(sound.code, 0) << sound.err;
  EXPECT_NE(sound.out.find("  2-3                          1 stream    50.0 %\n"),
            std::string::npos);
  EXPECT_NE(sound.out.find("\nMost fragments\n             3  scattered\n\n"), std::string::npos)
      << sound.out;
  EXPECT_NE(sound.out.find("blocks\n             3  scattered\n             2  beside\n"),
            std::string::npos);
  PatchFile32(store, first, 0);
  const Bytes damaged = ReadFile(store);
  for (const std::string verb : {"stat", "map"}) {
    const Outcome outcome = Run({verb, store});
    EXPECT_EQ(outcome.code, 3) << outcome.err;
    EXPECT_FALSE(outcome.out.empty());
  }
  EXPECT_EQ(SumOfKinds(Stat()), damaged.size());
  EXPECT_EQ(ReadFile(store), damaged);
}

TEST_F(Pictures, TheTerminalMapShowsWhatMostOfEachCellIs) {
  FileBuilder builder;
  builder.AddStream(6, "s", Pattern(100000), {60000});
  builder.bytes.resize(builder.bytes.size() + 50000);
  WriteFile(store, builder.bytes);
  const std::string told = Run({"map", store}).out;
  std::istringstream lines(told.substr(0, told.find("\n\n")));
  std::string cells;
  for (std::string line; std::getline(lines, line); cells += line.substr(9)) {
    std::string offset = line.substr(0, 7);
    offset.erase(std::remove(offset.begin(), offset.end(), ','), offset.end());
    EXPECT_EQ(std::stoull(offset), cells.size() * 100) << line;
  }
  // 5,164 bytes of directory, 100,040 of the chain, 50,000 of nothing; 100 in a cell.
  EXPECT_EQ(cells, std::string(52, 'H') + std::string(1000, 'D') + std::string(501, '?'));
  for (const std::string text :
       {"stands for 100,\n", "  ?  in no record", "155,204 bytes, 6,400 in a row"})
    EXPECT_NE(told.find(text), std::string::npos) << text;
  std::istringstream all(told);
  for (std::string line; std::getline(all, line);) EXPECT_LE(line.size(), 80U) << line;
  EXPECT_EQ(told.find('\033'), std::string::npos);
  EXPECT_NE(Run({"map", "--color", "always", store}).out.find("\033[32mDDDD"), std::string::npos);
}

TEST_F(Pictures, APictureReplacesAnyFileButTheStore) {
  Put("<b>&\"'\xFF\xEF\xBF\xBF", 100);
  const Bytes before = ReadFile(store);
  const std::string link = dir.File("hard");
  const std::string soft = dir.File("soft");
  fs::create_hard_link(store, link);
  fs::create_symlink(store, soft);
  for (const std::string option : {"--svg", "--html"}) {
    for (const std::string& file : {store, link, soft, dir.Path()})
      EXPECT_EQ(Code({"map", option, file, store}), 2) << file;
    const std::string out = dir.File("picture");
    SetText(out, "old");
    EXPECT_EQ(Run({"map", option, out, store}, "", "ulimit -f 1; ").code, 5);
    EXPECT_EQ(Text(out), "old");
    EXPECT_EQ(Run({"map", option, out, store}).out, "");
    EXPECT_EQ(Text(out), Run({"map", option, "-", store}).out);
    EXPECT_NE(Text(out).find("&lt;b&gt;&amp;&quot;&#39;\\xFF\\xEF\\xBF\\xBF"), std::string::npos);
    EXPECT_EQ(Text(out).find("<b>"), std::string::npos);
  }
  EXPECT_EQ(ReadFile(store), before);
}

TEST_F(Pictures, APictureOfManyPiecesIsDrawnWithFewAndSaysSo) {
  constexpr std::uint32_t kBlocks = 60000;
  FileBuilder builder;
  const std::uint32_t first = builder.AddStream(6, "even", Pattern(kBlocks * 30ULL),
                                                std::vector<std::uint32_t>(kBlocks, 30));
  builder.PutSlot(7, StreamRecord("odd", false, kBlocks / 2 * 30, first + 50));
  for (std::uint32_t i = 0; i < kBlocks; ++i) {  // every second block to the other stream
    const std::uint32_t at = first + 50 * i;
    Put32(builder.bytes, at + 12, i < 2 ? 0 : at - 100);
    Put32(builder.bytes, at + 16, i + 2 < kBlocks ? at + 100 : 0);
  }
  builder.PutSlot(6, StreamRecord("even", false, kBlocks / 2 * 30, first));
  WriteFile(store, builder.bytes);
  const std::string picture = Run({"map", "--svg", "-", store}).out;
  std::size_t elements = 0;
  for (std::size_t at = 0; (at = picture.find('<', at)) != std::string::npos; ++at) ++elements;
  EXPECT_GT(elements, 2000U);
  EXPECT_LT(elements, 20000U);
  for (const std::string text :
       {"drawn together", "of 59,998 jumps the 1,500 farthest", "60,000 blocks"})
    EXPECT_NE(picture.find(text), std::string::npos) << text;
}

}  // namespace
}  // namespace aostorage::testing
