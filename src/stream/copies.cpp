// Whole streams through one buffer.
#include <algorithm>

#include <aostorage/stream.h>

#include "platform/heap.h"
#include "platform/last_error.h"
#include "stream/stream_core.h"
#include "stream/stream_maker.h"
#include "stream/whole_stream.h"

namespace aostorage {

using detail::Fail;
using detail::StreamMaker;

namespace detail {

bool WholeStream::Read(StreamCore& source) { return ReadFirst(source, source.Header().length); }

bool WholeStream::ReadHead(StreamCore& source, std::uint32_t headSize) {
  const std::uint32_t length = source.Header().length;
  if (!ReadFirst(source, std::min(length, headSize))) return false;
  ChainCursor rest = source.Cursor();
  return rest.Skip(source.Storage().file, length - size);
}

bool WholeStream::ReadFirst(StreamCore& source, std::uint32_t count) {
  size = count;
  // A length that the file has no room for is damage, and no reason to ask for that much memory.
  if (!source.Storage().file.Holds(size)) return Fail(Error::kDamaged);
  if (size > capacity) {
    block.reset();
    capacity = 0;
    block.reset(HeapAllocate(size));
    if (block == nullptr) return false;
    capacity = size;
  }
  const std::uint32_t got = source.ReadOwn(block.get(), size);
  return got == size || (got != kFailed && Fail(Error::kDamaged));
}

}  // namespace detail

namespace {

bool OnSameStream(const aoStream& one, const aoStream& other) {
  const detail::StreamCore* a = StreamMaker::CoreOf(&one);
  const detail::StreamCore* b = StreamMaker::CoreOf(&other);
  return &one == &other || (a != nullptr && b != nullptr && a->IsOn(*b));
}

}  // namespace

bool aoStream::CopyStream(aoStream* destination) {
  if (core == nullptr || destination == nullptr) return Fail(Error::kBadArgument);
  if (OnSameStream(*this, *destination)) return Fail(Error::kRefused);
  destination->Erase();
  if (GetLength() == 0) return Fail(Error::kNotFound);
  detail::WholeStream whole;
  if (!whole.Read(*core)) return false;
  if (detail::StreamCore* target = StreamMaker::CoreOf(destination)) target->Rewind();
  return destination->Write(whole.Data(), whole.Size(), true) == whole.Size();
}

std::uint32_t aoStream::CopyStreamToBuffer(std::uint8_t*& buffer) {
  buffer = nullptr;
  if (core == nullptr) return Fail(Error::kRefused), 0;
  detail::WholeStream whole;
  if (GetLength() == 0 || !whole.Read(*core)) return 0;
  buffer = whole.Take().release();
  return whole.Size();
}

void aoStream::FreeBuffer(std::uint8_t*& buffer) {
  detail::HeapFree(buffer);
  buffer = nullptr;
}

std::uint8_t* aoStream::AllocateBuffer(std::size_t size) { return detail::HeapAllocate(size); }

}  // namespace aostorage
