#include "transfer.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <aostorage/error.h>
#include <aostorage/types.h>

namespace aotool {
namespace {

constexpr std::uint32_t kPieceSize = 256 * 1024;

Result EraseAll(aostorage::aoStream& stream) {
  aostorage::ClearLastError();
  if (stream.GetLength() == 0 || stream.Erase()) return {};
  return FromLibrary();
}

Result WritePiece(aostorage::aoStream& stream, const std::uint8_t* data, std::uint32_t size,
                  bool last) {
  aostorage::ClearLastError();
  if (stream.Write(data, size, last) == size) return {};
  return FromLibrary();
}

Result ReadWhole(aostorage::aoStream& stream, std::uint8_t* data, std::uint32_t size) {
  aostorage::ClearLastError();
  return stream.Read(data, size) == size ? Result{} : FromShortRead();
}

Result Rewind(aostorage::aoStream& stream) {
  aostorage::ClearLastError();
  return stream.Seek(0, 0) == 0 ? Result{} : FromLibrary();
}

}  // namespace

Transfer::Transfer(std::function<void(std::uint64_t)> pieceDone)
    : progress(std::move(pieceDone)), piece(kPieceSize), second(kPieceSize) {}

Result Transfer::CopyIn(int input, aostorage::aoStream& stream) {
  std::size_t size = 0;
  if (Result result = ReadPiece(input, piece.data(), piece.size(), size); !result.Ok())
    return result;
  if (size == 0) return EraseAll(stream);
  while (size != 0) {
    if (MustStop()) return Interruption();
    // One piece ahead, because the write that ends the stream must be told so.
    std::size_t nextSize = 0;
    if (size == piece.size()) {
      Result result = ReadPiece(input, second.data(), second.size(), nextSize);
      if (!result.Ok()) return result;
    }
    Result result =
        WritePiece(stream, piece.data(), static_cast<std::uint32_t>(size), nextSize == 0);
    if (!result.Ok()) return result;
    progress(size);
    piece.swap(second);
    size = nextSize;
  }
  return {};
}

Result Transfer::CopyOut(aostorage::aoStream& stream, OutputFile& output) {
  return ReadStream(stream, [&](const std::uint8_t* data, std::uint32_t size) {
    return output.Write(data, size);
  });
}

Result Transfer::CopyAcross(aostorage::aoStream& from, aostorage::aoStream& to) {
  std::uint32_t left = from.GetLength();
  if (left == 0) return EraseAll(to);
  return ReadStream(from, [&](const std::uint8_t* data, std::uint32_t size) {
    left -= size;
    return WritePiece(to, data, size, left == 0);
  });
}

Result Transfer::ReadThrough(aostorage::aoStream& stream) {
  return ReadStream(stream, [](const std::uint8_t*, std::uint32_t) { return Result{}; });
}

Result Transfer::Compare(aostorage::aoStream& left, aostorage::aoStream& right) {
  static const char* const kDiffers = "what was written does not read back";
  if (left.GetLength() != right.GetLength()) return {kDamaged, kDiffers};
  if (left.GetLength() == 0) return {};
  if (Result result = Rewind(left); !result.Ok()) return result;
  if (Result result = Rewind(right); !result.Ok()) return result;
  return ReadStream(left, [&](const std::uint8_t* data, std::uint32_t size) {
    Result result = ReadWhole(right, second.data(), size);
    if (result.Ok() && std::memcmp(data, second.data(), size) != 0)
      return Result{kDamaged, kDiffers};
    return result;
  });
}

Result Transfer::ReadStream(aostorage::aoStream& stream, const Sink& sink) {
  // Bounded by the length: reading goes on behind it to the end of the blocks.
  for (std::uint32_t left = stream.GetLength(); left != 0;) {
    if (MustStop()) return Interruption();
    const std::uint32_t size = std::min(left, kPieceSize);
    if (Result result = ReadWhole(stream, piece.data(), size); !result.Ok()) return result;
    if (Result result = sink(piece.data(), size); !result.Ok()) return result;
    progress(size);
    left -= size;
  }
  return {};
}

}  // namespace aotool
