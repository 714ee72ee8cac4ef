#include "support/tree_text.h"

#include <gtest/gtest.h>

namespace aostorage::testing {

Stream OpenPath(aoStorage& storage, const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return Stream(storage.OpenStream(path.c_str(), kWriteFlags));
  const Stream parent = OpenPath(storage, path.substr(0, slash));
  return Stream(parent ? parent->OpenStream(path.substr(slash + 1).c_str(), kWriteFlags) : nullptr);
}

void Plant(aoStorage& storage, const TreeText& lines) {
  for (const std::string& line : lines) {
    SCOPED_TRACE(line);
    if (line.front() == '-') {
      Stream gone = OpenPath(storage, line.substr(1));
      ASSERT_TRUE(gone && Remove(gone));
      continue;
    }
    const bool folder = line.back() == '/';
    const std::size_t end = folder ? line.size() - 1 : line.find('=');
    const std::string path = line.substr(0, end);
    const std::size_t slash = path.rfind('/');
    const Stream parent =
        slash == std::string::npos ? nullptr : OpenPath(storage, path.substr(0, slash));
    const std::string name = path.substr(slash + 1);
    const Stream made(parent ? parent->CreateStream(name.c_str(), PackKind(folder), kWriteFlags)
                             : storage.CreateStream(name.c_str(), PackKind(folder), kWriteFlags));
    ASSERT_TRUE(made);
    const std::string text = line.substr(end + 1);
    const auto count = static_cast<std::uint32_t>(text.size());
    if (!folder && count != 0) {
      ASSERT_EQ(made->Write(text.data(), count), count);
    }
  }
}

TreeText TreeOf(const RawImage& image, const std::string& below) {
  TreeText lines;
  const std::string prefix = below.empty() ? "" : below + "/";
  for (const RawStream& stream : image.streams) {
    if (stream.path.compare(0, prefix.size(), prefix) != 0) continue;
    const Bytes value = stream.Value();
    const std::string path = stream.path.substr(prefix.size());
    lines.push_back(stream.kind == 1 ? path + "/"
                                     : path + "=" + std::string(value.begin(), value.end()));
  }
  return lines;
}

}  // namespace aostorage::testing
