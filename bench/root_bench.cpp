/// @file
/// Files with many root streams: the cost per stream at 1,000, 10,000 and 100,000 of them.
///
///   create        one plain stream after the other, in a new file
///   open          every stream once, in random order
///   remove        every stream once, in random order: opened, then removed
///   alternate     a stream removed at a random place and another one created in its slot, n
///   staying n open_file     the file opened with its map; one item is one stream of it
///
///   bare_needed   the 80-byte reads and writes at the same places, and the directory blocks where
///   it takes them
#include <cstring>
#include <filesystem>

#include "bare_file.h"
#include "support.h"

namespace aobench {
namespace {

using namespace aostorage;

using Names = std::vector<std::string>;

constexpr std::size_t kCounts[] = {1000, 10000, 100000};
constexpr std::size_t kAlternations = 10000;

// ---------------------------------------------------------------------------------------- the
// library

Failure CreateStreams(aoStorage& storage, const Names& names) {
  const Deadline deadline;
  for (std::size_t i = 0; i < names.size(); ++i) {
    const StreamPtr stream(storage.CreateStream(names[i].c_str(), kWriteFlags));
    if (!stream) return "a stream is not made";
    if (deadline.Passed(i)) return Deadline::kFailure;
  }
  return nullptr;
}

Failure OpenStreams(aoStorage& storage, const Names& names,
                    const std::vector<std::uint32_t>& order) {
  const Deadline deadline;
  for (std::size_t i = 0; i < order.size(); ++i) {
    const char* name = names[order[i]].c_str();
    const StreamPtr stream(storage.OpenStream(name, kReadFlags));
    if (!stream || std::strcmp(stream->GetName(), name) != 0) return "a stream is not found";
    if (deadline.Passed(i)) return Deadline::kFailure;
  }
  return nullptr;
}

Failure RemoveStreams(aoStorage& storage, const Names& names,
                      const std::vector<std::uint32_t>& order) {
  const Deadline deadline;
  for (std::size_t i = 0; i < order.size(); ++i) {
    if (!RemoveStream(StreamPtr(storage.OpenStream(names[order[i]].c_str(), kWriteFlags)))) {
      return "a stream is not removed";
    }
    if (deadline.Passed(i)) return Deadline::kFailure;
  }
  return nullptr;
}

/// How many root streams a walk meets, -1 when the file does not open.
std::int64_t CountStreams(const std::string& path) {
  const StoragePtr storage(aoStorage::Open(path.c_str(), kReadFlags, 0));
  if (!storage) return -1;
  CIterateSortedStreams scan;
  std::int64_t count = 0;
  while (storage->IterateSortedStreamsNoOPENS(&scan) == 1) ++count;
  return count;
}

/// After a reopen the file has exactly these names.
Failure Verify(const std::string& path, const Names& names) {
  if (CountStreams(path) != static_cast<std::int64_t>(names.size()))
    return "the file has other streams";
  const StoragePtr storage(aoStorage::Open(path.c_str(), kReadFlags, 0));
  if (!storage) return "the file does not open again";
  return OpenStreams(*storage, names, Shuffled(names.size(), 1));
}

/// A file with `n` empty root streams, open.
struct RootFile {
  explicit RootFile(std::size_t n)
      : names(NumberedNames('r', n)),
        path(directory.File("store")),
        storage(aoStorage::Create(path.c_str(), kWriteFlags, 0)) {}
  Failure Fill() { return storage ? CreateStreams(*storage, names) : "the file is not made"; }

