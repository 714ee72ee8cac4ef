// Whole streams through one buffer.
#include <aostorage/stream.h>

#include "platform/heap.h"
#include "platform/last_error.h"
#include "stream/stream_core.h"
#include "stream/stream_maker.h"

namespace aostorage {

using detail::Fail;
using detail::StreamMaker;

namespace {

// All of a stream, from its cursor on; null when it cannot be had whole. `size` is not 0.
detail::HeapBlock ReadWhole(aoStream& source, std::uint32_t size) {
  detail::HeapBlock bytes(detail::HeapAllocate(size));
  if (bytes == nullptr) return nullptr;
  const std::uint32_t got = source.Read(bytes.get(), size);
  if (got == size) return bytes;
  if (got != kFailed) Fail(Error::kDamaged);
  return nullptr;
}

// A length that the file has no room for is damage, and no reason to ask for that much memory.
bool HasRoomFor(const detail::StreamCore& core, std::uint32_t size) {
  return core.Storage().file.Holds(size) || Fail(Error::kDamaged);
}

bool OnSameStream(const aoStream& one, const aoStream& other) {
  const detail::StreamCore* a = StreamMaker::CoreOf(&one);
  const detail::StreamCore* b = StreamMaker::CoreOf(&other);
  return &one == &other || (a != nullptr && b != nullptr && a->Shared() == b->Shared());
}

}  // namespace

bool aoStream::CopyStream(aoStream* destination) {
  if (core == nullptr || destination == nullptr) return Fail(Error::kBadArgument);
  if (OnSameStream(*this, *destination)) return Fail(Error::kRefused);
  destination->Erase();
  const std::uint32_t size = GetLength();
  if (!HasRoomFor(*core, size)) return false;
  if (size == 0) return Fail(Error::kNotFound);
  const detail::HeapBlock bytes = ReadWhole(*this, size);
  if (bytes == nullptr) return false;
  if (detail::StreamCore* target = StreamMaker::CoreOf(destination)) target->Rewind();
  return destination->Write(bytes.get(), size, true) == size;
}

std::uint32_t aoStream::CopyStreamToBuffer(std::uint8_t*& buffer) {
  buffer = nullptr;
  if (core == nullptr) return Fail(Error::kRefused), 0;
  const std::uint32_t size = GetLength();
  if (size == 0 || !HasRoomFor(*core, size)) return 0;
  buffer = ReadWhole(*this, size).release();
  return buffer == nullptr ? 0 : size;
}

void aoStream::FreeBuffer(std::uint8_t*& buffer) {
  detail::HeapFree(buffer);
  buffer = nullptr;
}

std::uint8_t* aoStream::AllocateBuffer(std::size_t size) { return detail::HeapAllocate(size); }

}  // namespace aostorage
