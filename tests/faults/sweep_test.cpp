// Every metadata byte, every word and every length of one file damaged in turn: what the damage
// does not touch is read, the rest ends in failure, and an inspection still covers the file.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <random>

#include <aostorage/inspect.h>

#include "folder/storage_fixture.h"
#include "support/gauntlet.h"
#include "support/size.h"
#include "support/tree_text.h"
#include "support/watchdog.h"

namespace aostorage::testing {
namespace {

class Sweep : public StorageFileTest {
 protected:
  // A stream as it reads in the sound file.
  struct Expected {
    std::string path;
    Bytes value;
    std::uint32_t directory = 0;  // the block of its root slot
    std::uint32_t reach = 0;      // the end of all that is needed to read it
    bool isFolder = false;
  };
  // A metadata record, and whose it is.
  struct Place {
    std::uint32_t offset, size;
    std::string owner;            // path of the stream; empty: of none
    std::uint32_t directory = 0;  // head of this block
    bool isHeader = false;
  };
  static constexpr std::uint32_t kNoDirectory = 0xFFFFFFFF;

  Sweep() {
    Build();
    Describe();
    WriteFile(path, sound);
    descriptor = ::open(path.c_str(), O_WRONLY);
  }
  ~Sweep() override {
    ::close(descriptor);
    std::printf("%zu damaged files of %zu bytes, %zu streams read\n", files, sound.size(), read);
  }

  // Three directory blocks, 40 streams, two levels of folders, chains of one to three blocks.
  void Build() {
    FileBuilder builder;
    builder.AddDirectory();
    builder.AddDirectory();
    std::uint32_t number = 0;
    const auto name = [&] { return std::string(3 + number % 3, static_cast<char>('0' + number)); };
    const auto plain = [&] {
      const Bytes data = Pattern(20 + number * 7, number + 1);
      ++number;
      const std::uint32_t first = builder.AddChain(data, {10 + number, 30, 300});
      return StreamRecord(name(), false, static_cast<std::uint32_t>(data.size()), first);
    };
    const auto folder = [&](const std::vector<Bytes>& records) {
      const Bytes data = FolderPayload(records);
      ++number;
      return StreamRecord(name(), true, static_cast<std::uint32_t>(data.size()),
                          builder.AddChain(data, {84, 100}));
    };
    const auto nested = [&] {
      const Bytes inner = folder({plain(), StreamRecord("", false, 0, 0), plain()});
      return folder({plain(), inner, plain()});
    };
    for (std::size_t directory = 0; directory < 3; ++directory) {
      for (std::uint32_t slot = 0; slot < 6; ++slot)
        builder.PutSlot(20 * (slot % 3) + slot, plain(), directory);
      builder.PutSlot(63, nested(), directory);
      builder.PutSlot(directory == 0 ? 62 : 61, plain(), directory);
    }
    builder.PutSlot(40, plain(), 1);
    sound = builder.bytes;
  }
  // Where everything lies, by the plain reader, whose RawImage shares nothing with the library.
  void Describe() {
    const RawImage image = ReadImage(sound);
    ASSERT_EQ(image.directories.size(), 3U);
    ASSERT_EQ(image.streams.size(), 40U);
    places.push_back({0, 32, "", 0, true});
    for (const std::uint32_t directory : image.directories)
      places.push_back({directory, 12, "", directory, false});
    std::map<std::string, Expected> byPath;
    std::vector<RawStream> all = image.streams;
    for (const RawStream& stream : all) {
      Expected expected{stream.path, stream.Value(), 0, stream.recordOffset + kSlotSize,
                        stream.kind == 1};
      places.push_back({stream.recordOffset, kSlotSize, stream.path, kNoDirectory, false});
      for (const RawBlock& block : stream.blocks) {
        places.push_back({block.offset, kBlockHeaderSize, stream.path, kNoDirectory, false});
        expected.reach = std::max(expected.reach, block.offset + block.used);
      }
      const std::size_t slash = stream.path.rfind('/');
      if (slash == std::string::npos) {
        for (const std::uint32_t directory : image.directories) {
          if (directory > stream.recordOffset) break;
          expected.directory = directory;
          expected.reach = std::max(expected.reach, directory + kDirectorySize);
        }
      } else {
        const Expected& around = byPath.at(stream.path.substr(0, slash));
        expected.directory = around.directory;
        expected.reach = std::max(expected.reach, around.reach);
      }
      if (stream.kind == 1)
        places.push_back({stream.PlaceOf(0), 4, stream.path, kNoDirectory, false});
      byPath[stream.path] = expected;
      streams.push_back(std::move(expected));
    }
    for (const std::uint32_t directory : image.directories) {  // the slots that hold nothing
      for (std::uint32_t at = directory + 12; at < directory + kDirectorySize; at += kSlotSize) {
        if (sound[at + 4] == 0) places.push_back({at, kSlotSize, "", kNoDirectory, false});
      }
    }
  }

