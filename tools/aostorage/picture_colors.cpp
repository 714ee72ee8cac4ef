#include "picture_colors.h"

#include <cstddef>
#include <cstdio>

namespace aotool {
namespace {

struct Color {
  int red, green, blue;
};

constexpr Color kGroups[] = {
    {0x6f, 0x9f, 0xc8}, {0x8d, 0xb8, 0x8a}, {0xe0, 0xb0, 0x6c}, {0xae, 0x98, 0xcc},
    {0x6c, 0xb5, 0xb0}, {0xd3, 0x9a, 0xb8}, {0xb9, 0xae, 0x6b}, {0x97, 0xa5, 0xdb},
    {0xcb, 0x95, 0x77}, {0x8f, 0xae, 0xb8},
};
constexpr std::size_t kGroupColors = sizeof kGroups / sizeof kGroups[0];
constexpr Color kWhite = {255, 255, 255};
constexpr Color kBlack = {20, 30, 45};

Color Mixed(Color color, Color other, double part) {
  const auto mix = [part](int from, int to) { return from + static_cast<int>((to - from) * part); };
  return {mix(color.red, other.red), mix(color.green, other.green), mix(color.blue, other.blue)};
}

std::string Text(Color color) {
  char text[16];
  std::snprintf(text, sizeof text, "#%02x%02x%02x", color.red & 0xFF, color.green & 0xFF,
                color.blue & 0xFF);
  return text;
}

Color BaseOf(const Picture& picture, std::uint32_t stream) {
  return kGroups[picture.GroupRank(stream) % kGroupColors];
}

// Streams that stand side by side get different shades of the colour of their group.
Color Shade(const Picture& picture, std::uint32_t stream) {
  constexpr double kLighter[] = {0, 0.32, 0.14, 0.44, 0.22};
  return Mixed(BaseOf(picture, stream), kWhite,
               kLighter[stream % (sizeof kLighter / sizeof kLighter[0])]);
}

}  // namespace

std::string ColorOfGroup(std::size_t rank) { return Text(kGroups[rank % kGroupColors]); }

std::string ColorOfStream(const Picture& picture, std::uint32_t stream) {
  return Text(Shade(picture, stream));
}

std::string ColorOfJump(const Picture& picture, std::uint32_t stream) {
  return Text(Mixed(BaseOf(picture, stream), kBlack, 0.35));
}

std::string ColorOfFolder(const Picture& picture, std::uint32_t stream) {
  return Text(Mixed(BaseOf(picture, stream), kWhite, 0.72));
}

std::string ColorOfKind(ByteKind kind) {
  switch (kind) {
    case ByteKind::kDirectory:
      return "#5d6778";
    case ByteKind::kFolders:
      return "#97a5db";
    case ByteKind::kData:
      return "#6f9fc8";
    case ByteKind::kBlockHeaders:
      return "#adb7c5";
    case ByteKind::kReserve:
      return "#dce3ea";
    case ByteKind::kBehindLength:
      return "#eadfc8";
    case ByteKind::kRemoved:
      return "url(#removed)";
    case ByteKind::kUnreachable:
      return "url(#unreachable)";
    case ByteKind::kUnknown:
      break;
  }
  return "url(#unknown)";
}

std::string ColorOf(const Picture& picture, Fill fill, std::uint32_t stream) {
  switch (fill) {
    case Fill::kDirectory:
      return ColorOfKind(ByteKind::kDirectory);
    case Fill::kStream:
      return ColorOfStream(picture, stream);
    case Fill::kSlack:
      return Text(Mixed(BaseOf(picture, stream), kWhite, 0.78));
    case Fill::kRemoved:
      return ColorOfKind(ByteKind::kRemoved);
    case Fill::kUnreachable:
      return ColorOfKind(ByteKind::kUnreachable);
    case Fill::kUnknown:
      break;
  }
  return ColorOfKind(ByteKind::kUnknown);
}

}  // namespace aotool
