// Files that lie go through every public operation: failure results, no crash, no endless loop, no
// more work or memory than the file's size allows, and no byte changed by reading.
#include "support/hostile_files.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>

#include "folder/storage_fixture.h"
#include "support/check_file.h"
#include "support/gauntlet.h"
#include "support/size.h"
#include "support/watchdog.h"

namespace aostorage::testing {
namespace {

class HostileFiles : public OneStorageTest {
 protected:
  ~HostileFiles() override {
    std::printf("%zu files, %llu operations\n", files,
                static_cast<unsigned long long>(Budget::Operations() - before));
  }
  template <class Check>
  void ForEachField(std::size_t stride, Check check) {
    Points points(stride, 0);
    for (const Field& field : reference.fields) {
      for (const std::uint32_t value : reference.BadValues(field)) {
        if (!points.Take()) continue;
        Bytes bytes = reference.builder.bytes;
        field.Set(bytes, value);
        Try(field.name + " = " + std::to_string(value), bytes, check);
        if (HasFailure()) return;
      }
    }
  }
  template <class Check>
  void Try(const std::string& name, const Bytes& bytes, Check check) {
    const ::testing::ScopedTrace trace(__FILE__, __LINE__, name);
    const Watchdog watchdog(name);
    WriteFile(path, bytes);
    check(bytes);
    ++files;
  }

  // What the tool writes is no more than the file can hold.
  void ExportByTool(std::uint64_t size, bool sound) {
    const std::string goal = dir.File("exported");
    const std::string words = " export " + path + " " + goal + " >/dev/null 2>&1";
    const int status = std::system((AOSTORAGE_TOOL_PATH + words).c_str());
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < 10) << status;
    EXPECT_TRUE(WEXITSTATUS(status) == 0 || !sound);
    std::uint64_t written = 0;
    const std::string sizes = "find " + goal + " -type f -printf '%s\\n' 2>/dev/null";
    FILE* const list = ::popen(sizes.c_str(), "r");
    for (unsigned long long one = 0; std::fscanf(list, "%llu", &one) == 1;) written += one;
    ::pclose(list);
    EXPECT_LE(written, MostOutput(size)) << "exported";
    EXPECT_EQ(std::system(("rm -rf " + goal).c_str()), 0);
  }

  const ReferenceFile reference;
  Gauntlet gauntlet{path};
  std::size_t files = 0;
  const std::uint64_t before = Budget::Operations();
};

TEST_F(HostileFiles, OfOneBadField) {
  const std::uint32_t block = reference.soundBlock, slot = SlotOffset(0);
  ForEachField(19, [&](const Bytes& bytes) {
    gauntlet.Read();
    gauntlet.Write(bytes, [&] {
      const Bytes after = File();
      EXPECT_EQ(Slice(after, 0, 40), Slice(bytes, 0, 40)) << "header and head of the directory";
      EXPECT_EQ(Slice(after, slot, kSlotSize), Slice(bytes, slot, kSlotSize));
      // A word that leads to the sound stream's own block makes that block another's too.
      if (CheckFile(path, Rules::kAfterFault).find(" at " + std::to_string(block)) ==
          std::string::npos) {
        EXPECT_EQ(Slice(after, block, 220), Slice(bytes, block, 220));
      }
    });
    gauntlet.Carry(bytes, false);
  });
}

TEST_F(HostileFiles, OfBadShapes) {
  for (const HostileFile& shape : HostileShapes()) {
    gauntlet.Allow(shape.moreMemory);
    Try(shape.name, shape.make(), [&](const Bytes& bytes) {
      if (shape.sound) {
        EXPECT_EQ("", CheckFile(path, Rules::kAfterFault));
      }
      gauntlet.Read();
      gauntlet.Write(bytes, [] {});
      gauntlet.Carry(bytes, shape.sound);
      WriteFile(path, bytes);
      ExportByTool(bytes.size(), shape.sound);
    });
  }
}

TEST_F(HostileFiles, CutAnywhere) {
  const Bytes& whole = reference.builder.bytes;
  // A file of 0 bytes is made a storage.
  for (std::size_t length = 1; length < whole.size() && !HasFailure();
       length += FullSize() ? 7 : 307) {
    Try("length " + std::to_string(length), Slice(whole, 0, length), [&](const Bytes& bytes) {
      gauntlet.Read();
      gauntlet.Write(bytes, [] {});
      gauntlet.Carry(bytes, false);
    });
  }
}

TEST_F(HostileFiles, NoFolderIsFoundInsideItself) {
  std::size_t tried = 0;
  for (const HostileFile& shape : HostileShapes()) {
    if (shape.sound || shape.name.compare(0, 7, "folder ") != 0) continue;
    SCOPED_TRACE(shape.name);
    ++tried;
    storage = OpenBytes(shape.make());
    std::vector<Stream> levels;
    Stream child = Root("folder");
    while (child && levels.size() < 100) {
      levels.push_back(std::move(child));
      std::uint32_t cookie = 0;
      child.reset(levels.back()->OpenStreamFirst(cookie, kWriteFlags));
      while (child && child->IsFolder() == 0)
        child.reset(levels.back()->OpenStreamNext(cookie, kWriteFlags));
    }
    EXPECT_LT(levels.size(), 4U);
    while (!levels.empty()) levels.pop_back();
  }
  EXPECT_GT(tried, 10U);
}

TEST_F(HostileFiles, ACapacityThatReachesBehindTheFileTakesNothing) {
  Bytes bytes = reference.builder.bytes;
  const auto size = static_cast<std::uint32_t>(bytes.size());
  const std::uint32_t last = ReadImage(bytes).Find("target")->blocks.back().offset;
  for (const std::uint32_t capacity : {size - last + 1, size, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
    Put32(bytes, last + 8, capacity);
    storage = OpenBytes(bytes);
    const Stream stream = Root("target");
    stream->Seek(150, 0);
    EXPECT_EQ(stream->Write(Pattern(5).data(), 5), kFailed) << capacity;
    EXPECT_EQ(LastError().code, ErrorCode::kContradiction);
    EXPECT_EQ(LastError().fileOffset, last);
    EXPECT_EQ(File(), bytes);
  }
}

}  // namespace
}  // namespace aostorage::testing
