// Owners of the library's objects, and the opening of a store.
#ifndef AOSTORAGE_TOOLS_STORE_H_
#define AOSTORAGE_TOOLS_STORE_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <aostorage/storage.h>
#include <aostorage/stream.h>

#include "report.h"

namespace aotool {

struct Releaser {
  void operator()(aostorage::aoStorage* storage) const { storage->Release(); }
  void operator()(aostorage::aoStream* stream) const { stream->Release(); }
};
// Declare a storage before its streams and a folder before its children: they end in the reverse
// order.
using StoragePtr = std::unique_ptr<aostorage::aoStorage, Releaser>;
using StreamPtr = std::unique_ptr<aostorage::aoStream, Releaser>;

// Streams of a damaged store can share their blocks: all of them may have many times the bytes that
// the store has. No more than that is copied out of one.
inline constexpr const char* kTooMuch =
    "the streams so far have more bytes than the store: some of them share their blocks";

// Removes the stream from the store. A failed removal leaves the object.
Result Remove(StreamPtr& stream);

// Opens the store for reading. A directory that breaks off is reported and what was read of it
// serves. Null after a failure, which is reported.
StoragePtr OpenForReading(const std::string& path, Report& report);

// As OpenForReading, but a damaged directory is a failure: what is made of the store must be whole.
StoragePtr OpenWhole(const std::string& path, Report& report);

// Opens the store for changes. A damaged directory is a failure: a name that it lost could be given
// twice. `reserve` is what each new block of a plain stream gets beyond its data.
StoragePtr OpenForWriting(const std::string& path, std::uint32_t reserve, Report& report);

// Makes an empty store where nothing stands, or, with `replace`, in the place of another store.
Result CreateStore(const std::string& path, bool replace);

// What the file header of a store tells; the library keeps it to itself.
struct FileHeader {
  bool older = false;  // of the two forms
  unsigned reservedSlots = 0;
};

// Reads the header of a store that was opened before. Nothing when the file cannot be read.
std::optional<FileHeader> ReadHeader(const std::string& path);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_STORE_H_
