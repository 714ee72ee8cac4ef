// Changes inputs that begin with a file where a change matters: in the words of its records. Takes
// the place of the fuzzer's own mutations three times out of four.
#include "support/record_mutator.h"

#include <algorithm>
#include <cstring>
#include <random>

#include "support/input.h"
#include "support/record_scan.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace aostorage::fuzz {
namespace {

using Random = std::minstd_rand;
using Records = std::vector<ScannedRecord>;

std::size_t Draw(Random& random, std::size_t below) { return below == 0 ? 0 : random() % below; }

// Where the words of a record stand that hold a number or an offset.
std::size_t DrawWord(Random& random, const ScannedRecord& record) {
  static const std::size_t header[] = {0, 4, 65, 67, 68, 72, 76, 68, 76};
  if (record.magic == testing::kStreamMagic)
    return record.offset + header[Draw(random, std::size(header))];
  return record.offset + 4 * Draw(random, record.Size() / 4);
}

void ChangeWord(Random& random, Bytes& file, const Records& records) {
  const std::size_t at = DrawWord(random, records[Draw(random, records.size())]);
  if (at + 4 > file.size()) return;
  const std::uint32_t old = testing::Get32(file, at);
  std::uint32_t value = 0;
  switch (Draw(random, 6)) {
    case 0:
      value = BorderWords()[Draw(random, BorderWords().size())];
      break;
    case 1:
      value = old + static_cast<std::uint32_t>(Draw(random, 41)) - 20;
      break;
    case 2:
      value = static_cast<std::uint32_t>(file.size() + Draw(random, 41) - 20);
      break;
    case 3:
      value =
          testing::Get32(file, records[Draw(random, records.size())].offset + 4 * Draw(random, 3));
      break;
    default:
      value = records[Draw(random, records.size())].offset;
  }
  testing::Put32(file, at, value);
}

// Over another record, in exchange with it, or behind the file.
void MoveRecord(Random& random, Bytes& file, const Records& records) {
  const ScannedRecord& from = records[Draw(random, records.size())];
  const ScannedRecord& to = records[Draw(random, records.size())];
  const Bytes moved = testing::Slice(file, from.offset, from.Size());
  if (from.offset + from.Size() > file.size() || to.offset + from.Size() > file.size()) return;
  switch (Draw(random, 3)) {
    case 0:
      std::copy(moved.begin(), moved.end(), file.begin() + to.offset);
      break;
    case 1:
      std::swap_ranges(file.begin() + from.offset, file.begin() + from.offset + from.Size(),
                       file.begin() + to.offset);
      break;
    default:
      file.insert(file.end(), moved.begin(), moved.end());
  }
}

// A block with some data behind the file, and a word that leads to it.
void AddBlock(Random& random, Bytes& file, const Records& records) {
  const auto offset = static_cast<std::uint32_t>(file.size());
  const std::size_t count = Draw(random, 120);
  file.resize(file.size() + testing::kBlockHeaderSize + count);
  testing::Put32(file, offset, testing::kBlockMagic);
  const auto used = static_cast<std::uint32_t>(testing::kBlockHeaderSize + count);
  testing::Put32(file, offset + 4, used);
  testing::Put32(file, offset + 8, used);
  const ScannedRecord& owner = records[Draw(random, records.size())];
  const std::size_t word = owner.offset + owner.Size() - 4;
  testing::Put32(file, word, offset);
}

// A slot in use, that may hold a folder, or one that does not.
void ChangeSlot(Random& random, Bytes& file, const Records& records) {
  static const char* const names[] = {"a", "b", "box", "00000001", ""};
  const ScannedRecord& record = records[Draw(random, records.size())];
  if (record.magic != testing::kStreamMagic) return;
  const char* name = names[Draw(random, std::size(names))];
  std::memcpy(&file[record.offset + 4], name, std::strlen(name) + 1);
  if (Draw(random, 2) == 0) file[record.offset + 67] ^= 1U;
}

void Cut(Random& random, Bytes& file, const Records& records) {
  const ScannedRecord& record = records[Draw(random, records.size())];
  file.resize(std::min<std::size_t>(file.size(), record.offset + Draw(random, 100)));
}

}  // namespace

Bytes MutateRecords(Bytes file, unsigned seed) {
  Random random(seed);
  for (std::size_t count = 1 + Draw(random, 3); count != 0; --count) {
    const Records records = ScanRecords(file);
    if (records.empty()) break;
    const std::size_t choice = Draw(random, 16);
    if (choice < 9) {
      ChangeWord(random, file, records);
    } else if (choice < 11) {
      MoveRecord(random, file, records);
    } else if (choice < 13) {
      AddBlock(random, file, records);
    } else if (choice < 15) {
      ChangeSlot(random, file, records);
    } else {
      Cut(random, file, records);
    }
  }
  return file;
}

Bytes SpliceRecords(const Bytes& first, const Bytes& second, unsigned seed) {
  Random random(seed);
  const Records from = ScanRecords(second);
  if (from.empty()) return first;
  const std::size_t at = from[Draw(random, from.size())].offset;
  const std::size_t head = Draw(random, 2) == 0 ? std::min(at, first.size()) : first.size();
  Bytes spliced = testing::Slice(first, 0, head);
  spliced.insert(spliced.end(), second.begin() + static_cast<std::ptrdiff_t>(at), second.end());
  return spliced;
}

std::size_t MutateInput(const Target& target, std::uint8_t* data, std::size_t size,
                        std::size_t maxSize, unsigned seed) {
  if (target.shape == Shape::kScript || seed % 4 == 0) return LLVMFuzzerMutate(data, size, maxSize);
  const bool withScript = target.shape == Shape::kFileAndScript;
  FileAndScript input(data, withScript ? size : 0);
  if (!withScript) input.file.assign(data, data + size);
  if (withScript && seed % 2 == 0) {
    const std::size_t old = input.script.size();
    input.script.resize(2048);
    input.script.resize(LLVMFuzzerMutate(input.script.data(), std::min<std::size_t>(old, 2048),
                                         input.script.size()));
  } else {
    input.file = MutateRecords(std::move(input.file), seed / 4);
  }
  const Bytes all = withScript ? FileAndScript::Join(input.file, input.script) : input.file;
  if (all.size() > maxSize) return LLVMFuzzerMutate(data, size, maxSize);
  std::copy(all.begin(), all.end(), data);
  return all.size();
}

}  // namespace aostorage::fuzz
