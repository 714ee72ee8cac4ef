/// @file
/// What the library is held against without any store: the bare calls, a folder of plain files, and
/// plain copies.
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "../bare_file.h"
#include "store.h"

extern char** environ;

namespace aobench {
namespace {

/// The calls that the bytes of each work cannot do without, on a file that stays open: a record of
/// 80 bytes and a block of 20 bytes and the data for whatever has a name, the data alone for
/// whatever is found already. The records lie at the front, the blocks behind them; every place is
/// known, nothing is looked up and nothing is asked of the file.
class BareStore final : public Store {
 public:
  explicit BareStore(bool useMapping) : mapped(useMapping) {}
  ~BareStore() override { Unmap(); }

  Outcome Create(const Plan& plan) override {
    Remember(plan);
    end = named() ? static_cast<std::int64_t>(plan.count * 2 * kSlotSize) : 0;
    places.assign(named() ? plan.count * 2 : 0, 0);
    block.assign(kBlockHeaderSize + plan.size, 1);
    file = std::make_unique<BareFile>(File("bare"), BareFile::Mode::kCreate);
    return DoneIf(file->IsOpen());
  }
  void Close() override {
    Unmap();
    file.reset();
  }

  Outcome BeginReads() override {
    next = 0;
    if (!mapped) return Outcome::kDone;
    // Far beyond the end of the file, as one maps a file that grows.
    const int descriptor = ::open(File("bare").c_str(), O_RDONLY | O_CLOEXEC);
    void* const at = ::mmap(nullptr, kMapSize, PROT_READ, MAP_SHARED, descriptor, 0);
    ::close(descriptor);
    if (at == MAP_FAILED) return Outcome::kFailed;
    map = static_cast<const std::uint8_t*>(at);
    return Outcome::kDone;
  }

  Outcome Put(Key key, const void* bytes, std::size_t size) override {
    // A place that a removed stream has left is taken again.
    std::int64_t place = end;
    if (!vacated.empty()) {
      place = vacated.back();
      vacated.pop_back();
    } else {
      end += static_cast<std::int64_t>(kBlockHeaderSize + size);
    }
    places[key.index] = place;
    std::memcpy(block.data() + kBlockHeaderSize, bytes, size);
    return DoneIf(file->WriteAt(place, block.data(), kBlockHeaderSize + size) &&
                  file->WriteAt(Slot(key), record, kSlotSize));
  }
  Outcome Fetch(Key key, void* bytes, std::size_t size) override {
    if (map != nullptr) {
      std::memcpy(record, map + Slot(key), kSlotSize);
      std::memcpy(bytes, map + Data(key), size);
      return Outcome::kDone;
    }
    std::uint8_t header[kBlockHeaderSize];
    return DoneIf(file->ReadAt(Slot(key), record, kSlotSize) &&
                  file->ReadTwoAt(places[key.index], header, sizeof header, bytes, size));
  }
  Outcome Remove(Key key) override {
    vacated.push_back(places[key.index]);
    return DoneIf(file->WriteAt(Slot(key), record, kSlotSize));
  }

  Outcome SetAgain(Key key, const void* bytes, std::size_t size) override {
    return DoneIf(file->WriteAt(Data(key), bytes, size));
  }
  Outcome Get(Key key, void* bytes, std::size_t size) override {
    if (map != nullptr) {
      std::memcpy(bytes, map + Data(key), size);
      return Outcome::kDone;
    }
    return DoneIf(file->ReadAt(Data(key), bytes, size));
  }
  Outcome OpenAndGet(Key key, void* bytes, std::size_t size) override {
    const BareFile opened(File("bare"), BareFile::Mode::kReadOnly);
    return DoneIf(opened.IsOpen() && opened.ReadAt(Slot(key), record, kSlotSize) &&
                  opened.ReadAt(Data(key), bytes, size));
  }

  Outcome Append(int stream, const void* bytes, std::size_t size) override {
    if (stream == 0 && Given().content == Content::kRecords) records.push_back(end);
    end += static_cast<std::int64_t>(size);
    return DoneIf(file->WriteAt(end - static_cast<std::int64_t>(size), bytes, size));
  }
  Outcome ReadNext(void* bytes, std::size_t size) override {
    const std::int64_t place = next;
    next += static_cast<std::int64_t>(size);
    return CopyOut(place, bytes, size);
  }
  /// A read that lies in one record, so that it is one call.
  Outcome ReadAt(std::uint32_t position, void* bytes, std::size_t size) override {
    const std::size_t recordSize = Given().size;
    const std::size_t within = position % recordSize;
    return CopyOut(records[position / recordSize] + static_cast<std::int64_t>(within), bytes, size);
  }

 private:
  static constexpr std::size_t kMapSize = std::size_t{2} << 30;

  bool named() const {
    return Given().content != Content::kPieces && Given().content != Content::kRecords;
  }
  static std::int64_t Slot(Key key) { return static_cast<std::int64_t>(key.index * kSlotSize); }
  std::int64_t Data(Key key) const {
    return places[key.index] + static_cast<std::int64_t>(kBlockHeaderSize);
  }
  Outcome CopyOut(std::int64_t place, void* bytes, std::size_t size) {
    if (map == nullptr) return DoneIf(file->ReadAt(place, bytes, size));
    std::memcpy(bytes, map + place, size);
    return Outcome::kDone;
  }
  void Unmap() {
    if (map != nullptr) ::munmap(const_cast<std::uint8_t*>(map), kMapSize);
    map = nullptr;
  }

