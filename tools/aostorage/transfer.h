// Data on its way between files and streams, in pieces of bounded memory.
#ifndef AOSTORAGE_TOOLS_TRANSFER_H_
#define AOSTORAGE_TOOLS_TRANSFER_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <aostorage/stream.h>

#include "files.h"
#include "interrupt.h"
#include "report.h"

namespace aotool {

// Every operation fails when it is interrupted between two pieces, unless told otherwise.
class Transfer {
 public:
  // `pieceDone` is called with the bytes of each piece.
  explicit Transfer(std::function<void(std::uint64_t)> pieceDone);

  void IgnoreInterrupts() { stopsOnInterrupt = false; }

  // Replaces the content of `stream`, whose cursor is at the start, by all that `input` gives.
  // Nothing is written before the first piece was read. A failure leaves the bytes written so far
  // in front of what is left of the old ones.
  Result CopyIn(int input, aostorage::aoStream& stream);

  // Hands GetLength bytes of the stream, read from its cursor at the start, to `output`.
  Result CopyOut(aostorage::aoStream& stream, OutputFile& output);

  // Replaces the content of `to`. Both cursors are at the start.
  Result CopyAcross(aostorage::aoStream& from, aostorage::aoStream& to);

  // Reads all of the stream, whose cursor is at the start, and keeps nothing of it.
  Result ReadThrough(aostorage::aoStream& stream);

  // kDamaged unless both hold the same bytes, read from the start.
  Result Compare(aostorage::aoStream& left, aostorage::aoStream& right);

 private:
  using Piece = std::vector<std::uint8_t>;
  using Sink = std::function<Result(const std::uint8_t*, std::uint32_t)>;

  Result ReadStream(aostorage::aoStream& stream, const Sink& sink);

  bool MustStop() const { return stopsOnInterrupt && Interrupted(); }

  bool stopsOnInterrupt = true;
  std::function<void(std::uint64_t)> progress;
  Piece piece;
  Piece second;
};

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_TRANSFER_H_
