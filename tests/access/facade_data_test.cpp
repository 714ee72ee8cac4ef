// The facade: bytes in and out, names of numbered streams, and directories of files.
#include <cerrno>
#include <functional>

#include "access/access_fixture.h"
#include "support/check_file.h"

namespace aostorage::testing {
namespace {

class FacadeData : public AccessTest {
 protected:
  Bytes Read(std::int32_t size) {
    Bytes bytes(static_cast<std::size_t>(size));
    bytes.resize(facade.ReadGenericStream(bytes.data(), size));
    return bytes;
  }
  const Bytes seven = Pattern(7, 2);
};

TEST_F(FacadeData, WritesIntoAGivenFolderAndMakesABlockAlsoForNothing) {
  OpenFresh();
  const Storage storage = Open();
  const Stream folder(storage->OpenStream("f", kWriteFlags));
  const auto write = [&](const char* name, std::int32_t size, int append, int final) {
    return facade.WriteGenericChildStream(folder.get(), name, seven.data(), size, append, final);
  };
  EXPECT_EQ(write("a", 7, 0, 0) + write("a", 7, 2, 9) + write("n", 0, 0, 0), 3);
  Bytes expected = Pattern(30);
  std::copy(seven.begin(), seven.end(), expected.begin());
  expected.insert(expected.end(), seven.begin(), seven.end());
  EXPECT_EQ(Raw("f/a").Value(), expected);
  EXPECT_FALSE(Raw("f/n").blocks.empty());
  EXPECT_EQ(folder->IsStreamOpen("a"), nullptr);
  EXPECT_EQ("", CheckFile(path));
}

TEST_F(FacadeData, RefusesWhatWouldDoHarm) {
  OpenFresh();
  const Storage storage = Open();
  const Stream plain(storage->OpenStream("p", kWriteFlags));
  const Stream folder(storage->OpenStream("f", kWriteFlags));
  aoStream* const f = folder.get();
  const std::uint8_t* const data = seven.data();
  Bytes out(8, 0xEE);
  const std::string tooLong(61, 'n');
  struct ChildRow {
    aoStream* in;
    const char* name;
    const std::uint8_t* from;
    std::int32_t size;
  };
  const ChildRow childRows[] = {{f, "sub", data, 7},         {f, "sub", data, 0},
                                {plain.get(), "n", data, 7}, {nullptr, "n", data, 7},
                                {f, nullptr, data, 7},       {f, "", data, 7},
                                {f, "n", data, -1},          {f, "n", nullptr, 7},
                                {f, "a", nullptr, 7},        {f, tooLong.c_str(), data, 7}};
  for (const ChildRow& row : childRows) {
    EXPECT_EQ(facade.WriteGenericChildStream(row.in, row.name, row.from, row.size, 0, 1), 0)
        << &row - childRows;
  }
  EXPECT_EQ(facade.WriteGenericStream(nullptr, data, 7) + facade.WriteGenericStream(f, data, 7) +
                facade.WriteGenericStream(plain.get(), data, INT32_MIN) +
                facade.WriteGenericStream(plain.get(), nullptr, 7),
            0);

  ASSERT_EQ(facade.OpenGenericStreams("f", "sub"), 1);
  EXPECT_EQ(facade.WriteGenericStream(data, 7), 0);
  EXPECT_EQ(facade.WriteGenericChildOpenedStream(data, 7, 0), 0U);
  ASSERT_EQ(facade.OpenGenericStreams("f", "a"), 1);
  EXPECT_EQ(facade.WriteGenericChildOpenedStream(data, -1, 1) |
                facade.WriteGenericChildOpenedStream(nullptr, 7, 1) |
                facade.WriteGenericChildOpenedStream(data, 0, 0),
            0U);
  EXPECT_EQ(facade.ReadGenericChildStream(out.data(), -1), kFailed);

  ASSERT_EQ(facade.OpenGenericStream("p") + facade.SeekForward(3), 2);
  EXPECT_EQ(facade.WriteGenericStream(nullptr, 0), 1);
  EXPECT_EQ(facade.ReadGenericStream(out.data(), -1), kFailed);
  EXPECT_EQ(facade.ReadGenericStream(nullptr, 7), kFailed);
  EXPECT_EQ(facade.ReadGenericStream(nullptr, 0), 0U);
  EXPECT_EQ(facade.ReadTagSeekBack(out.data(), -1), -1);
  EXPECT_EQ(facade.ReadTagSeekBack(nullptr, 3), -1);
  EXPECT_EQ(facade.ReadTagSeekBack(out.data(), 0), 0);
  EXPECT_EQ(Read(2), Slice(Pattern(10), 3, 2)) << "none of these has moved the cursor";
  EXPECT_EQ(File(), start);
  EXPECT_EQ(out, Bytes(8, 0xEE));
}

TEST_F(FacadeData, WritesReadsAndMovesInOpenStreams) {
  OpenFresh();
  Bytes out(40);
  ASSERT_EQ(facade.OpenGenericStreams("f", "a"), 1);
  EXPECT_EQ(facade.ReadGenericChildStream(out.data(), 40), 30U);
  EXPECT_EQ(facade.GoToBeginningOfGenericChildStream(), 1);
  EXPECT_EQ(facade.WriteGenericChildOpenedStream(seven.data(), 7, 0), 7U);
  EXPECT_EQ(facade.GoToEndOfGenericChildStream(), 1);
  EXPECT_EQ(facade.WriteGenericChildOpenedStream(seven.data(), 7, 0), 7U);
  EXPECT_EQ(Raw("f/a").length, 37U);
  EXPECT_EQ(facade.GoToBeginningOfGenericChildStream(), 1);
  EXPECT_EQ(facade.WriteGenericChildOpenedStream(seven.data(), 7, 1), 7U);
  EXPECT_EQ(Raw("f/a").Value(), seven) << "a final write ends the child";

  const auto peek = [&](std::int32_t size) { return facade.ReadTagSeekBack(out.data(), size); };
  ASSERT_EQ(facade.OpenGenericStream("p"), 1);
  EXPECT_EQ(facade.GetStreamSize(), 10);
  EXPECT_EQ(facade.SeekForward(2), 1);
  EXPECT_EQ(peek(8), 8);
  EXPECT_EQ(Read(8), Slice(Pattern(10), 2, 8)) << "what was peeked at is still to come";
  EXPECT_EQ(peek(4), 0);
  EXPECT_EQ(facade.WriteGenericStream(seven.data(), 7), 1) << "a peek at the end moves nothing";
  EXPECT_EQ(Raw("p").length, 17U);
  ASSERT_EQ(facade.GoToBeginningOfGenericStream(), 1);
  ASSERT_EQ(facade.SeekForward(14), 1);
  EXPECT_EQ(peek(5), 3);
  EXPECT_EQ(Read(1), Slice(seven, 2, 1)) << "two further back than before";
  EXPECT_EQ(facade.SeekForward(5), 0) << "past the end";
  ASSERT_EQ(facade.OpenOrCreateGenericStream("new", 0, kPlainKind), 1);
  EXPECT_EQ(facade.SeekForward(0), 0) << "without a block";
  EXPECT_EQ(facade.WriteGenericStream(nullptr, 0), 1);
  EXPECT_EQ(facade.SeekForward(0), 1);

  Watch watch;
  ASSERT_EQ(facade.OpenGenericStream("p"), 1);
  watch.FailAt(1, Only(Call::kRead), EIO);
  EXPECT_EQ(peek(4), -1);
}

TEST_F(FacadeData, NamesNumberedStreams) {
  const std::pair<std::uint32_t, const char*> rows[] = {
      {0, "0"}, {255, "ff"}, {0x10000000, "10000000"}, {0xABCDEF01, "abcdef01"}};
  CCompStgFile other;
  for (const auto& [value, text] : rows) {
    char own[9];
    char* const shared = other.CreateStreamName(1);
    EXPECT_EQ(facade.CreateStreamName(value, own), own);
    EXPECT_STREQ(own, text);
    EXPECT_STREQ(shared, "1") << "a given buffer leaves the shared one";
    EXPECT_EQ(facade.CreateStreamName(value), shared);
    EXPECT_STREQ(shared, text);
  }
}

TEST_F(FacadeData, RemovesDirectoriesOfFiles) {
  namespace fs = std::filesystem;
  const auto descriptors = OpenDescriptors();
  for (const char* none : {path.c_str(), "", static_cast<const char*>(nullptr)})
    CCompStgFile::Remove(none);
  EXPECT_EQ(File(), start) << "a file is no directory";

  // Longer than a buffer of 260 would hold.
  const std::string target = dir.File(std::string(200, 'd')) + "/" + std::string(200, 'e');
  const auto fill = [&](const std::vector<std::string>& names) {
    for (const std::string& name : names) WriteFile(target + "/" + name, seven);
  };
  const auto left = [&] {
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(target))
      names.push_back(entry.path().lexically_relative(target).string());
    std::sort(names.begin(), names.end());
    return names;
  };
  fs::create_directories(target + "/folder");
  fs::create_symlink(path, target + "/link");
  fs::create_symlink(target + "/folder", target + "/way");
  fill({"one", "two", "a.b", ".hidden", "folder/three"});
  CCompStgFile::Remove(target.c_str());
  EXPECT_EQ(left(),
            (std::vector<std::string>{".hidden", "a.b", "folder", "folder/three", "link", "way"}));

  fs::remove_all(target);
  fs::create_directories(target);
  fill({"one", "two", "three"});
  {
    Watch watch;
    watch.FailAt(1, Only(Call::kUnlink), EACCES);
    CCompStgFile::Remove(target.c_str());
  }
  EXPECT_EQ(left().size(), 1U) << "one that cannot be deleted is passed over";
  fs::create_directory_symlink(target, dir.File("way"));
  CCompStgFile::Remove(dir.File("way").c_str());
  EXPECT_TRUE(left().empty()) << "a link to a directory stands for it";
  CCompStgFile::Remove((target + "/").c_str());
  EXPECT_FALSE(fs::exists(target));
  EXPECT_EQ(File(), start) << "behind a link";
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

}  // namespace
}  // namespace aostorage::testing
