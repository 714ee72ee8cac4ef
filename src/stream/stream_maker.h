// Makes and ends the public stream objects.
#ifndef AOSTORAGE_STREAM_STREAM_MAKER_H_
#define AOSTORAGE_STREAM_STREAM_MAKER_H_

#include <memory>
#include <new>
#include <utility>

#include <aostorage/stream.h>

#include "platform/last_error.h"
#include "stream/stream_core.h"

namespace aostorage::detail {

struct StreamMaker {
  // Runs `open`, which gives a std::unique_ptr<StreamCore>, and wraps what it gives for the caller.
  // The memory of the object is there before, so that nothing fails once the stream counts as open.
  template <typename OpenBody>
  static aoStream* Make(const char* operationName, OpenBody open) noexcept {
    return Guarded<aoStream*>(operationName, nullptr, [&]() -> aoStream* {
      std::unique_ptr<void, RawDeleter> memory(::operator new(sizeof(aoStream)));
      std::unique_ptr<StreamCore> core = open();
      return core == nullptr ? nullptr : new (memory.release()) aoStream(std::move(core));
    });
  }

  static StreamCore* CoreOf(const aoStream* stream) { return stream->core.get(); }

  // The one place where an object of a storage ends. Its class has virtual operations and no
  // virtual destructor; what ends here was made as an aoStream and as nothing derived from it.
  static void End(aoStream* stream) {
    stream->aoStream::~aoStream();
    ::operator delete(stream);
  }

 private:
  struct RawDeleter {
    void operator()(void* memory) const { ::operator delete(memory); }
  };
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_STREAM_STREAM_MAKER_H_
