// Makes the inputs that a run begins with: `fuzz_seeds DIRECTORY`, one directory below it for each
// target.
#include <cstdio>
#include <filesystem>

#include <aostorage/aostorage.h>

#include "support/handles.h"
#include "support/hostile_files.h"
#include "support/input.h"
#include "support/scratch.h"
#include "targets/targets.h"

namespace aostorage::fuzz {
namespace {

using testing::FileBuilder;
using testing::Pattern;
using testing::Storage;
using testing::Stream;

constexpr std::size_t kLargest = 20000;  // see ./dev fuzz

// Two folder levels, entries of some forms, a removed stream, a chain of several blocks.
Bytes MadeByTheLibrary() {
  const std::string path = ScratchPath("seed");
  const Storage storage(aoStorage::Create(path.c_str(), kWriteFlags, 30));
  const Stream plain(storage->CreateStream("a", kWriteFlags));
  const Stream fast(storage->CreateStreamFast("00000001", kWriteFlags));
  const Stream box(storage->CreateStream("box", PackKind(true, 3), kWriteFlags));
  const Stream inner(box->CreateStream("inner", PackKind(true), kWriteFlags));
  for (int i = 0; i < 3; ++i) {
    plain->Write(Pattern(40).data(), 40);
    fast->Write(Pattern(20).data(), 20);
    box->SetEntry("log", "value", 5);
    inner->SetEntry(std::to_string(i).c_str(), i);
  }
  box->SetEntry("text", "some text");
  Stream gone(box->CreateStream("gone", 0, kWriteFlags));
  gone->Write("data", 4);
  testing::Remove(gone);
  return testing::ReadFile(path);
}

// And those that lie: what a damaged file can look like.
std::vector<Bytes> Files() {
  std::vector<Bytes> files{MadeByTheLibrary(), FileBuilder().bytes, Bytes(1)};
  for (const testing::HostileFile& shape : testing::HostileShapes()) {
    Bytes bytes = shape.make();
    if (bytes.size() < kLargest) files.push_back(std::move(bytes));
  }
  return files;
}

void Put(const std::filesystem::path& directory, std::size_t number, const Bytes& bytes) {
  testing::WriteFile((directory / ("seed" + std::to_string(number))).string(), bytes);
}

}  // namespace
}  // namespace aostorage::fuzz

int main(int count, char** arguments) {
  using namespace aostorage::fuzz;
  if (count != 2) {
    std::fprintf(stderr, "usage: fuzz_seeds DIRECTORY\n");
    return 2;
  }
  const std::vector<Bytes> files = Files();
  for (const Target& target : kTargets) {
    const std::filesystem::path directory = std::filesystem::path(arguments[1]) / target.name;
    std::filesystem::create_directories(directory);
    for (std::size_t i = 0; i < files.size(); ++i) {
      const Bytes script = Pattern(60 + 40 * (i % 10), static_cast<unsigned>(i + 1));
      Put(directory, i,
          target.shape == Shape::kFile     ? files[i]
          : target.shape == Shape::kScript ? script
                                           : FileAndScript::Join(files[i], script));
    }
  }
}
