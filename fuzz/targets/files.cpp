// Any bytes as a file, through all that reads, changes, carries and inspects files.
#include "support/gauntlet.h"
#include "support/input.h"
#include "support/record_scan.h"
#include "support/scratch.h"
#include "targets/targets.h"

namespace aostorage::fuzz {
namespace {

testing::Gauntlet At(const Bytes& bytes) {
  std::vector<std::string> names = ScanNames(bytes);
  names.resize(std::min<std::size_t>(names.size(), 6));
  std::vector<std::string> inFolders = names;
  inFolders.insert(inFolders.end(), {"none", ""});
  names.insert(names.end(), {"a", "box", "b", "none", ""});
  return testing::Gauntlet(ScratchFile("file", bytes), names, inFolders);
}

}  // namespace

void ReadFile(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return;  // is made a storage by the first that may write
  const Bytes bytes(data, data + size);
  testing::Gauntlet gauntlet = At(bytes);
  gauntlet.Read();
  gauntlet.Write(bytes, [] {});
}

void RebuildFile(const std::uint8_t* data, std::size_t size) {
  const Bytes bytes(data, data + size);
  At(bytes).Carry(bytes, false);
}

void InspectFile(const std::uint8_t* data, std::size_t size) {
  At(Bytes(data, data + size)).Inspect();
}

}  // namespace aostorage::fuzz
