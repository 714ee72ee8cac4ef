// The band of a picture, from the records of a file.
#ifndef AOSTORAGE_TOOLS_PICTURE_SEGMENTS_H_
#define AOSTORAGE_TOOLS_PICTURE_SEGMENTS_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include <aostorage/inspect.h>

#include "byte_kinds.h"
#include "picture.h"

namespace aotool {

// Takes the records in the order of the file. Segments of fewer than `least` bytes are put together
// with what follows as they come, so that no more are kept than can be seen.
class SegmentList {
 public:
  SegmentList(const aostorage::Inspection& inspection, std::uint64_t leastBytes)
      : found(inspection), sorter(inspection), least(leastBytes) {}

  void Add(const aostorage::Record& record);
  // Puts further neighbours together until there are at most so many.
  std::vector<Segment> Finish(std::size_t most);

 private:
  void Put(const Segment& segment);

  const aostorage::Inspection& found;
  ByteSorter sorter;
  std::uint64_t least;
  Segment open;  // not yet in the list; none when its size is 0
  std::vector<Segment> segments;
};

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_PICTURE_SEGMENTS_H_
