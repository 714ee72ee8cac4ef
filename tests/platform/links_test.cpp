// Creation through a symbolic link that leads nowhere.
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "folder/storage_fixture.h"

namespace aostorage::testing {
namespace {

using Links = StorageFileTest;

TEST_F(Links, ThatLeadNowhereGetAFileAtTheirEndOrNone) {
  const std::string link = dir.File("link"), end = dir.File("sub/end");
  std::filesystem::create_directory(dir.File("sub"));
  ASSERT_EQ(::symlink("sub/end", link.c_str()), 0);
  for (const auto create : {&aoStorage::Create, &aoStorage::OpenOrCreate}) {
    {
      Watch watch;
      watch.FailAt(1, Only(Call::kWrite), ENOSPC);
      EXPECT_EQ(create(link.c_str(), kWriteFlags, 0), nullptr);
    }
    EXPECT_FALSE(std::filesystem::exists(end)) << "a file that this call made is gone again";
    const Storage made(create(link.c_str(), kWriteFlags, 0));
    ASSERT_TRUE(made);
    EXPECT_EQ(made->GetPath(), link);
    EXPECT_EQ(std::filesystem::file_size(end), kEmptyFileSize);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    std::filesystem::remove(end);
  }
}

}  // namespace
}  // namespace aostorage::testing
