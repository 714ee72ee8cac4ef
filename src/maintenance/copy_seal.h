// A seal over what a copy carried.
#ifndef AOSTORAGE_MAINTENANCE_COPY_SEAL_H_
#define AOSTORAGE_MAINTENANCE_COPY_SEAL_H_

#include <array>
#include <cstddef>
#include <cstdint>

#include "folder/tree_copy.h"

namespace aostorage::detail {

// One number for a tree as a copy met it: names, kinds, contents, and what lies in what. Two trees
// that differ have the same number by a chance of 1 in 2^64. It guards against mistakes and broken
// hardware, not against somebody who looks for two such trees.
class CopySeal : public CopyWitness {
 public:
  bool Copied(const tag_aoStream& header, const std::uint8_t* data, std::uint32_t size) override;
  void LeftFolder() override { Mix(kLeft); }

  bool operator==(const CopySeal& other) const { return lanes == other.lanes; }

 private:
  enum Mark : std::uint64_t { kPlain = 1, kFolder = 2, kLeft = 3 };

  void Mix(std::uint64_t word);
  void MixBytes(const std::uint8_t* data, std::size_t size);

  // Side by side, so that the processor need not wait for one multiplication before the next.
  std::array<std::uint64_t, 4> lanes{1, 2, 3, 4};
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_MAINTENANCE_COPY_SEAL_H_
