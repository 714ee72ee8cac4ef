// A picture as SVG.
#ifndef AOSTORAGE_TOOLS_PICTURE_SVG_H_
#define AOSTORAGE_TOOLS_PICTURE_SVG_H_

#include <cstdint>
#include <string>
#include <vector>

#include "picture.h"

namespace aotool {

// A file of its own, with what the elements are as their titles.
std::string SvgOf(const Picture& picture);

// For a page: no titles, but what its script needs, in attributes.
//   data-s  the number that the page has for the stream, from `numbers`; kNoIndex there: none
//   data-b  the file offset of the block
//   data-o  file offset, data-z  size in bytes
//   data-n  how many things are drawn together, data-l  what it is, if no stream
std::string SvgForPage(const Picture& picture, const std::vector<std::uint32_t>& numbers);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_PICTURE_SVG_H_
