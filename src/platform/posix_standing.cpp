// The POSIX body of Standing.
#include <array>
#include <cerrno>
#include <climits>

#include "platform/posix_support.h"
#include "platform/standing.h"

namespace aostorage::detail {
namespace {

constexpr int kMostLinks = 40;
constexpr mode_t kModeBits = 07777;

}  // namespace

bool Standing::Look(const std::string& at, Standing& found) {
  found = {};
  found.path = at;
  for (int links = 0; links <= kMostLinks; ++links) {
    struct stat status {};
    if (posix::Status(found.path.c_str(), &status) < 0)
      return errno == ENOENT || posix::FailWithErrno();
    if (!S_ISLNK(status.st_mode)) {
      found.exists = true;
      found.identity = posix::IdentityOf(status);
      found.mode = status.st_mode & kModeBits;
      found.user = status.st_uid;
      found.group = status.st_gid;
      found.hasOtherNames = status.st_nlink > 1;
      return S_ISREG(status.st_mode) || Fail(ErrorCode::kNotAFile);
    }
    std::array<char, PATH_MAX> text;
    const ssize_t size = posix::ReadLink(found.path.c_str(), text.data(), text.size());
    if (size < 0) return posix::FailWithErrno();
    const std::string link(text.data(), static_cast<std::size_t>(size));
    found.path = link.front() == '/' ? link : posix::DirectoryOf(found.path) + "/" + link;
  }
  return Fail(ErrorCode::kNameUnusable, kNoFileOffset, ELOOP);
}

}  // namespace aostorage::detail
