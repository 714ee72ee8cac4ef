// The treemap of a picture.
#ifndef AOSTORAGE_TOOLS_PICTURE_TILES_H_
#define AOSTORAGE_TOOLS_PICTURE_TILES_H_

#include <vector>

#include "picture.h"

namespace aotool {

// The tree by the bytes of the blocks, with the directory and the dead space as tiles beside it.
std::vector<Tile> TilesOf(const Picture& picture);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_PICTURE_TILES_H_
