/// @file
/// A storage in plain memory that foretells every block of the file: for long random histories.
#ifndef AOSTORAGE_TESTS_SUPPORT_MODEL_H_
#define AOSTORAGE_TESTS_SUPPORT_MODEL_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/raw_file.h"

namespace aostorage::testing {

/// Seeds for `count` histories. One of them differs in each run; the environment variable
/// AOSTORAGE_TEST_SEED replays a single one, AOSTORAGE_TEST_SAME_SEEDS makes all runs equal. Put
/// the seed into a SCOPED_TRACE.
std::vector<unsigned> HistorySeeds(std::size_t count);

struct ModelBlock {
  std::uint32_t used = kBlockHeaderSize, capacity = kBlockHeaderSize;
  Bytes data;  ///< `capacity` bytes without the header
};

/// A slot with its stream; without a name it is free and keeps its chain for the next stream in it.
struct ModelStream {
  std::string name;
  bool folder = false;
  std::uint16_t duration = 0;
  std::uint32_t length = 0;
  std::vector<std::unique_ptr<ModelBlock>> blocks;
};

class ModelStorage {
 public:
  explicit ModelStorage(std::uint32_t reserve);

  /// No block may grow past its capacity until one is allocated.
  void Reopened() { tail = nullptr; }
  /// @return null when the name is taken, or no reserved slot is free for a Fast creation
  ModelStream* Create(const std::string& name, bool folder, bool fast, std::uint16_t duration);
  static void Remove(ModelStream& stream);
  ModelStream* Find(const std::string& name) const;
  /// What differs from the file; empty when nothing does.
  std::string Compare(const RawImage& image) const;

 private:
  friend class ModelCursor;
  ModelBlock* Allocate(ModelStream& stream);

  std::uint32_t reserve;
  std::vector<std::unique_ptr<ModelStream>> slots;
  ModelBlock* tail = nullptr;
};

/// The cursor of the one object that is open on a stream.
class ModelCursor {
 public:
  ModelCursor(ModelStorage& owner, ModelStream& target) : storage(owner), stream(target) {}

  Bytes Read(std::uint32_t count);
  void Write(const Bytes& bytes, bool final = false);
  /// As aoStream::Seek. @return true when it succeeds; after a failure go on with origin 0 or 1
  bool Seek(std::uint32_t distance, std::uint8_t origin, bool forward = true);
  bool Seek2(std::int32_t offset, std::uint32_t origin);
  bool SetLength(std::uint32_t newLength);
  void Erase();
  std::uint32_t Position() const { return position; }

 private:
  bool SeekRight(std::uint32_t distance, bool fromStart);
  bool SeekLeft(std::uint32_t distance, bool fromEnd);
  bool Walk(std::uint32_t distance, std::size_t block, std::uint32_t offset);
  bool HasBlock() const { return block < stream.blocks.size(); }

  ModelStorage& storage;
  ModelStream& stream;
  std::size_t block = 0;          // of the stream's blocks; their count stands for "no block"
  std::uint32_t blockOffset = 0;  // 0: block header not loaded
  std::uint32_t position = 0;
};

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_MODEL_H_
