// Creating, finding and opening root streams.
#ifndef AOSTORAGE_STORAGE_ROOT_STREAMS_H_
#define AOSTORAGE_STORAGE_ROOT_STREAMS_H_

#include <cstdint>
#include <memory>

#include <aostorage/types.h>

#include "stream/stream_core.h"

namespace aostorage::detail {

// The work behind the operations of aoStorage on root streams, for the callers' streams and for the
// entries.
class RootStreams {
 public:
  explicit RootStreams(const std::shared_ptr<StorageCore>& openStorage) : storage(openStorage) {}

  std::unique_ptr<StreamCore> Create(const char* name, std::uint32_t packedKind,
                                     std::uint32_t flags, bool fast,
                                     StreamCore::Sharing sharing = StreamCore::Sharing::kLasting);
  // The stream of the map, or in a reserved slot. A momentary one leaves no record in the registry.
  std::unique_ptr<StreamCore> Open(const char* name, std::uint32_t flags,
                                   StreamCore::Sharing sharing = StreamCore::Sharing::kLasting);
  std::unique_ptr<StreamCore> OpenFast(const char* name, std::uint32_t flags,
                                       StreamCore::Sharing sharing = StreamCore::Sharing::kLasting);
  // Reads the header at the locator. The name is the registry's key; it may be empty here.
  std::unique_ptr<StreamCore> OpenByOffset(const tag_aoStreamOffset& offset, const char* name,
                                           std::uint32_t flags);
  // As OpenByOffset, with a header that was read just now.
  std::unique_ptr<StreamCore> OpenRead(const tag_aoStream& header, const tag_aoStreamOffset& offset,
                                       std::uint32_t flags);
  // The first slot behind the reserved ones, in use or not.
  std::unique_ptr<StreamCore> OpenFirstSlot(std::uint32_t flags);

 private:
  [[nodiscard]] bool ReadRecord(const tag_aoStreamOffset& offset, tag_aoStream& header);
  std::unique_ptr<StreamCore> OpenRecord(const tag_aoStream& header,
                                         const tag_aoStreamOffset& offset, const char* name,
                                         std::uint32_t flags, StreamCore::Sharing sharing);
  const std::shared_ptr<StorageCore>& storage;
};

// Lowers `used` to 20 in every block of a chain that a new folder takes over, so that no byte of
// the old stream shows up as a child record. A chain that is damaged is not fit to hold a folder:
// `fit` tells. False when a block could not be rewritten.
[[nodiscard]] bool EmptyChain(StorageCore& storage, std::uint32_t firstBlock, bool& fit);

}  // namespace aostorage::detail

#endif  // AOSTORAGE_STORAGE_ROOT_STREAMS_H_
