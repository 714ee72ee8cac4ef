// A picture as a page that can be searched.
#ifndef AOSTORAGE_TOOLS_PICTURE_PAGE_H_
#define AOSTORAGE_TOOLS_PICTURE_PAGE_H_

#include <string>

#include "picture.h"

namespace aotool {

// One HTML document with all that it needs. Of a file with very many streams only the largest are
// in it, and of a very long chain only the beginning; the page says so.
std::string PageOf(const Picture& picture);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_PICTURE_PAGE_H_
