// Somebody else works on the file at the same time: another storage object, in this process or in
// another one, or a program that knows nothing of storages.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <random>

#include "folder/storage_fixture.h"
#include "support/check_file.h"
#include "support/size.h"
#include "support/syscalls.h"
#include "support/watchdog.h"

namespace aostorage::testing {
namespace {

namespace fs = std::filesystem;

// Works on streams of its own in a file that others work on too. What it does next depends on what
// it did before alone: one without a storage foretells another's values.
class Actor {
 public:
  Actor(const char* name, unsigned seed, std::string file)
      : prefix(name), random(seed), path(std::move(file)) {}

  void Open() {
    open.clear();
    storage.reset();
    storage.reset(aoStorage::Open(path.c_str(), kWriteFlags, 30));
    ASSERT_TRUE(storage);
  }
  void Turn(bool mayOpen = true) {
    for (auto steps = 1 + random() % 4; steps > 0; --steps) Step(mayOpen);
  }
  bool HasStorage() const { return storage != nullptr; }
  /// Puts a rebuilt file in the place of the one that is open; the object goes on with the new one.
  void Rebuild() {
    Open();
    open.clear();
    const aoStorage* before = storage.get();
    storage.reset(aoStorage::Recreate(storage.release(), path.c_str()));
    ASSERT_TRUE(storage && (storage.get() != before || LastError().code == ErrorCode::kNone));
  }

  std::map<std::string, Bytes> values;

 private:
  void Step(bool mayOpen) {
    const auto what = static_cast<unsigned>(random() % 12);
    const auto which = static_cast<unsigned>(random() % 10);
    const std::string name = (which < 3 ? prefix + "dir/" : prefix) + std::to_string(which);
    const Bytes data = Pattern(1 + random() % 90, static_cast<unsigned>(random()));
    const auto known = values.find(name);
    if (what == 0) {
      if (storage && mayOpen) Open();
    } else if (what < 4) {
      if (known == values.end()) return;
      values.erase(known);
      if (!storage) return;
      Stream stream = Get(name);
      open.erase(name);
      ASSERT_TRUE(stream && Remove(stream)) << name;
    } else {
      Bytes& value = values[name];
      const bool append = what < 9 || value.empty();
      const std::size_t place = append ? value.size() : 0;
      if (value.size() < place + data.size()) value.resize(place + data.size());
      std::copy(data.begin(), data.end(), value.begin() + static_cast<std::ptrdiff_t>(place));
      if (!storage) return;
      if (open[name] == nullptr) open[name] = Get(name);
      ASSERT_TRUE(open[name]) << name;
      ASSERT_EQ(open[name]->Seek(0, append ? 1 : 0), 0U);
      ASSERT_EQ(open[name]->Write(data.data(), static_cast<std::uint32_t>(data.size())),
                data.size());
    }
  }
  Stream Get(const std::string& name) {
    const std::size_t slash = name.find('/');
    if (slash == std::string::npos)
      return Stream(storage->OpenOrCreateStream(name.c_str(), kPlainKind));
    Stream& folder = open[name.substr(0, slash)];
    if (!folder)
      folder.reset(storage->OpenOrCreateStream(name.substr(0, slash).c_str(), kFolderKind));
    if (!folder) return nullptr;
    return Stream(
        folder->OpenOrCreateStream(name.substr(slash + 1).c_str(), kPlainKind, kWriteFlags));
  }

