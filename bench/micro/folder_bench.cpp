/// @file
/// One folder with many children of 32 bytes: the cost per child at 100 to 100,000 of them.
///
///   create        n new children, each written and released, in a new folder
///   open          every child once, in random order
///   rewrite       every child once, in random order: opened and its 32 bytes written anew
///   remove_half   n / 2 children at random: opened, then removed
///   create_half   n / 2 new children with their bytes into the vacated slots
///   walk          all children by OpenStreamFirst and OpenStreamNext
///   enum          all names by EnumStreams
///
/// With objects:2 the operations go in turn to two objects that are open on the folder at the same
/// time. bare_needed makes the calls that the bytes of a child need at least, in a file where they
/// lie likewise.
#include <algorithm>
#include <array>
#include <cstring>

#include "../bare_file.h"
#include "micro.h"

namespace aobench {
namespace {

using namespace aostorage;

constexpr std::size_t kCounts[] = {100, 1000, 10000, 100000};
constexpr std::uint32_t kChildSize = 32;

/// The bytes of one child in its generation.
using Content = std::array<std::uint8_t, kChildSize>;

Content ContentOf(std::uint32_t child, std::uint32_t generation) {
  Content content;
  content.fill(0x5A);
  std::memcpy(content.data(), &child, sizeof child);
  std::memcpy(content.data() + sizeof child, &generation, sizeof generation);
  return content;
}

/// A storage file with one folder, open through one or two objects.
class FolderFile {
 public:
  FolderFile(std::size_t n, std::size_t objectCount)
      : childNames(NumberedNames('c', n)), generations(n, 0), folders(objectCount) {}

  /// Makes the empty folder.
  Failure Make() {
    storage.reset(aoStorage::Create(Path().c_str(), kWriteFlags, 0));
    if (!storage) return "the file is not made";
    if (!StreamPtr(storage->CreateStream("folder", PackKind(true), kWriteFlags)))
      return "the folder is not made";
    return OpenFolders();
  }

  /// Closes and opens all, then reads every child: nothing is missing, and the file is warm.
  Failure Verify() {
    for (StreamPtr& folder : folders) folder.reset();
    storage.reset(aoStorage::Open(Path().c_str(), kWriteFlags, 0));
    if (!storage) return "the file does not open again";
    if (const Failure failure = OpenFolders()) return failure;
    const Deadline deadline;
    for (std::uint32_t child = 0; child < Count(); ++child) {
      for (std::size_t object = 0; object < folders.size(); ++object) {
        if (const Failure failure = Check(child, object)) return failure;
      }
      if (deadline.Passed(child)) return Deadline::kFailure;
    }
    return nullptr;
  }

  // The operations on one child. `turn` chooses the object.

  Failure Create(std::uint32_t child, std::size_t turn) {
    const StreamPtr stream(Folder(turn).CreateStream(Name(child), PackKind(false), kWriteFlags));
    if (!stream) return "a child is not made";
    return Write(*stream, child);
  }
  Failure Open(std::uint32_t child, std::size_t turn) {
    const StreamPtr stream(Folder(turn).OpenStream(Name(child), kReadFlags));
    if (!stream || std::strcmp(stream->GetName(), Name(child)) != 0) return "a child is not found";
    return stream->GetLength() == kChildSize ? nullptr : "a child has another length";
  }
  Failure Rewrite(std::uint32_t child, std::size_t turn) {
    const StreamPtr stream(Folder(turn).OpenStream(Name(child), kWriteFlags));
    if (!stream) return "a child is not found";
    ++generations[child];
    return Write(*stream, child);
  }
  Failure Remove(std::uint32_t child, std::size_t turn) {
    return RemoveStream(StreamPtr(Folder(turn).OpenStream(Name(child), kWriteFlags)))
               ? nullptr
               : "a child is not removed";
  }

  /// Every name that a walk meets, which can be slow: with a limit.
  Failure Walk(std::size_t& count) {
    const Deadline deadline;
    std::uint32_t cookie = 0;
    count = 0;
    StreamPtr child(Folder(0).OpenStreamFirst(cookie, kReadFlags));
    while (child) {
      if (child->GetLength() != kChildSize) return "a child has another length";
      child.reset();  // before the next one opens, as a caller would
      if (deadline.Passed(++count)) return Deadline::kFailure;
      child.reset(Folder(0).OpenStreamNext(cookie, kReadFlags));
    }
    return nullptr;
  }

  aoStream& Folder(std::size_t turn) { return *folders[turn % folders.size()]; }
  std::uint32_t Count() const { return static_cast<std::uint32_t>(childNames.size()); }
  const std::vector<std::string>& Names() const { return childNames; }

 private:
  std::string Path() const { return directory.File("store"); }
  const char* Name(std::uint32_t child) const { return childNames[child].c_str(); }

  Failure OpenFolders() {
    for (StreamPtr& folder : folders) {
      folder.reset(storage->OpenStream("folder", kWriteFlags));
      if (!folder) return "the folder does not open";
    }
    return nullptr;
  }