  TempDir directory;
  Names names;
  std::string path;
  StoragePtr storage;
};

void Create(benchmark::State& state, std::size_t n) {
  const auto items = static_cast<std::int64_t>(n);
  MeasureRounds(state, RoundsFor(items), items, [n](Stopwatch& watch) -> Failure {
    RootFile file(n);
    {
      const Timed timed(watch);
      if (const Failure failure = file.Fill()) return failure;
    }
    file.storage.reset();
    return Verify(file.path, file.names);
  });
}

void Open(benchmark::State& state, std::size_t n) {
  RootFile file(n);
  if (const Failure failure = file.Fill()) return Fail(state, failure);
  file.storage.reset(aoStorage::Open(file.path.c_str(), kWriteFlags, 0));
  if (!file.storage) return Fail(state, "the file does not open again");
  const auto order = Shuffled(n, 2);
  const auto items = static_cast<std::int64_t>(n);
  MeasureRounds(state, RoundsFor(items, 100000), items, [&](Stopwatch& watch) -> Failure {
    const Timed timed(watch);
    return OpenStreams(*file.storage, file.names, order);
  });
}

void Remove(benchmark::State& state, std::size_t n) {
  const auto order = Shuffled(n, 3);
  const auto items = static_cast<std::int64_t>(n);
  MeasureRounds(state, RoundsFor(items), items, [&](Stopwatch& watch) -> Failure {
    RootFile file(n);
    if (const Failure failure = file.Fill()) return failure;
    {
      const Timed timed(watch);
      if (const Failure failure = RemoveStreams(*file.storage, file.names, order)) return failure;
    }
    file.storage.reset();
    return CountStreams(file.path) == 0 ? nullptr : "a removed stream is back";
  });
}

void Alternate(benchmark::State& state, std::size_t n) {
  RootFile file(n);
  if (const Failure failure = file.Fill()) return Fail(state, failure);
  const Names fresh = NumberedNames('s', kAlternations);
  const auto fileSize = std::filesystem::file_size(file.path);
  std::vector<std::uint32_t> places;
  for (std::uint64_t seed = 4; places.size() < kAlternations; ++seed) {
    const auto more = Shuffled(n, seed);
    places.insert(places.end(), more.begin(), more.end());
  }
  const auto replace = [&file](std::uint32_t place, const std::string& name) -> Failure {
    const std::string& old = file.names[place];
    if (!RemoveStream(StreamPtr(file.storage->OpenStream(old.c_str(), kWriteFlags))))
      return "a stream is not removed";
    const StreamPtr stream(file.storage->CreateStream(name.c_str(), kWriteFlags));
    return stream ? nullptr : "a stream is not made";
  };
  MeasureRounds(state, 1, kAlternations, [&](Stopwatch& watch) -> Failure {
    const Deadline deadline;
    const Timed timed(watch);
    for (std::size_t i = 0; i < kAlternations; ++i) {
      if (const Failure failure = replace(places[i], fresh[i])) return failure;
      file.names[places[i]] = fresh[i];
      if (deadline.Passed(i)) return Deadline::kFailure;
    }
    return nullptr;
  });
  file.storage.reset();
  if (state.error_occurred()) return;
  if (const Failure failure = Verify(file.path, file.names)) return Fail(state, failure);
  if (std::filesystem::file_size(file.path) != fileSize)
    Fail(state, "a creation did not take the vacated slot");
}

void OpenFile(benchmark::State& state, std::size_t n) {
  RootFile file(n);
  if (const Failure failure = file.Fill()) return Fail(state, failure);
  file.storage.reset();
  if (const Failure failure = Verify(file.path, file.names)) return Fail(state, failure);
  const auto items = static_cast<std::int64_t>(n);
  MeasureRounds(state, RoundsFor(items, 500000), items, [&](Stopwatch& watch) -> Failure {
    const Timed timed(watch);
    const StoragePtr storage(aoStorage::Open(file.path.c_str(), kReadFlags, 0));
    return storage ? nullptr : "the file does not open";
  });
}

// --------------------------------------------------------------------------------------- the bare
// calls

std::size_t DirectoryBlocks(std::size_t n) {
  return (n + kReservedSlots + kSlotsPerDirectory - 1) / kSlotsPerDirectory;
}

Failure StartBareFile(BareFile& file) {
  const std::vector<std::uint8_t> start(static_cast<std::size_t>(DirectoryOffset(1)));
  return file.IsOpen() && file.WriteAt(0, start.data(), start.size()) ? nullptr
                                                                      : "the bare file is not made";
}

/// Appends directory block `index` and links it: its place asked, the block, four bytes in the one
/// before.
Failure AppendBareDirectory(BareFile& file, std::size_t index) {
  const std::uint8_t block[kDirectorySize] = {};
  if (file.Size() != DirectoryOffset(index)) return "the bare file has another size";
  if (!file.WriteAt(DirectoryOffset(index), block, sizeof block))
    return "a bare directory block is not written";
  return file.WriteAt(DirectoryOffset(index - 1) + 8, block, 4) ? nullptr
                                                                : "a bare link is not written";
}

Failure CreateBareSlots(BareFile& file, std::size_t n) {
  std::size_t blocks = 1;
  std::uint8_t slot[kSlotSize] = {};
  for (std::size_t i = 0; i < n; ++i) {
    if (SlotOffset(i) >= DirectoryOffset(blocks)) {
      if (const Failure failure = AppendBareDirectory(file, blocks)) return failure;
      ++blocks;
    }
    if (!file.ReadAt(SlotOffset(i), slot, sizeof slot)) return "a bare read failed";
    std::memcpy(slot, &i, sizeof i);
    if (!file.WriteAt(SlotOffset(i), slot, sizeof slot)) return "a bare write failed";
    std::memset(slot, 0, sizeof i);
  }
  return nullptr;
}

void CreateBare(benchmark::State& state, std::size_t n) {
  const auto items = static_cast<std::int64_t>(n);
  MeasureRounds(state, RoundsFor(items), items, [n](Stopwatch& watch) -> Failure {
    const TempDir directory;
    BareFile file(directory.File("bare"), BareFile::Mode::kCreate);
    if (const Failure failure = StartBareFile(file)) return failure;
    {
      const Timed timed(watch);
      if (const Failure failure = CreateBareSlots(file, n)) return failure;
    }
    return file.Size() == DirectoryOffset(DirectoryBlocks(n)) ? nullptr
                                                              : "the bare file has another size";
  });
}

/// Reads each slot at a random place once and, when asked, writes it back.
void VisitBare(benchmark::State& state, std::size_t n, bool write) {
  const TempDir directory;
  BareFile file(directory.File("bare"), BareFile::Mode::kCreate);
  if (const Failure failure = StartBareFile(file)) return Fail(state, failure);
  if (const Failure failure = CreateBareSlots(file, n)) return Fail(state, failure);
  const auto order = Shuffled(n, 2);
  const auto items = static_cast<std::int64_t>(n);
  MeasureRounds(state, RoundsFor(items, 100000), items, [&](Stopwatch& watch) -> Failure {
    std::uint8_t slot[kSlotSize];
    const Timed timed(watch);
    for (const std::uint32_t place : order) {
      if (!file.ReadAt(SlotOffset(place), slot, sizeof slot)) return "a bare read failed";
      if (std::memcmp(slot, &place, sizeof place) != 0) return "a bare read gave other bytes";
      if (write && !file.WriteAt(SlotOffset(place), slot, sizeof slot))
        return "a bare write failed";
    }
    return nullptr;
  });
}

/// One item is a whole alternation: slot read and written to remove, slot read and written to
/// create.
void AlternateBare(benchmark::State& state, std::size_t n) {
  const TempDir directory;
  BareFile file(directory.File("bare"), BareFile::Mode::kCreate);
  if (const Failure failure = StartBareFile(file)) return Fail(state, failure);
  if (const Failure failure = CreateBareSlots(file, n)) return Fail(state, failure);
  const auto order = Shuffled(n, 4);
  MeasureRounds(state, 1, kAlternations, [&](Stopwatch& watch) -> Failure {
    std::uint8_t slot[kSlotSize];
    const Timed timed(watch);
    for (std::size_t i = 0; i < kAlternations; ++i) {
      const std::uint32_t place = order[i % n];
      for (int half = 0; half < 2; ++half) {
        if (!file.ReadAt(SlotOffset(place), slot, sizeof slot)) return "a bare read failed";
        if (std::memcmp(slot, &place, sizeof place) != 0) return "a bare read gave other bytes";
        if (!file.WriteAt(SlotOffset(place), slot, sizeof slot)) return "a bare write failed";
      }
    }
    return nullptr;
  });
}

/// Opens the file and reads its directory blocks, the first one together with the header.
void OpenFileBare(benchmark::State& state, std::size_t n) {
  const TempDir directory;
  const std::string path = directory.File("bare");
  {
    BareFile file(path, BareFile::Mode::kCreate);
    if (const Failure failure = StartBareFile(file)) return Fail(state, failure);
    if (const Failure failure = CreateBareSlots(file, n)) return Fail(state, failure);
  }
  const auto items = static_cast<std::int64_t>(n);
  MeasureRounds(state, RoundsFor(items, 500000), items, [&](Stopwatch& watch) -> Failure {
    std::uint8_t block[kHeaderSize + kDirectorySize];
    const Timed timed(watch);
    const BareFile file(path, BareFile::Mode::kReadOnly);
    if (!file.IsOpen() || file.Size() < 0) return "the bare file does not open";
    if (!file.ReadAt(0, block, sizeof block)) return "a bare read failed";
    for (std::size_t i = 1; i < DirectoryBlocks(n); ++i) {
      if (!file.ReadAt(DirectoryOffset(i), block, kDirectorySize)) return "a bare read failed";
    }
    return nullptr;
  });
}

[[maybe_unused]] const bool registered = [] {
  for (const std::size_t n : kCounts) {
    const auto name = [n](const char* operation, const char* who) {
      return std::string("root/") + operation + "/" + who + "/n:" + std::to_string(n);
    };
    Register(name("create", "aostorage"), 1, Create, n);
    Register(name("create", "bare_needed"), 1, CreateBare, n);
    Register(name("open", "aostorage"), 1, Open, n);
    Register(name("open", "bare_needed"), 1, VisitBare, n, false);
    Register(name("remove", "aostorage"), 1, Remove, n);
    Register(name("remove", "bare_needed"), 1, VisitBare, n, true);
    Register(name("alternate", "aostorage"), 1, Alternate, n);
    Register(name("alternate", "bare_needed"), 1, AlternateBare, n);
    Register(name("open_file", "aostorage"), 1, OpenFile, n);
    Register(name("open_file", "bare_needed"), 1, OpenFileBare, n);
  }
  return true;
}();

}  // namespace
}  // namespace aobench
