/// @file
/// Owners of storages and streams: what a test opens ends with the scope.
#ifndef AOSTORAGE_TESTS_SUPPORT_HANDLES_H_
#define AOSTORAGE_TESTS_SUPPORT_HANDLES_H_

#include <memory>

#include <aostorage/aostorage.h>

namespace aostorage::testing {

struct Releases {
  void operator()(aoStorage* storage) const { storage->Release(); }
  void operator()(aoStream* stream) const { stream->Release(); }
};
/// Declare a storage before its streams and a folder before its children, so that they end in the
/// right order.
using Storage = std::unique_ptr<aoStorage, Releases>;
using Stream = std::unique_ptr<aoStream, Releases>;

/// Removes the stream; only a successful removal ends the object.
inline bool Remove(Stream& stream) {
  if (!stream->Remove()) return false;
  static_cast<void>(stream.release());
  return true;
}

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_HANDLES_H_