  std::string prefix;
  std::mt19937 random;
  std::string path;
  Storage storage;
  std::map<std::string, Stream> open;  // a folder stands before what it holds
};

class TwoStorages : public StorageFileTest {
 protected:
  void ExpectValues(const Actor& one, const Actor& other) const {
    const RawImage image = Image();
    for (const Actor* actor : {&one, &other}) {
      for (const auto& [name, value] : actor->values) {
        const RawStream* stream = image.Find(name);
        ASSERT_TRUE(stream) << name;
        ASSERT_EQ(stream->Value(), value) << name;
      }
    }
    ASSERT_EQ("", CheckFile(path));
  }
};

TEST_F(TwoStorages, InOneProcessKeepEachOthersBytes) {
  for (unsigned seed = 1; seed <= (FullSize() ? 200 : 20); ++seed) {
    SCOPED_TRACE(seed);
    Create();
    Actor actors[] = {{"a", seed, path}, {"b", seed + 1000, path}};
    for (Actor& actor : actors) actor.Open();
    for (int turn = 0; turn < 60 && !HasFailure(); ++turn) {
      actors[turn % 2].Turn();
      ExpectValues(actors[0], actors[1]);
      if (turn % 20 != 19 || HasFailure()) continue;
      // One puts a new file in place. What the other writes goes to the old one, until it opens.
      Actor &rebuilder = actors[turn / 20 % 2], &other = actors[1 - turn / 20 % 2];
      const auto values = other.values;
      rebuilder.Rebuild();
      const Bytes rebuilt = File();
      other.Turn(false);
      EXPECT_TRUE(File() == rebuilt);
      other.values = values;
      other.Open();
      ExpectValues(actors[0], actors[1]);
    }
    if (HasFailure()) return;
  }
}

TEST_F(TwoStorages, InTwoProcessesKeepEachOthersBytes) {
  for (unsigned seed = 1; seed <= (FullSize() ? 100 : 10); ++seed) {
    SCOPED_TRACE(seed);
    Create();
    int toChild[2], toParent[2];
    ASSERT_TRUE(pipe(toChild) == 0 && pipe(toParent) == 0);
    const Watchdog watchdog("two processes");
    const pid_t child = fork();
    char turn = 0;
    if (child == 0) {
      close(toChild[1]);
      Actor actor("b", seed + 1000, path);
      actor.Open();
      while (read(toChild[0], &turn, 1) == 1) {
        if (turn == 'r') actor.Rebuild();
        if (turn == 'o') actor.Open();
        if (turn == 't') actor.Turn();
        if (HasFailure() || write(toParent[1], &turn, 1) != 1) break;
      }
      _exit(HasFailure() ? 1 : 0);
    }
    close(toChild[0]);
    close(toParent[1]);
    const auto ask = [&](char what) {
      return write(toChild[1], &what, 1) == 1 && read(toParent[0], &what, 1) == 1;
    };
    Actor own("a", seed, path), foretold("b", seed + 1000, path);
    own.Open();
    for (int i = 0; i < 40 && !HasFailure(); ++i) {
      own.Turn();
      ASSERT_TRUE(ask('t'));
      foretold.Turn();
      ExpectValues(own, foretold);
      if (i % 10 == 4) {
        ASSERT_TRUE(ask('r'));
        own.Open();
      } else if (i % 10 == 9) {
        own.Rebuild();
        ASSERT_TRUE(ask('o'));
      }
    }
    close(toChild[1]);
    close(toParent[0]);
    int status = 1;
    waitpid(child, &status, 0);
    ASSERT_EQ(status, 0);
  }
}

// --- Others who know nothing of storages

struct Disturbance {
  const char* name;
  bool replaces;  // another file stands at the path then
  void (*strike)(const std::string& path);
};

Bytes Foreign() { return Pattern(3000, 77); }

void Overwrite(const std::string& path, std::size_t from, const Bytes& bytes) {
  const int descriptor = open(path.c_str(), O_WRONLY);
  EXPECT_EQ(pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(from)),
            static_cast<ssize_t>(bytes.size()));
  close(descriptor);
}

const Disturbance kDisturbances[] = {
    {"emptied", false, [](const std::string& path) { fs::resize_file(path, 0); }},
    {"cut to 100", false, [](const std::string& path) { fs::resize_file(path, 100); }},
    {"cut to 5,300", false, [](const std::string& path) { fs::resize_file(path, 5300); }},
    {"lengthened", false, [](const std::string& path) { fs::resize_file(path, 100000); }},
    {"overwritten", false, [](const std::string& path) { Overwrite(path, 0, Foreign()); }},
    {"zeroed behind", false, [](const std::string& path) { Overwrite(path, 5164, Bytes(500)); }},
    {"unlinked", false, [](const std::string& path) { unlink(path.c_str()); }},
    {"replaced", true,
     [](const std::string& path) {
       WriteFile(path + "_new", Foreign());
       fs::rename(path + "_new", path);
     }},
    {"a folder's place", true,
     [](const std::string& path) {
       unlink(path.c_str());
       fs::create_directory(path);
     }},
};

class Meanwhile : public OneStorageTest {
 protected:
  // Everything but what replaces the file.
  void Work() {
    Bytes data(3000);
    Stream a = Root("a"), folder = Root("folder");
    if (a) {
      a->Read(data.data(), 500);
      Append(*a, Pattern(40));
      a->Seek(3, 0);
      a->Write(data.data(), 30, true);
    }
    if (folder) {
      NamesIn(*folder);
      folder->SetEntry("entry", 5);
      folder->GetEntry("text", "");
      Got(folder->CreateStream("sub", kFolderKind, kWriteFlags));
      Stream child(folder->OpenStream("text", kWriteFlags));
      if (child) Remove(child);
    }
    if (const Stream made = MakeRoot("made")) Append(*made, Pattern(100));
    StreamCookie cookie = 0;
    Stream walk(storage->OpenStreamFirst(cookie, kReadFlags));
    while (walk) walk.reset(storage->OpenStreamNext(cookie, kReadFlags));
    if (folder) Remove(folder);
    if (a && a->Seek(0, 0) == 0) a->Read(data.data(), 3000);
  }
};

TEST_F(Meanwhile, WhateverBecomesOfTheFileEndsInResults) {
  storage = Create(50);
  Append(*MakeRoot("a"), Pattern(300));
  Stream folder = MakeRoot("folder", kFolderKind);
  folder->SetEntry("text", "some text");
  folder->SetEntry("entry", 4);
  folder.reset();
  storage.reset();
  const Bytes sound = File();
  std::size_t points = 0;
  for (const Disturbance& disturbance : kDisturbances) {
    bool struck = true;
    for (std::size_t k = 0; struck; ++k, ++points) {
      const std::string what = disturbance.name + (" before call " + std::to_string(k));
      SCOPED_TRACE(what);
      const Watchdog watchdog(what);
      fs::remove_all(path);
      storage = OpenBytes(sound);
      ASSERT_TRUE(storage);
      struck = false;
      {
        Watch watch;
        watch.BeforeEach([&](Call, std::size_t before) {
          if (before != k) return;
          disturbance.strike(path);
          struck = true;
        });
        Work();
        if (struck && disturbance.replaces) {
          EXPECT_TRUE(fs::is_directory(path) || File() == Foreign()) << "another file was changed";
        }
        storage.reset(aoStorage::Recreate(storage.release(), path.c_str()));
      }
      if (disturbance.replaces && !fs::is_directory(path) && File() != Foreign()) {
        EXPECT_EQ("", CheckFile(path, Rules::kAfterFault))
            << "neither the other file nor a whole one";
      }
      storage.reset();
      EXPECT_FALSE(fs::exists(path + "_tmp"));
      if (HasFailure()) return;
    }
  }
  std::printf("%zu points\n", points);
}

}  // namespace
}  // namespace aostorage::testing
