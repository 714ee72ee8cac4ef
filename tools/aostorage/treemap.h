// Areas in proportion to weights: a squarified treemap.
#ifndef AOSTORAGE_TOOLS_TREEMAP_H_
#define AOSTORAGE_TOOLS_TREEMAP_H_

#include <vector>

namespace aotool {

struct Box {
  double x = 0, y = 0, width = 0, height = 0;

  double Area() const { return width > 0 && height > 0 ? width * height : 0; }
  // Smaller by so much on each side; never turned inside out.
  Box Inset(double left, double top, double right, double bottom) const;
};

// Deals `room` to the weights, which are positive and the largest first: boxes as near to squares
// as that goes, in the order of the weights, without gaps.
std::vector<Box> Squarify(const std::vector<double>& weights, const Box& room);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_TREEMAP_H_
