/// @file
/// Trees of streams as lines of text: "a/" is a folder, "a/x=text" a plain stream and its bytes.
#ifndef AOSTORAGE_TESTS_SUPPORT_TREE_TEXT_H_
#define AOSTORAGE_TESTS_SUPPORT_TREE_TEXT_H_

#include <string>
#include <vector>

#include "support/handles.h"
#include "support/raw_file.h"

namespace aostorage::testing {

using TreeText = std::vector<std::string>;

/// The stream at a path, open for writing, or null.
Stream OpenPath(aoStorage& storage, const std::string& path);
/// Makes the streams of the lines; a folder stands before what it holds. "-path" removes.
void Plant(aoStorage& storage, const TreeText& lines);
/// What the file holds, in slot order; with `below`, the content of that folder alone.
TreeText TreeOf(const RawImage& image, const std::string& below = "");

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_TREE_TEXT_H_
