/// @file
/// One large stream, moved in pieces from its start to its end, beside the bare calls.
///
///   append            to a stream without a reserve: the data, the block header, 8 bytes of the
///   stream header,
///                     and one question for the end of the file
///   append_reserved   into the reserve of one large block: the same without the question
///   overwrite         of a stream that has its full length: the data alone
///   read              from a stream just opened: the data alone
///
///   aostorage         the library
///   bare_needed       the calls listed above, at the places where the library makes them
///   bare_data         the data alone, at the same places
#include <algorithm>
#include <cstring>

#include "bare_file.h"
#include "support.h"

namespace aobench {
namespace {

using namespace aostorage;

/// One shape of work: `pieceCount` pieces of `pieceSize` bytes.
struct Shape {
  const char* label;
  std::uint32_t pieceSize;
  std::uint32_t pieceCount;
  std::int64_t iterations;
  std::uint32_t TotalBytes() const { return pieceSize * pieceCount; }
};

constexpr Shape kShapes[] = {
    {"total:256MiB/piece:64KiB", 64U << 10, 4096, 3},
    {"total:32MiB/piece:512", 512, 65536, 5},
    {"total:100000x32/piece:32", 32, 100000, 5},
};

// Where the library puts the one stream of these files.
constexpr std::int64_t kStreamHeader = SlotOffset(0);
constexpr std::int64_t kStreamLength = kStreamHeader + 68;
constexpr std::int64_t kBlock = DirectoryOffset(1);
constexpr std::int64_t kData = kBlock + static_cast<std::int64_t>(kBlockHeaderSize);

/// The pieces of a shape: piece i starts with the number i, so that no two are the same and a
/// misplaced one shows. One buffer serves all; stamping it costs the same on every side.
class Piece {
 public:
  explicit Piece(const Shape& shape) : bytes(shape.pieceSize), expected(shape.pieceSize) {
    for (std::size_t i = 0; i < bytes.size(); ++i)
      expected[i] = static_cast<std::uint8_t>(i * 7 + (i >> 8));
    bytes = expected;
  }
  /// Makes the buffer piece number `index`.
  void* Stamp(std::uint32_t index) {
    std::memcpy(bytes.data(), &index, sizeof index);
    return bytes.data();
  }
  void* Buffer() { return bytes.data(); }
  /// A look at the number only, cheap enough for a timed loop.
  bool Starts(std::uint32_t index) const {
    return std::memcmp(bytes.data(), &index, sizeof index) == 0;
  }
  /// A look at all bytes.
  bool Equals(std::uint32_t index) const {
    return Starts(index) &&
           std::equal(bytes.begin() + sizeof index, bytes.end(), expected.begin() + sizeof index);
  }
  void Wipe() { std::fill(bytes.begin(), bytes.end(), std::uint8_t{0}); }