  // Whether the stream can be read when the place is damaged.
  static bool IsSpared(const Expected& stream, const Place& place) {
    if (place.isHeader) return false;
    if (place.directory != kNoDirectory) return stream.directory < place.directory;
    return place.owner.empty() ||
           (stream.path + "/").compare(0, place.owner.size() + 1, place.owner + "/") != 0;
  }
  template <class Spared>
  void Check(const std::string& what, Spared isSpared) {
    const ::testing::ScopedTrace trace(__FILE__, __LINE__, what);
    const Watchdog watchdog(what);
    ++files;
    const Storage storage(aoStorage::Open(path.c_str(), kReadFlags, 0));
    for (const Expected& expected : streams) {
      const Stream stream = storage ? OpenPath(*storage, expected.path) : nullptr;
      if (isSpared(expected)) {
        ASSERT_TRUE(stream) << expected.path;
        ASSERT_TRUE(expected.isFolder || ReadValue(*stream) == expected.value) << expected.path;
        ++read;
      } else if (stream && stream->GetLength() < 100000) {
        ReadValue(*stream);
        NamesIn(*stream);
      }
    }
    gauntlet.Inspect();
  }
  // One value in the place of the sound bytes.
  void Damage(const Place& place, std::uint32_t offset, std::uint32_t value, std::size_t width) {
    Bytes bytes(4);
    Put32(bytes, 0, value);
    if (std::equal(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(width),
                   sound.begin() + offset)) {
      return;
    }
    ASSERT_EQ(::pwrite(descriptor, bytes.data(), width, offset), static_cast<ssize_t>(width));
    Check(std::to_string(offset) + " = " + std::to_string(value),
          [&](const Expected& stream) { return IsSpared(stream, place); });
    ASSERT_EQ(::pwrite(descriptor, sound.data() + offset, width, offset),
              static_cast<ssize_t>(width));
  }

  Bytes sound;
  std::vector<Expected> streams;
  std::vector<Place> places;
  Gauntlet gauntlet{path};
  int descriptor = -1;
  std::size_t files = 0, read = 0;
};

TEST_F(Sweep, OverEachMetadataByte) {
  Points points(101, 0);
  for (const Place& place : places) {
    for (std::uint32_t at = place.offset; at < place.offset + place.size; ++at) {
      const std::uint8_t old = sound[at];
      const int values[] = {0, 0xFF, old ^ 1 << at % 8, old + 1, old - 1};
      for (const int value : values) {
        if (points.Take()) Damage(place, at, static_cast<std::uint8_t>(value), 1);
        if (HasFailure()) return;
      }
    }
  }
}

TEST_F(Sweep, OverEachWord) {
  const auto size = static_cast<std::uint32_t>(sound.size());
  const std::uint32_t values[] = {0,
                                  1,
                                  2,
                                  19,
                                  20,
                                  21,
                                  63,
                                  64,
                                  65,
                                  255,
                                  256,
                                  size - 20,
                                  size - 1,
                                  size,
                                  size + 1,
                                  0x7FFFFFEB,
                                  0x7FFFFFFF,
                                  0x80000000,
                                  0xFFFFFFEB,
                                  0xFFFFFFFE,
                                  0xFFFFFFFF,
                                  kBlockMagic,
                                  kDirectoryMagic,
                                  kStreamMagic};
  Points points(127, 0);
  for (const Place& place : places) {
    for (std::uint32_t at = place.offset; at < place.offset + place.size; at += 4) {
      for (const std::uint32_t value : values) {
        if (points.Take()) Damage(place, at, value, 4);
        if (HasFailure()) return;
      }
    }
  }
}

TEST_F(Sweep, OverEachLength) {
  Points points(37, 0);
  for (std::size_t length = sound.size(); length-- > 0 && !HasFailure();) {
    ASSERT_EQ(::ftruncate(descriptor, static_cast<off_t>(length)), 0);
    if (points.Take())
      Check("length " + std::to_string(length),
            [&](const Expected& stream) { return stream.reach <= length; });
  }
}

TEST_F(Sweep, OverRandomDamage) {
  for (unsigned seed = 1; seed <= (FullSize() ? 1000 : 150); ++seed) {
    Bytes damaged = sound;
    std::mt19937 random(seed);
    for (std::size_t i = 0; i < damaged.size() / 100; ++i)
      damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
    WriteFile(path, damaged);
    Check("seed " + std::to_string(seed), [](const Expected&) { return false; });
    const Storage storage(aoStorage::Open(path.c_str(), kWriteFlags, 0));
    if (storage && seed % 10 == 0) {
      gauntlet.Write(damaged, [] {});
      gauntlet.Carry(damaged, false);
    }
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace aostorage::testing