  Failure Write(aoStream& stream, std::uint32_t child) {
    const Content content = ContentOf(child, generations[child]);
    return stream.Write(content.data(), kChildSize) == kChildSize ? nullptr : "a write failed";
  }

  Failure Check(std::uint32_t child, std::size_t turn) {
    const StreamPtr stream(Folder(turn).OpenStream(Name(child), kReadFlags));
    if (!stream) return "a child is missing after a reopen";
    Content content;
    if (stream->GetLength() != kChildSize ||
        stream->Read(content.data(), kChildSize) != kChildSize) {
      return "a child is not as long as it was written";
    }
    return content == ContentOf(child, generations[child]) ? nullptr : "a child has other bytes";
  }

  TempDir directory;
  std::vector<std::string> childNames;
  std::vector<std::uint32_t> generations;
  StoragePtr storage;
  std::vector<StreamPtr> folders;  // end before the storage
};

using Operation = Failure (FolderFile::*)(std::uint32_t child, std::size_t turn);

/// The operation on each child named, the objects taking turns.
Failure Each(FolderFile& file, const std::vector<std::uint32_t>& children, Operation operation) {
  const Deadline deadline;
  for (std::size_t i = 0; i < children.size(); ++i) {
    if (const Failure failure = (file.*operation)(children[i], i)) return failure;
    if (deadline.Passed(i)) return Deadline::kFailure;
  }
  return nullptr;
}

Failure TimedEach(Stopwatch& watch, FolderFile& file, const std::vector<std::uint32_t>& children,
                  Operation operation) {
  const Timed timed(watch);
  return Each(file, children, operation);
}

std::vector<std::uint32_t> Ascending(std::size_t count) {
  auto order = Shuffled(count, 0);
  std::sort(order.begin(), order.end());
  return order;
}

std::vector<std::uint32_t> RandomHalf(std::size_t count) {
  auto order = Shuffled(count, 20);
  order.resize(count / 2);
  return order;
}

/// A verified folder of n children, kept from one benchmark to the next: all that use it leave n
/// children.
Failure Provide(std::size_t n, std::size_t objects, FolderFile*& file) {
  static std::unique_ptr<FolderFile> last;
  static std::size_t lastObjects = 0;
  if (!last || last->Count() != n || lastObjects != objects) {
    last.reset();
    auto made = std::make_unique<FolderFile>(n, objects);
    if (const Failure failure = made->Make()) return failure;
    if (const Failure failure = Each(*made, Ascending(n), &FolderFile::Create)) return failure;
    last = std::move(made);
    lastObjects = objects;
  }
  file = last.get();
  const Failure failure = file->Verify();
  if (failure != nullptr) last.reset();
  return failure;
}

void Create(benchmark::State& state, std::size_t n, std::size_t objects) {
  const auto items = static_cast<std::int64_t>(n);
  MeasureRounds(state, RoundsFor(items), items, [&](Stopwatch& watch) -> Failure {
    FolderFile file(n, objects);
    if (const Failure failure = file.Make()) return failure;
    if (const Failure failure = TimedEach(watch, file, Ascending(n), &FolderFile::Create))
      return failure;
    return file.Verify();
  });
}

/// Opens or rewrites every child in random order.
void Visit(benchmark::State& state, std::size_t n, std::size_t objects, Operation operation) {
  FolderFile* file = nullptr;
  if (const Failure failure = Provide(n, objects, file)) return Fail(state, failure);
  const auto order = Shuffled(n, 21);
  const auto items = static_cast<std::int64_t>(n);
  MeasureRounds(state, RoundsFor(items, 100000), items,
                [&](Stopwatch& watch) { return TimedEach(watch, *file, order, operation); });
  if (state.error_occurred()) return;
  if (const Failure failure = file->Verify()) Fail(state, failure);
}

/// Removes half of the children and creates them again; `timeRemoval` chooses which of the two is
/// timed.
void Half(benchmark::State& state, std::size_t n, std::size_t objects, bool timeRemoval) {
  FolderFile* file = nullptr;
  if (const Failure failure = Provide(n, objects, file)) return Fail(state, failure);
  const auto half = RandomHalf(n);
  const auto items = static_cast<std::int64_t>(half.size());
  MeasureRounds(state, RoundsFor(items), items, [&](Stopwatch& watch) -> Failure {
    Stopwatch unused;
    if (const Failure failure =
            TimedEach(timeRemoval ? watch : unused, *file, half, &FolderFile::Remove)) {
      return failure;
    }
    return TimedEach(timeRemoval ? unused : watch, *file, half, &FolderFile::Create);
  });
  if (state.error_occurred()) return;
  if (file->Folder(0).GetNumChildren() > n)
    return Fail(state, "a creation did not take a vacated slot");
  if (const Failure failure = file->Verify()) Fail(state, failure);
}

void Walk(benchmark::State& state, std::size_t n) {
  FolderFile* file = nullptr;
  if (const Failure failure = Provide(n, 1, file)) return Fail(state, failure);
  const auto items = static_cast<std::int64_t>(n);
  MeasureRounds(state, RoundsFor(items, 100000), items, [&](Stopwatch& watch) -> Failure {
    std::size_t count = 0;
    const Timed timed(watch);
    if (const Failure failure = file->Walk(count)) return failure;
    return count == n ? nullptr : "the walk met another count";
  });
}

/// The walk before it tells whether the roads below are fast enough: EnumStreams itself knows no
/// limit.
void Enum(benchmark::State& state, std::size_t n) {
  FolderFile* file = nullptr;
  if (const Failure failure = Provide(n, 1, file)) return Fail(state, failure);
  std::size_t walked = 0;
  if (const Failure failure = file->Walk(walked)) return Fail(state, failure);
  const auto items = static_cast<std::int64_t>(n);
  MeasureRounds(state, RoundsFor(items, 100000), items, [&](Stopwatch& watch) -> Failure {
    std::vector<std::string> names;
    {
      const Timed timed(watch);
      file->Folder(0).EnumStreams(names);
    }
    std::sort(names.begin(), names.end());
    return names == file->Names() ? nullptr : "the names are not those of the children";
  });
}

// --------------------------------------------------------------------------------------- the bare
// calls

// Each creation appends a block of the folder with the child's record, then the child's block.
constexpr std::int64_t kFolderBlock = DirectoryOffset(1);
constexpr std::size_t kRecordBlock = kBlockHeaderSize + kSlotSize;
constexpr std::size_t kChildBlock = kBlockHeaderSize + kChildSize;

constexpr std::int64_t RecordOffset(std::uint32_t child) {
  return kFolderBlock + static_cast<std::int64_t>(kBlockHeaderSize + 4 + kBlockHeaderSize +
                                                  child * (kRecordBlock + kChildBlock));
}
constexpr std::int64_t ChildBlockOffset(std::uint32_t child) {
  return RecordOffset(child) + static_cast<std::int64_t>(kSlotSize);
}

/// Writes the bytes of n children as they lie in a storage file, in as few calls as their order
/// allows.
Failure FillBare(BareFile& file, std::uint32_t n) {
  const std::vector<std::uint8_t> start(static_cast<std::size_t>(RecordOffset(0)));
  if (!file.IsOpen() || !file.WriteAt(0, start.data(), start.size()))
    return "the bare file is not made";
  std::uint8_t bytes[kRecordBlock + kChildBlock] = {};
  for (std::uint32_t child = 0; child < n; ++child) {
    std::memcpy(bytes, &child, sizeof child);
    if (!file.WriteAt(RecordOffset(child), bytes, sizeof bytes)) return "a bare write failed";
  }
  return nullptr;
}

Failure VisitBareChild(BareFile& file, std::uint32_t child, bool write) {
  std::uint8_t record[kSlotSize], header[kBlockHeaderSize];
  if (!file.ReadAt(RecordOffset(child), record, sizeof record)) return "a bare read failed";
  if (std::memcmp(record, &child, sizeof child) != 0) return "a bare read gave other bytes";
  if (!write) return nullptr;
  const Content content = ContentOf(child, 0);
  if (!file.ReadAt(ChildBlockOffset(child), header, sizeof header)) return "a bare read failed";
  const bool written =
      file.WriteAt(ChildBlockOffset(child) + static_cast<std::int64_t>(kBlockHeaderSize),
                   content.data(), kChildSize);
  return written ? nullptr : "a bare write failed";
}

/// The child's record read; to rewrite also its block header read and its data written.
void VisitBare(benchmark::State& state, std::size_t n, bool write) {
  const TempDir directory;
  BareFile file(directory.File("bare"), BareFile::Mode::kCreate);
  if (const Failure failure = FillBare(file, static_cast<std::uint32_t>(n)))
    return Fail(state, failure);
  const auto order = Shuffled(n, 21);
  const auto items = static_cast<std::int64_t>(n);
  MeasureRounds(state, RoundsFor(items, 100000), items, [&](Stopwatch& watch) -> Failure {
    const Timed timed(watch);
    for (const std::uint32_t child : order) {
      if (const Failure failure = VisitBareChild(file, child, write)) return failure;
    }
    return nullptr;
  });
}

[[maybe_unused]] const bool registered = [] {
  for (const std::size_t n : kCounts) {
    const std::string count = "/n:" + std::to_string(n);
    for (const std::size_t objects : {std::size_t{1}, std::size_t{2}}) {
      const auto name = [&](const char* operation) {
        return std::string("folder/") + operation + "/aostorage" + count +
               "/objects:" + std::to_string(objects);
      };
      Register(name("create"), 1, Create, n, objects);
      Register(name("open"), 1, Visit, n, objects, &FolderFile::Open);
      Register(name("rewrite"), 1, Visit, n, objects, &FolderFile::Rewrite);
      Register(name("remove_half"), 1, Half, n, objects, true);
      Register(name("create_half"), 1, Half, n, objects, false);
      if (objects == 2) continue;
      Register(name("walk"), 1, Walk, n);
      Register(name("enum"), 1, Enum, n);
    }
    Register("folder/open/bare_needed" + count + "/objects:1", 1, VisitBare, n, false);
    Register("folder/rewrite/bare_needed" + count + "/objects:1", 1, VisitBare, n, true);
  }
  return true;
}();

}  // namespace
}  // namespace aobench