 private:
  std::vector<std::uint8_t> bytes, expected;
};

// ---------------------------------------------------------------------------------------- the
// library

Failure WritePieces(aoStream& stream, const Shape& shape, Piece& piece, std::uint32_t from = 0) {
  for (std::uint32_t i = from; i < shape.pieceCount; ++i) {
    if (stream.Write(piece.Stamp(i), shape.pieceSize) != shape.pieceSize) return "a write failed";
  }
  return nullptr;
}

StoragePtr NewStorage(const TempDir& directory, std::uint32_t reserve) {
  return StoragePtr(aoStorage::Create(directory.File("store").c_str(), kWriteFlags, reserve));
}

/// Opens the file again and compares every byte.
Failure VerifyStorage(const TempDir& directory, const Shape& shape) {
  const StoragePtr storage(aoStorage::Open(directory.File("store").c_str(), kReadFlags, 0));
  if (!storage) return "the file does not open again";
  const StreamPtr stream(storage->OpenStream("stream", kReadFlags));
  if (!stream) return "the stream does not open again";
  if (stream->GetLength() != shape.TotalBytes()) return "the stream has another length";
  Piece piece(shape);
  for (std::uint32_t i = 0; i < shape.pieceCount; ++i) {
    piece.Wipe();
    if (stream->Read(piece.Buffer(), shape.pieceSize) != shape.pieceSize)
      return "a read to verify failed";
    if (!piece.Equals(i)) return "the stream has other bytes";
  }
  return nullptr;
}

void AppendAostorage(benchmark::State& state, Shape shape) {
  MeasureRounds(state, 1, shape.pieceCount, [&](Stopwatch& watch) -> Failure {
    const TempDir directory;
    Piece piece(shape);
    {
      const StoragePtr storage = NewStorage(directory, 0);
      const StreamPtr stream(storage ? storage->CreateStream("stream", kWriteFlags) : nullptr);
      if (!stream) return "the stream is not made";
      const Timed timed(watch);
      if (const Failure failure = WritePieces(*stream, shape, piece)) return failure;
    }
    return VerifyStorage(directory, shape);
  });
  state.SetBytesProcessed(state.iterations() * shape.TotalBytes());
}

/// The first piece, which brings the block and its filler, is written before the clock starts.
void AppendReservedAostorage(benchmark::State& state, Shape shape) {
  MeasureRounds(state, 1, shape.pieceCount - 1, [&](Stopwatch& watch) -> Failure {
    const TempDir directory;
    Piece piece(shape);
    {
      const StoragePtr storage = NewStorage(directory, shape.TotalBytes());
      const StreamPtr stream(storage ? storage->CreateStream("stream", kWriteFlags) : nullptr);
      if (!stream) return "the stream is not made";
      if (stream->Write(piece.Stamp(0), shape.pieceSize) != shape.pieceSize)
        return "the first write failed";
      const Timed timed(watch);
      if (const Failure failure = WritePieces(*stream, shape, piece, 1)) return failure;
    }
    return VerifyStorage(directory, shape);
  });
}

/// What stands in a stream before the clock starts: the pieces themselves, or as many zeros.
enum class Content { kPieces, kZeros };

Failure FillStorage(const TempDir& directory, const Shape& shape, Content content) {
  const StoragePtr storage = NewStorage(directory, 0);
  const StreamPtr stream(storage ? storage->CreateStream("stream", kWriteFlags) : nullptr);
  if (!stream) return "the stream is not made";
  Piece piece(shape);
  if (content == Content::kPieces) return WritePieces(*stream, shape, piece);
  piece.Wipe();
  for (std::uint32_t i = 0; i < shape.pieceCount; ++i) {
    if (stream->Write(piece.Buffer(), shape.pieceSize) != shape.pieceSize) return "a write failed";
  }
  return nullptr;
}

void OverwriteAostorage(benchmark::State& state, Shape shape) {
  const TempDir directory;
  if (const Failure failure = FillStorage(directory, shape, Content::kZeros))
    return Fail(state, failure);
  MeasureRounds(state, 1, shape.pieceCount, [&](Stopwatch& watch) -> Failure {
    Piece piece(shape);
    {
      const StoragePtr storage(aoStorage::Open(directory.File("store").c_str(), kWriteFlags, 0));
      const StreamPtr stream(storage ? storage->OpenStream("stream", kWriteFlags) : nullptr);
      if (!stream) return "the stream does not open";
      const Timed timed(watch);
      if (const Failure failure = WritePieces(*stream, shape, piece)) return failure;
    }
    return VerifyStorage(directory, shape);
  });
  state.SetBytesProcessed(state.iterations() * shape.TotalBytes());
}

void ReadAostorage(benchmark::State& state, Shape shape) {
  const TempDir directory;
  if (const Failure failure = FillStorage(directory, shape, Content::kPieces))
    return Fail(state, failure);
  if (const Failure failure = VerifyStorage(directory, shape)) return Fail(state, failure);
  MeasureRounds(state, 1, shape.pieceCount, [&](Stopwatch& watch) -> Failure {
    const StoragePtr storage(aoStorage::Open(directory.File("store").c_str(), kReadFlags, 0));
    const StreamPtr stream(storage ? storage->OpenStream("stream", kReadFlags) : nullptr);
    if (!stream) return "the stream does not open";
    Piece piece(shape);
    const Timed timed(watch);
    for (std::uint32_t i = 0; i < shape.pieceCount; ++i) {
      if (stream->Read(piece.Buffer(), shape.pieceSize) != shape.pieceSize) return "a read failed";
      if (!piece.Starts(i)) return "a read gave other bytes";
    }
    return nullptr;
  });
  state.SetBytesProcessed(state.iterations() * shape.TotalBytes());
}

// --------------------------------------------------------------------------------------- the bare
// calls

constexpr std::int64_t PieceOffset(const Shape& shape, std::uint32_t index) {
  return kData + std::int64_t{shape.pieceSize} * index;
}

/// What else a bare write does beside the data.
enum class Beside { kNothing, kHeaders, kHeadersAndSize };

/// Header, directory and block header, as they stand before the first data byte.
Failure StartBareFile(BareFile& file) {
  const std::vector<std::uint8_t> start(static_cast<std::size_t>(kData), 1);
  return file.IsOpen() && file.WriteAt(0, start.data(), start.size()) ? nullptr
                                                                      : "the bare file is not made";
}

Failure WriteBarePieces(BareFile& file, const Shape& shape, Beside beside, Piece& piece,
                        std::uint32_t from = 0) {
  const std::uint8_t headers[kBlockHeaderSize] = {};
  for (std::uint32_t i = from; i < shape.pieceCount; ++i) {
    if (beside == Beside::kHeadersAndSize && file.Size() < 0) return "a bare fstat failed";
    if (!file.WriteAt(PieceOffset(shape, i), piece.Stamp(i), shape.pieceSize))
      return "a bare write failed";
    if (beside == Beside::kNothing) continue;
    if (!file.WriteAt(kBlock, headers, kBlockHeaderSize)) return "a bare write of 20 bytes failed";
    if (!file.WriteAt(kStreamLength, headers, 8)) return "a bare write of 8 bytes failed";
  }
  return nullptr;
}

Failure VerifyBareFile(const BareFile& file, const Shape& shape) {
  if (file.Size() != PieceOffset(shape, shape.pieceCount)) return "the bare file has another size";
  Piece piece(shape);
  for (std::uint32_t i = 0; i < shape.pieceCount; ++i) {
    piece.Wipe();
    if (!file.ReadAt(PieceOffset(shape, i), piece.Buffer(), shape.pieceSize))
      return "a bare read to verify failed";
    if (!piece.Equals(i)) return "the bare file has other bytes";
  }
  return nullptr;
}

void AppendBare(benchmark::State& state, Shape shape, Beside beside) {
  MeasureRounds(state, 1, shape.pieceCount, [&](Stopwatch& watch) -> Failure {
    const TempDir directory;
    BareFile file(directory.File("bare"), BareFile::Mode::kCreate);
    if (const Failure failure = StartBareFile(file)) return failure;
    Piece piece(shape);
    {
      const Timed timed(watch);
      if (const Failure failure = WriteBarePieces(file, shape, beside, piece)) return failure;
    }
    return VerifyBareFile(file, shape);
  });
  state.SetBytesProcessed(state.iterations() * shape.TotalBytes());
}

void AppendReservedBare(benchmark::State& state, Shape shape, Beside beside) {
  MeasureRounds(state, 1, shape.pieceCount - 1, [&](Stopwatch& watch) -> Failure {
    const TempDir directory;
    BareFile file(directory.File("bare"), BareFile::Mode::kCreate);
    if (const Failure failure = StartBareFile(file)) return failure;
    const std::vector<std::uint8_t> filler(shape.TotalBytes());
    Piece piece(shape);
    if (!file.WriteAt(kData, filler.data(), filler.size())) return "the filler is not written";
    if (!file.WriteAt(kData, piece.Stamp(0), shape.pieceSize)) return "the first bare write failed";
    {
      const Timed timed(watch);
      if (const Failure failure = WriteBarePieces(file, shape, beside, piece, 1)) return failure;
    }
    return VerifyBareFile(file, shape);
  });
}

Failure FillBareFile(BareFile& file, const Shape& shape, Content content) {
  if (const Failure failure = StartBareFile(file)) return failure;
  Piece piece(shape);
  if (content == Content::kPieces) return WriteBarePieces(file, shape, Beside::kNothing, piece);
  piece.Wipe();
  for (std::uint32_t i = 0; i < shape.pieceCount; ++i) {
    if (!file.WriteAt(PieceOffset(shape, i), piece.Buffer(), shape.pieceSize))
      return "a bare write failed";
  }
  return nullptr;
}

void OverwriteBare(benchmark::State& state, Shape shape) {
  const TempDir directory;
  BareFile file(directory.File("bare"), BareFile::Mode::kCreate);
  if (const Failure failure = FillBareFile(file, shape, Content::kZeros))
    return Fail(state, failure);
  MeasureRounds(state, 1, shape.pieceCount, [&](Stopwatch& watch) -> Failure {
    Piece piece(shape);
    {
      const Timed timed(watch);
      if (const Failure failure = WriteBarePieces(file, shape, Beside::kNothing, piece))
        return failure;
    }
    return VerifyBareFile(file, shape);
  });
  state.SetBytesProcessed(state.iterations() * shape.TotalBytes());
}

void ReadBare(benchmark::State& state, Shape shape) {
  const TempDir directory;
  BareFile file(directory.File("bare"), BareFile::Mode::kCreate);
  if (const Failure failure = FillBareFile(file, shape, Content::kPieces))
    return Fail(state, failure);
  if (const Failure failure = VerifyBareFile(file, shape)) return Fail(state, failure);
  MeasureRounds(state, 1, shape.pieceCount, [&](Stopwatch& watch) -> Failure {
    Piece piece(shape);
    const Timed timed(watch);
    for (std::uint32_t i = 0; i < shape.pieceCount; ++i) {
      if (!file.ReadAt(PieceOffset(shape, i), piece.Buffer(), shape.pieceSize))
        return "a bare read failed";
      if (!piece.Starts(i)) return "a bare read gave other bytes";
    }
    return nullptr;
  });
  state.SetBytesProcessed(state.iterations() * shape.TotalBytes());
}

[[maybe_unused]] const bool registered = [] {
  for (const Shape& shape : kShapes) {
    const auto name = [&shape](const char* operation, const char* who) {
      return std::string("sequential/") + operation + "/" + who + "/" + shape.label;
    };
    Register(name("append", "aostorage"), shape.iterations, AppendAostorage, shape);
    Register(name("append", "bare_needed"), shape.iterations, AppendBare, shape,
             Beside::kHeadersAndSize);
    Register(name("append", "bare_data"), shape.iterations, AppendBare, shape, Beside::kNothing);
    Register(name("overwrite", "aostorage"), shape.iterations, OverwriteAostorage, shape);
    Register(name("overwrite", "bare_needed"), shape.iterations, OverwriteBare, shape);
    Register(name("read", "aostorage"), shape.iterations, ReadAostorage, shape);
    Register(name("read", "bare_needed"), shape.iterations, ReadBare, shape);
  }
  const Shape& small = kShapes[2];
  const std::string reserved = std::string("/") + small.label;
  Register("sequential/append_reserved/aostorage" + reserved, 5, AppendReservedAostorage, small);
  Register("sequential/append_reserved/bare_needed" + reserved, 5, AppendReservedBare, small,
           Beside::kHeaders);
  Register("sequential/append_reserved/bare_data" + reserved, 5, AppendReservedBare, small,
           Beside::kNothing);
  return true;
}();

}  // namespace
}  // namespace aobench
