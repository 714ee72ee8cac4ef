// The colours of the picture of a file.
#ifndef AOSTORAGE_TOOLS_PICTURE_COLORS_H_
#define AOSTORAGE_TOOLS_PICTURE_COLORS_H_

#include <cstdint>
#include <string>

#include "byte_kinds.h"
#include "picture.h"

namespace aotool {

// "#5b8fb9", or a pattern of the picture's definitions.
std::string ColorOfGroup(std::size_t rank);
std::string ColorOfStream(const Picture& picture, std::uint32_t stream);
std::string ColorOfJump(const Picture& picture, std::uint32_t stream);
std::string ColorOfFolder(const Picture& picture, std::uint32_t stream);
std::string ColorOfKind(ByteKind kind);
std::string ColorOf(const Picture& picture, Fill fill, std::uint32_t stream);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_PICTURE_COLORS_H_
