/// @file
/// Trees: the copy of a folder of n children of 32 bytes, and path walks four deep through folders
/// of n streams each.
///
///   copy/aostorage         CopyFolder into an empty folder of another storage
///   copy/files             std::filesystem::copy of a directory of as many files
///   walk/aostorage         CPathLoader::GetStreamByPath, and CloseOpenStorages behind it
///   walk/aostorage_opens   the same streams by OpenStream, one after the other
///   walk/files             open and close of as deep a path in directories as large
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "micro.h"

namespace aobench {
namespace {

using namespace aostorage;

constexpr std::uint32_t kChildSize = 32;
const std::vector<std::uint8_t> kContent(kChildSize, 0x5A);

Failure Fill(aoStream& folder, const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    const StreamPtr child(folder.CreateStream(name.c_str(), PackKind(false), kWriteFlags));
    if (!child || child->Write(kContent.data(), kChildSize) != kChildSize)
      return "a child is not made";
  }
  return nullptr;
}

void CopyFolder(benchmark::State& state, std::size_t n) {
  const TempDir directory;
  const StoragePtr storage(aoStorage::Create(directory.File("source").c_str(), kWriteFlags, 0));
  const StreamPtr source(storage ? storage->CreateStream("f", PackKind(true), kWriteFlags)
                                 : nullptr);
  if (!source) return Fail(state, "the source is not made");
  if (const Failure failure = Fill(*source, NumberedNames('c', n))) return Fail(state, failure);
  const auto items = static_cast<std::int64_t>(n);
  MeasureRounds(state, RoundsFor(items), items, [&](Stopwatch& watch) -> Failure {
    const StoragePtr other(aoStorage::Create(directory.File("goal").c_str(), kWriteFlags, 0));
    const StreamPtr goal(other ? other->CreateStream("f", PackKind(true), kWriteFlags) : nullptr);
    if (!goal) return "the goal is not made";
    watch.Start();
    const bool copied = source->CopyFolder(goal.get());
    watch.Stop();
    return copied && goal->GetNumChildren() == n ? nullptr : "not every child was copied";
  });
}

/// Directories of files, as many as the folders have streams.
Failure MakeFiles(const std::string& path, const std::vector<std::string>& names) {
  std::error_code error;
  std::filesystem::create_directory(path, error);
  for (const std::string& name : names) {
    std::ofstream file(path + "/" + name, std::ios::binary);
    file.write(reinterpret_cast<const char*>(kContent.data()), kChildSize);
    if (!file) return "a file is not made";
  }
  return nullptr;
}

void CopyFiles(benchmark::State& state, std::size_t n) {
  const TempDir directory;
  const std::string source = directory.File("source"), goal = directory.File("goal");
  if (const Failure failure = MakeFiles(source, NumberedNames('c', n))) return Fail(state, failure);
  const auto items = static_cast<std::int64_t>(n);
  MeasureRounds(state, RoundsFor(items), items, [&](Stopwatch& watch) -> Failure {
    std::error_code error;
    std::filesystem::remove_all(goal, error);
    const Timed timed(watch);
    std::filesystem::copy(source, goal, error);
    return error ? "the directory is not copied" : nullptr;
  });
}

// --- Path walks: one folder on each level leads further, the last level has the leaves.

constexpr std::size_t kDepth = 4;
constexpr const char* kWay = "way";

Failure MakeLevels(aoStorage& storage, const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    if (!StreamPtr(storage.CreateStream(name.c_str(), kWriteFlags))) return "a stream is not made";
  }
  std::vector<StreamPtr> levels;
  Failure failure = nullptr;
  for (std::size_t level = 1; level < kDepth && failure == nullptr; ++level) {
    levels.emplace_back(levels.empty()
                            ? storage.CreateStream(kWay, PackKind(true), kWriteFlags)
                            : levels.back()->CreateStream(kWay, PackKind(true), kWriteFlags));
    failure = levels.back() ? Fill(*levels.back(), names) : "a folder is not made";
  }
  while (!levels.empty()) levels.pop_back();
  return failure;
}

