// Makes the inputs that a run begins with: `fuzz_seeds DIRECTORY`, one directory below it for each
// target.
#include <cstdio>
#include <filesystem>

#include <aostorage/aostorage.h>

#include "support/handles.h"
#include "support/input.h"
#include "support/scratch.h"
#include "targets/targets.h"

namespace aostorage::fuzz {
namespace {

using testing::FileBuilder;
using testing::Pattern;
using testing::Storage;
using testing::Stream;
using testing::StreamRecord;

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

std::vector<Bytes> Files() {
  FileBuilder empty, older(FileBuilder::Form::kOlder, 2), full, split, vacated, tiny, shared, graph;
  older.AddStream(2, "a", Pattern(50), {20, 40});
  full.AddDirectory();
  for (std::uint32_t slot = 6; slot < 64; ++slot)
    full.PutSlot(slot, StreamRecord(std::to_string(slot), slot % 2 == 0, 0, 0));
  full.PutSlot(1, StreamRecord("behind", false, 0, 0), 1);
  const std::uint32_t child = split.AddChain(Pattern(30));
  split.AddStream(
      6, "box",
      testing::FolderPayload({StreamRecord("a", false, 30, child), StreamRecord("b", true, 0, 0),
                              StreamRecord("", false, 0, 0)}),
      {30, 60, 100, 90}, true);
  const std::uint32_t chain = vacated.AddChain(Pattern(60), {20, 100});
  vacated.PutSlot(6, StreamRecord("", false, 0, chain));
  // What must not cost more than its bytes: many tiny blocks, and one chain that many share.
  tiny.AddStream(6, "a", Pattern(400), std::vector<std::uint32_t>(400, 1));
  tiny.AddStream(7, "b", Pattern(50), std::vector<std::uint32_t>(100, 0));
  const std::uint32_t all = shared.AddChain(Pattern(3000));
  for (std::uint32_t slot = 6; slot < 64; ++slot)
    shared.PutSlot(slot, StreamRecord(std::to_string(slot), false, 3000, all));
  std::uint32_t below = graph.AddChain(Pattern(10));
  for (int level = 0; level < 5; ++level) {
    std::vector<Bytes> ten;
    for (int i = 0; i < 10; ++i)
      ten.push_back(StreamRecord(std::to_string(i), level != 0, level == 0 ? 10 : 804, below));
    below = graph.AddChain(testing::FolderPayload(ten));
  }
  graph.PutSlot(6, StreamRecord("box", true, 804, below));
  return {MadeByTheLibrary(), empty.bytes, older.bytes, full.bytes,   split.bytes,
          vacated.bytes,      tiny.bytes,  graph.bytes, shared.bytes, Bytes(1)};
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
      const Bytes script = Pattern(60 + 40 * i, static_cast<unsigned>(i + 1));
      Put(directory, i,
          target.shape == Shape::kFile     ? files[i]
          : target.shape == Shape::kScript ? script
                                           : FileAndScript::Join(files[i], script));
    }
  }
}
