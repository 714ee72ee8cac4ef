#include "treemap.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace aotool {
namespace {

// How far from square the worst box of a strip is, when boxes of these areas fill a strip that is
// `side` long.
double WorstRatio(double largest, double smallest, double sum, double side) {
  const double thickness = sum / side;
  const double square = thickness * thickness;
  return std::max(largest / square, square / smallest);
}

}  // namespace

Box Box::Inset(double left, double top, double right, double bottom) const {
  return {x + left, y + top, std::max(0.0, width - left - right),
          std::max(0.0, height - top - bottom)};
}

// Strips along the shorter side of what is left; a strip is closed when one box more would make it
// worse.
std::vector<Box> Squarify(const std::vector<double>& weights, const Box& room) {
  std::vector<Box> boxes;
  boxes.reserve(weights.size());
  const double all = std::accumulate(weights.begin(), weights.end(), 0.0);
  if (all <= 0 || room.Area() <= 0) {
    boxes.resize(weights.size(), {room.x, room.y, 0, 0});
    return boxes;
  }
  const double scale = room.Area() / all;
  Box left = room;
  for (std::size_t first = 0; first < weights.size();) {
    const double side = std::max(1e-9, std::min(left.width, left.height));
    const double largest = weights[first] * scale;
    double sum = largest;
    double worst = WorstRatio(largest, largest, sum, side);
    std::size_t end = first + 1;
    for (; end < weights.size(); ++end) {
      const double area = weights[end] * scale;
      const double ratio = WorstRatio(largest, area, sum + area, side);
      if (ratio > worst) break;
      worst = ratio;
      sum += area;
    }
    const double thickness = sum / side;
    const bool upright = left.width >= left.height;  // the strip
    double along = upright ? left.y : left.x;
    for (; first < end; ++first) {
      const double length = weights[first] * scale / thickness;
      boxes.push_back(upright ? Box{left.x, along, thickness, length}
                              : Box{along, left.y, length, thickness});
      along += length;
    }
    left = upright ? left.Inset(thickness, 0, 0, 0) : left.Inset(0, thickness, 0, 0);
  }
  return boxes;
}

}  // namespace aotool