std::string Prefix() {
  std::string prefix;
  for (std::size_t level = 1; level < kDepth; ++level) prefix += std::string(kWay) + "/";
  return prefix;
}

Failure WalkByLoader(aoStorage& storage, const std::string& name) {
  CPathLoader loader;
  const aoStream* const leaf = loader.GetStreamByPath(&storage, Prefix() + name, 0, 0);
  return leaf != nullptr && leaf->GetLength() == kChildSize ? nullptr : "a path leads nowhere";
}

Failure WalkByOpens(aoStorage& storage, const std::string& name) {
  StreamPtr levels[kDepth];
  levels[0].reset(storage.OpenStream(kWay, kReadFlags));
  for (std::size_t level = 1; level < kDepth && levels[level - 1]; ++level) {
    levels[level].reset(
        levels[level - 1]->OpenStream(level + 1 < kDepth ? kWay : name.c_str(), kReadFlags));
  }
  const bool found = levels[kDepth - 1] && levels[kDepth - 1]->GetLength() == kChildSize;
  for (std::size_t level = kDepth; level-- > 0;) levels[level].reset();
  return found ? nullptr : "a path leads nowhere";
}

void Walk(benchmark::State& state, std::size_t n,
          Failure (*walk)(aoStorage& storage, const std::string& name)) {
  const TempDir directory;
  const auto names = NumberedNames('c', n);
  const StoragePtr storage(aoStorage::Create(directory.File("store").c_str(), kWriteFlags, 0));
  if (!storage) return Fail(state, "the file is not made");
  if (const Failure failure = MakeLevels(*storage, names)) return Fail(state, failure);
  const auto order = Shuffled(n, 40);
  const auto items = static_cast<std::int64_t>(n);
  MeasureRounds(state, RoundsFor(items), items, [&](Stopwatch& watch) -> Failure {
    const Timed timed(watch);
    for (const std::uint32_t leaf : order) {
      if (const Failure failure = walk(*storage, names[leaf])) return failure;
    }
    return nullptr;
  });
}

void WalkFiles(benchmark::State& state, std::size_t n) {
  const TempDir directory;
  const auto names = NumberedNames('c', n);
  std::string path = directory.File("root");
  for (std::size_t level = 0; level < kDepth; ++level) {
    if (const Failure failure = MakeFiles(path, names)) return Fail(state, failure);
    path += std::string("/") + kWay;
  }
  const std::string prefix = directory.File("root/") + Prefix();
  const auto order = Shuffled(n, 40);
  const auto items = static_cast<std::int64_t>(n);
  MeasureRounds(state, RoundsFor(items), items, [&](Stopwatch& watch) -> Failure {
    const Timed timed(watch);
    for (const std::uint32_t leaf : order) {
      const int descriptor = ::open((prefix + names[leaf]).c_str(), O_RDONLY | O_CLOEXEC);
      if (descriptor < 0) return "a path leads nowhere";
      ::close(descriptor);
    }
    return nullptr;
  });
}

[[maybe_unused]] const bool registered = [] {
  for (const std::size_t n : {std::size_t{1000}, std::size_t{10000}}) {
    const std::string count = "/n:" + std::to_string(n);
    Register("tree/copy/aostorage" + count, 1, CopyFolder, n);
    Register("tree/copy/files" + count, 1, CopyFiles, n);
  }
  Register("tree/walk/aostorage/n:1000", 1, Walk, std::size_t{1000}, &WalkByLoader);
  Register("tree/walk/aostorage_opens/n:1000", 1, Walk, std::size_t{1000}, &WalkByOpens);
  Register("tree/walk/files/n:1000", 1, WalkFiles, std::size_t{1000});
  return true;
}();

}  // namespace
}  // namespace aobench
