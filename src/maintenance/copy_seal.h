// A seal over what a copy carried.
#ifndef AOSTORAGE_MAINTENANCE_COPY_SEAL_H_
#define AOSTORAGE_MAINTENANCE_COPY_SEAL_H_

#include <cstddef>
#include <cstdint>

#include "folder/tree_copy.h"

namespace aostorage::detail {

// One number for a tree as a copy met it: names, kinds, lengths, how each content begins, and what
// lies in what. It guards against mistakes, not against somebody who looks for two such trees.
class CopySeal : public CopyWitness {
 public:
  bool Copied(const tag_aoStream& header, const std::uint8_t* data, std::uint32_t size) override;
  void LeftFolder() override { Mix(kLeft); }

  bool operator==(const CopySeal& other) const { return seal == other.seal; }

 private:
  enum Mark : std::uint64_t { kPlain = 1, kFolder = 2, kLeft = 3 };

  void Mix(std::uint64_t word);
  void MixBytes(const std::uint8_t* data, std::size_t size);

  std::uint64_t seal = 0;
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_MAINTENANCE_COPY_SEAL_H_
