/// @file
/// Small rows that no whole work shows: walks, many names, copies of trees and paths, on Google
/// Benchmark. In the page cache, n streams or children of 32 bytes.
///
///   folder_alternate  a child removed at a random place and one created in its slot, through one
///                     object of the folder, or two that take turns
///   folder_walk       all children by OpenStreamFirst and OpenStreamNext; folder_enum: all names
///   root_alternate, root_scan, open_file   likewise at the root; the file opened with its map
///   copy, copy_files  CopyFolder into an empty storage; std::filesystem::copy of as many files
///   path, path_opens, path_files   a stream four folders deep, n streams in each: by CPathLoader,
///                     by as many OpenStream; a file as deep, opened and closed
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>

#include <benchmark/benchmark.h>

#include "../support.h"

namespace aobench {
namespace {

using namespace aostorage;

constexpr std::uint32_t kChildSize = 32;
constexpr std::size_t kDepth = 4;
constexpr char kWay[] = "way";

/// `place` is a storage or a folder.
template <class Place>
bool Make(Place& place, const std::string& name) {
  const std::uint8_t bytes[kChildSize] = {1};
  const StreamPtr child(place.CreateStream(name.c_str(), PackKind(false), kWriteFlags));
  return child && child->Write(bytes, kChildSize) == kChildSize;
}

template <class Place>
bool MakeAll(Place& place, const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    if (!Make(place, name)) return false;
  }
  return true;
}

/// A new storage with a folder.
struct File {
  explicit File(const std::string& path)
      : storage(aoStorage::Create(path.c_str(), kWriteFlags, 0)),
        folder(storage ? storage->CreateStream(kWay, PackKind(true), kWriteFlags) : nullptr) {}
  StoragePtr storage;
  StreamPtr folder;  // ends before the storage
};

std::vector<std::string> NamesFor(const benchmark::State& state) {
  return NumberedNames('c', static_cast<std::size_t>(state.range(0)));
}

/// Ends a benchmark that has come upon something wrong.
void Expect(benchmark::State& state, bool good) {
  if (!good) state.SkipWithError(LastError().text);
}

/// Removes and creates at random, `places` in turn.
template <class Place>
void Alternate(benchmark::State& state, const std::vector<Place*>& places,
               const std::vector<std::string>& names) {
  const auto order = Shuffled(names.size(), 1);
  std::size_t step = 0;
  for (auto _ : state) {
    const std::string& name = names[order[step % order.size()]];
    Place& place = *places[step++ % places.size()];
    if (!RemoveStream(StreamPtr(place.OpenStream(name.c_str(), kWriteFlags))) || !Make(place, name))
      return Expect(state, false);
  }
}

void FolderAlternate(benchmark::State& state) {
  const TempDir directory;
  const File file(directory.File("store"));
  const auto names = NamesFor(state);
  if (!file.folder || !MakeAll(*file.folder, names)) return Expect(state, false);
  const StreamPtr second(file.storage->OpenStream(kWay, kWriteFlags));
  std::vector<aoStream*> places{file.folder.get()};
  if (state.range(1) == 2) places.push_back(second.get());
  Alternate(state, places, names);
  Expect(state, file.folder->GetNumChildren() == names.size());
}

void FolderWalk(benchmark::State& state, bool namesOnly) {
  const TempDir directory;
  const File file(directory.File("store"));
  const auto names = NamesFor(state);
  if (!file.folder || !MakeAll(*file.folder, names)) return Expect(state, false);
  for (auto _ : state) {
    std::vector<std::string> found;
    std::uint32_t cookie = 0;
    std::size_t count = 0;
    if (namesOnly) {
      file.folder->EnumStreams(found);
      count = found.size();
    } else {
      StreamPtr child(file.folder->OpenStreamFirst(cookie, kReadFlags));
      for (; child; ++count) {
        child.reset();  // before the next one opens, as a caller would
        child.reset(file.folder->OpenStreamNext(cookie, kReadFlags));
      }
    }
    if (count != names.size()) return Expect(state, false);
  }
}

enum class RootWork { kAlternate, kScan, kOpen };

void Root(benchmark::State& state, RootWork work) {
  const TempDir directory;
  const std::string path = directory.File("store");
  const StoragePtr storage(aoStorage::Create(path.c_str(), kWriteFlags, 0));
  const auto names = NamesFor(state);
  if (!storage || !MakeAll(*storage, names)) return Expect(state, false);
  if (work == RootWork::kAlternate) {
    Alternate(state, std::vector<aoStorage*>{storage.get()}, names);
    return;
  }
  for (auto _ : state) {
    if (work == RootWork::kOpen) {
      const StoragePtr opened(aoStorage::Open(path.c_str(), kReadFlags, 0));
      if (!opened) return Expect(state, false);
      continue;
    }
    CIterateSortedStreams scan;
    std::size_t count = 0;
    while (storage->IterateSortedStreamsNoOPENS(&scan) == 1) ++count;
    if (count != names.size()) return Expect(state, false);
  }
}

void CopyTree(benchmark::State& state) {
  const TempDir directory;
  const File source(directory.File("source"));
  const auto names = NamesFor(state);
  if (!source.folder || !MakeAll(*source.folder, names)) return Expect(state, false);
  for (auto _ : state) {
    state.PauseTiming();
    const File goal(directory.File("goal"));
    state.ResumeTiming();
    if (!goal.folder || !source.folder->CopyFolder(goal.folder.get()) ||
        goal.folder->GetNumChildren() != names.size())
      return Expect(state, false);
  }
}

void MakeFiles(const std::string& path, const std::vector<std::string>& names) {
  std::filesystem::create_directory(path);
  for (const std::string& name : names) {
    std::ofstream(path + "/" + name) << std::string(kChildSize, 'x');
  }
}

void CopyFiles(benchmark::State& state) {
  const TempDir directory;
  MakeFiles(directory.File("source"), NamesFor(state));
  for (auto _ : state) {
    state.PauseTiming();
    std::filesystem::remove_all(directory.File("goal"));
    state.ResumeTiming();
    std::filesystem::copy(directory.File("source"), directory.File("goal"));
  }
}

std::string Prefix() {
  std::string prefix;
  for (std::size_t level = 1; level < kDepth; ++level) prefix += std::string(kWay) + "/";
  return prefix;
}

bool WalkByOpens(aoStorage& storage, const std::string& name) {
  std::array<StreamPtr, kDepth> levels;
  levels[0].reset(storage.OpenStream(kWay, kReadFlags));
  for (std::size_t level = 1; level < kDepth && levels[level - 1]; ++level) {
    const char* const step = level + 1 < kDepth ? kWay : name.c_str();
    levels[level].reset(levels[level - 1]->OpenStream(step, kReadFlags));
  }
  const bool found = levels.back() != nullptr;
  for (std::size_t level = kDepth; level-- > 0;) levels[level].reset();
  return found;
}

void Path(benchmark::State& state, bool byLoader) {
  const TempDir directory;
  const File file(directory.File("store"));
  const auto names = NamesFor(state);
  if (!file.folder || !MakeAll(*file.storage, names) || !MakeAll(*file.folder, names))
    return Expect(state, false);
  const StreamPtr second(file.folder->CreateStream(kWay, PackKind(true), kWriteFlags));
  if (!second || !MakeAll(*second, names)) return Expect(state, false);
  const StreamPtr third(second->CreateStream(kWay, PackKind(true), kWriteFlags));
  if (!third || !MakeAll(*third, names)) return Expect(state, false);
  const auto order = Shuffled(names.size(), 2);
  std::size_t step = 0;
  for (auto _ : state) {
    const std::string& name = names[order[step++ % order.size()]];
    CPathLoader loader;
    const bool found =
        byLoader ? loader.GetStreamByPath(file.storage.get(), Prefix() + name, 0, 0) != nullptr
                 : WalkByOpens(*file.storage, name);
    if (!found) return Expect(state, false);
  }
}

void PathFiles(benchmark::State& state) {
  const TempDir directory;
  const auto names = NamesFor(state);
  std::string path = directory.File("root");
  for (std::size_t level = 0; level < kDepth; ++level) {
    MakeFiles(path, names);
    path += std::string("/") + kWay;
  }
  const std::string prefix = directory.File("root/") + Prefix();
  const auto order = Shuffled(names.size(), 2);
  std::size_t step = 0;
  for (auto _ : state) {
    const std::string file = prefix + names[order[step++ % order.size()]];
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return Expect(state, false);
    ::close(descriptor);
  }
}

void Counts(benchmark::internal::Benchmark* row) { row->Arg(1000)->Arg(10000)->Arg(100000); }

BENCHMARK(FolderAlternate)
    ->Name("folder_alternate")
    ->ArgNames({"n", "objects"})
    ->ArgsProduct({{1000, 100000}, {1, 2}});
BENCHMARK_CAPTURE(FolderWalk, opens, false)->Name("folder_walk")->ArgName("n")->Apply(Counts);
BENCHMARK_CAPTURE(FolderWalk, names, true)->Name("folder_enum")->ArgName("n")->Apply(Counts);
BENCHMARK_CAPTURE(Root, alternate, RootWork::kAlternate)
    ->Name("root_alternate")
    ->ArgName("n")
    ->Apply(Counts);
BENCHMARK_CAPTURE(Root, scan, RootWork::kScan)->Name("root_scan")->ArgName("n")->Apply(Counts);
BENCHMARK_CAPTURE(Root, open, RootWork::kOpen)->Name("open_file")->ArgName("n")->Apply(Counts);
BENCHMARK(CopyTree)->Name("copy")->ArgName("n")->Arg(1000)->Arg(10000);
BENCHMARK(CopyFiles)->Name("copy_files")->ArgName("n")->Arg(1000)->Arg(10000);
BENCHMARK_CAPTURE(Path, loader, true)->Name("path")->ArgName("n")->Arg(1000);
BENCHMARK_CAPTURE(Path, opens, false)->Name("path_opens")->ArgName("n")->Arg(1000);
BENCHMARK(PathFiles)->Name("path_files")->ArgName("n")->Arg(1000);

}  // namespace
}  // namespace aobench
