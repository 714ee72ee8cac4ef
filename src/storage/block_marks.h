// Places in a long chain of blocks.
#ifndef AOSTORAGE_STORAGE_BLOCK_MARKS_H_
#define AOSTORAGE_STORAGE_BLOCK_MARKS_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "storage/chain_cursor.h"

namespace aostorage::detail {

// Where the blocks of one chain begin, as far as walks from its start have come, so that the next
// walk can begin near its goal. Blocks never move and links never change once set; but a position
// holds only as long as no block before it takes more or fewer bytes. Memory never fails a walk:
// the marks then end earlier.
class BlockMarks {
 public:
  // A walk has entered the cursor's block. Marks are set one behind the other, whatever the order
  // of the walks.
  void Note(const ChainCursor& atStart) noexcept;
  // Moves a cursor at the start of the chain to the last mark before `position`, if there is one: a
  // walk on from there ends in the same block as one from the start.
  [[nodiscard]] bool Approach(std::uint32_t position, ChainCursor& cursor) const;
  void Clear() { marks.clear(); }

 private:
  struct Mark {
    std::uint32_t position, block;
  };
  // Short chains have none.
  static constexpr std::uint32_t kFirstStep = 16;
  // More blocks than these are marked more thinly.
  static constexpr std::size_t kMost = std::size_t{1} << 17;

  std::vector<Mark> marks;   // of the blocks `kFirstStep`, `kFirstStep` + `stride`, ...
  std::uint32_t stride = 1;  // blocks from one mark to the next
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_STORAGE_BLOCK_MARKS_H_