  bool mapped;
  std::unique_ptr<BareFile> file;
  const std::uint8_t* map = nullptr;
  std::int64_t end = 0, next = 0;
  std::uint8_t record[kSlotSize] = {};
  std::vector<std::uint8_t> block;
  std::vector<std::int64_t> places, vacated, records;
};

/// One file for each name. One stream in pieces is left out: on an open file it is the bare calls.
class FilesStore final : public Store {
 public:
  Outcome Create(const Plan& plan) override {
    Remember(plan);
    path = plan.directory + "/";
    prefix = path.size();
    return Outcome::kDone;
  }
  void Close() override {}

  Outcome Put(Key key, const void* bytes, std::size_t size) override {
    return Write(key, O_WRONLY | O_CREAT | O_EXCL, bytes, size);
  }
  Outcome SetAgain(Key key, const void* bytes, std::size_t size) override {
    return Write(key, O_WRONLY, bytes, size);
  }
  Outcome Fetch(Key key, void* bytes, std::size_t size) override {
    const int descriptor = ::open(PathOf(key), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return Outcome::kFailed;
    const ssize_t got = ::read(descriptor, bytes, size);
    ::close(descriptor);
    return DoneIf(got == static_cast<ssize_t>(size));
  }
  Outcome Remove(Key key) override { return DoneIf(::unlink(PathOf(key)) == 0); }
  /// Two files, as whoever keeps an index beside the values has it: opened, read and closed.
  Outcome OpenAndGet(Key key, void* bytes, std::size_t size) override {
    const Outcome first = Fetch(key, bytes, size);
    return first == Outcome::kDone ? Fetch(key, bytes, size) : first;
  }

 private:
  const char* PathOf(Key key) {
    path.replace(prefix, std::string::npos, key.name);
    return path.c_str();
  }
  Outcome Write(Key key, int flags, const void* bytes, std::size_t size) {
    const int descriptor = ::open(PathOf(key), flags | O_CLOEXEC, 0666);
    if (descriptor < 0) return Outcome::kFailed;
    const ssize_t put = ::write(descriptor, bytes, size);
    return DoneIf(::close(descriptor) == 0 && put == static_cast<ssize_t>(size));
  }

  std::string path;
  std::size_t prefix = 0;
};

bool CopyPlainly(const std::string& from, const std::string& to) {
  constexpr std::size_t kPiece = 131072;
  const BareFile source(from, BareFile::Mode::kReadOnly);
  BareFile goal(to, BareFile::Mode::kCreate);
  std::vector<std::uint8_t> piece(kPiece);
  const std::int64_t size = source.Size();
  for (std::int64_t at = 0; at < size; at += static_cast<std::int64_t>(kPiece)) {
    const auto left = static_cast<std::size_t>(size - at);
    const std::size_t count = std::min(kPiece, left);
    if (!source.ReadAt(at, piece.data(), count) || !goal.WriteAt(at, piece.data(), count))
      return false;
  }
  return size > 0;
}

bool RunCp(std::string from, std::string to) {
  char cp[] = "cp";
  char* const arguments[] = {cp, from.data(), to.data(), nullptr};
  pid_t child = 0;
  int status = 0;
  return ::posix_spawnp(&child, cp, nullptr, nullptr, arguments, environ) == 0 &&
         ::waitpid(child, &status, 0) == child && status == 0;
}

bool Flush(const std::string& path) {
  const int descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  const bool flushed = descriptor >= 0 && ::fsync(descriptor) == 0;
  if (descriptor >= 0) ::close(descriptor);
  return flushed;
}

/// Compaction alone: a file of the bytes that are live, copied without looking at them.
class CopyStore final : public Store {
 public:
  enum class Way { kCp, kCpFlushed, kTwice };
  explicit CopyStore(Way chosen) : way(chosen) {}

  Outcome Create(const Plan& plan) override {
    Remember(plan);
    live = 0;
    return plan.content == Content::kStreamsToClean ? Outcome::kDone : Outcome::kCannot;
  }
  void Close() override {}
  Outcome Put(Key, const void*, std::size_t) override {
    ++live;
    return Outcome::kDone;
  }
  Outcome Remove(Key) override {
    --live;
    return Outcome::kDone;
  }
  Outcome EndChanges() override {
    BareFile file(File("live"), BareFile::Mode::kCreate);
    const std::vector<std::uint8_t> bytes(Given().size, 7);
    for (std::size_t i = 0; i < live; ++i) {
      if (!file.WriteAt(static_cast<std::int64_t>(i * bytes.size()), bytes.data(), bytes.size()))
        return Outcome::kFailed;
    }
    return Outcome::kDone;
  }
  Outcome Compact(const std::string& goal) override {
    const std::string source = File("live");
    switch (way) {
      case Way::kCp:
        return DoneIf(RunCp(source, goal));
      case Way::kCpFlushed:
        return DoneIf(RunCp(source, goal) && Flush(goal));
      case Way::kTwice:
        return DoneIf(CopyPlainly(source, goal) && CopyPlainly(goal, source));
    }
    return Outcome::kFailed;
  }

 private:
  Way way;
  std::size_t live = 0;
};

}  // namespace

std::int64_t Store::Bytes() const {
  std::int64_t sum = 0;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(given.directory, error)) {
    if (entry.is_regular_file(error)) sum += static_cast<std::int64_t>(entry.file_size(error));
  }
  return sum;
}

StorePtr MakeBare() { return std::make_unique<BareStore>(false); }
StorePtr MakeBareMapped() { return std::make_unique<BareStore>(true); }
StorePtr MakeFiles() { return std::make_unique<FilesStore>(); }
StorePtr MakeCp() { return std::make_unique<CopyStore>(CopyStore::Way::kCp); }
StorePtr MakeCpFlushed() { return std::make_unique<CopyStore>(CopyStore::Way::kCpFlushed); }
StorePtr MakeTwoCopies() { return std::make_unique<CopyStore>(CopyStore::Way::kTwice); }

}  // namespace aobench
