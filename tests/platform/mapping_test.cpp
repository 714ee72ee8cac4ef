// Storages that read from a mapping: what that costs, that they see what others write, and what is
// where no mapping can be had. All other tests run in this mode too, see tests/mapped/.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "folder/storage_fixture.h"
#include "support/size.h"

namespace aostorage::testing {
namespace {

class Mapping : public OneStorageTest {
 protected:
  template <class Operation>
  static std::string Calls(Operation operation) {
    Watch watch;
    operation();
    return watch.Text();
  }
  static Bytes Read(aoStream& stream, std::uint32_t count) {
    Bytes data(count);
    const std::uint32_t got = stream.Read(data.data(), count);
    data.resize(got == kFailed ? 0 : got);
    return data;
  }
};

TEST_F(Mapping, ReadsWithoutACall) {
  FileBuilder builder;
  builder.AddStream(0, "fast", Pattern(10));
  builder.AddStream(6, "a", Pattern(5000), {4000});
  Load(builder);
  ASSERT_TRUE(storage->UseMapping(true));
  ASSERT_TRUE(storage->UseMapping(true)) << "it is so already";
  Stream stream;
  EXPECT_EQ(Calls([&] {
              stream = Root("a");
              EXPECT_EQ(Read(*stream, 5000), Pattern(5000));
              EXPECT_EQ(Read(*Stream(storage->OpenStreamFast("fast", kReadFlags)), 10),
                        Pattern(10));
            }),
            "no call");
  const Stream entries = MakeRoot("entries", true);
  entries->SetEntry("a", 1);
  entries->SetEntry("b", 2);
  EXPECT_EQ(Calls([&] { EXPECT_EQ(entries->GetEntry("a", 0), 1); }), "no call");
  EXPECT_EQ(Calls([&] { entries->SetEntry("a", 3); }), "1 write");
  EXPECT_EQ(Calls([&] { MakeRoot("new"); }), "1 write");
  ASSERT_TRUE(storage->UseMapping(false));
  EXPECT_EQ(Calls([&] { EXPECT_EQ(entries->GetEntry("a", 0), 3); }), "2 read");
}

TEST_F(Mapping, ShowsWhatOthersWriteAndNothingBehindTheEnd) {
  Load(FileBuilder());
  const Stream mine = MakeRoot("a");
  ASSERT_TRUE(storage->UseMapping(true));
  const Storage other(aoStorage::Open(path.c_str(), kWriteFlags, 0));
  const Stream theirs(other->OpenStream("a", kWriteFlags));
  Bytes all;
  for (const std::size_t count : {10, 5000, 300000}) {
    const Bytes more = Pattern(count);
    ASSERT_EQ(theirs->Write(more.data(), static_cast<std::uint32_t>(count)), count);
    all.insert(all.end(), more.begin(), more.end());
    const Stream again(storage->OpenStream("a", kReadFlags));
    EXPECT_EQ(Read(*again, 400000), all);
  }
  FileBuilder cut;
  cut.AddStream(6, "a", Pattern(50));
  cut.bytes.resize(cut.bytes.size() - 20);
  Load(cut);
  ASSERT_TRUE(storage->UseMapping(true));
  const Stream stream = Root("a");
  Bytes data(50);
  ClearLastError();
  EXPECT_EQ(stream->Read(data.data(), 50), kFailed);
  EXPECT_EQ(LastError().code, ErrorCode::kTruncated);
}

TEST_F(Mapping, IsDoneWithoutWhereThereIsNoRoomForIt) {
  if (kSanitized) GTEST_SKIP() << "the sanitizer itself needs more addresses than the limit leaves";
  FileBuilder builder;
  builder.AddStream(6, "a", Pattern(5000));
  Load(builder);
  const pid_t child = fork();
  if (child == 0) {
    const rlimit few{std::size_t{1} << 30, std::size_t{1} << 30};
    if (setrlimit(RLIMIT_AS, &few) != 0) _exit(2);
    ClearLastError();
    const bool refused = !storage->UseMapping(true) && LastError().code == ErrorCode::kNoMemory;
    _exit(refused && Read(*Root("a"), 5000) == Pattern(5000) ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace aostorage::testing
