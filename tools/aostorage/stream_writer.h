// Plain streams written so that nothing is lost by a write that breaks off.
#ifndef AOSTORAGE_TOOLS_STREAM_WRITER_H_
#define AOSTORAGE_TOOLS_STREAM_WRITER_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "store.h"
#include "trail.h"

namespace aotool {

// A name for what is to take the place of `name` later: one that is free in the place.
Result FreeNameBeside(Place place, const std::string& name, std::string& free);

// Removes the old stream `name` and gives its name to the new one beside it, which is whole. Where
// that fails, the reason tells under which name the new one stands.
Result PutInPlace(Place place, const std::string& name, const std::string& nameForNow,
                  StreamPtr& old, StreamPtr& fresh);

// Writes whole streams of one store, each under a name that is free or in the place of another one.
// A new stream that could not be filled is removed. An old stream stays as it is until the new one
// is whole: that is written under a free name beside it, then the old one is removed and the new
// one renamed.
class StreamWriter {
 public:
  // Fills the stream, which is empty and has the name `nameForNow` in the place it is written to.
  using Fill = std::function<Result(aostorage::aoStream& stream, const std::string& nameForNow)>;

  // `old` is what has the name in the place, open for writing; null when it is free. The new stream
  // has the kind and duration of `packedKind`. Keeps the library's last error of a failed `fill`.
  Result Write(Place place, const std::string& name, std::uint32_t packedKind, StreamPtr old,
               const Fill& fill);

 private:
  Result WriteNew(Place place, const std::string& name, std::uint32_t packedKind, const Fill& fill,
                  StreamPtr& stream);
  bool MustKeepSlot(Place place, const std::string& name, const aostorage::aoStream& old);

  std::optional<bool> rootHasTwins;  // root streams of one name; looked for when it matters
};

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_STREAM_WRITER_H_
