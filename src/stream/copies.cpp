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
using detail::Operation;
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
  if (!source.Storage().file.Holds(size))
    return Fail(ErrorCode::kContradiction, source.Locator().headerOffset);
  if (size > capacity) {
    block.reset();
    capacity = 0;
    block.reset(HeapAllocate(size));
    if (block == nullptr) return false;
    capacity = size;
  }
  const bool fromStart = source.Cursor().position == 0;
  if (source.ReadOwn(block.get(), size) == size) return true;
  return fromStart ? Fail(ErrorCode::kContradiction, source.Locator().headerOffset)
                   : Fail(ErrorCode::kBehindEnd);
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
  const Operation operation("aoStream::CopyStream");
  if (core == nullptr) return Fail(ErrorCode::kWrongKind);
  if (destination == nullptr || OnSameStream(*this, *destination))
    return Fail(ErrorCode::kBadArgument);
  if (StreamMaker::CoreOf(destination) != nullptr) destination->Erase();
  if (GetLength() == 0) return Fail(ErrorCode::kNotFound);
  detail::WholeStream whole;
  if (!whole.Read(*core)) return false;
  if (detail::StreamCore* target = StreamMaker::CoreOf(destination)) target->Rewind();
  return destination->Write(whole.Data(), whole.Size(), true) == whole.Size() ||
         Fail(ErrorCode::kInputOutput);
}

std::uint32_t aoStream::CopyStreamToBuffer(std::uint8_t*& buffer) {
  const Operation operation("aoStream::CopyStreamToBuffer");
  buffer = nullptr;
  if (core == nullptr) return Fail(ErrorCode::kWrongKind), 0;
  if (GetLength() == 0) return Fail(ErrorCode::kNotFound), 0;
  detail::WholeStream whole;
  if (!whole.Read(*core)) return 0;
  buffer = whole.Take().release();
  return whole.Size();
}

void aoStream::FreeBuffer(std::uint8_t*& buffer) {
  detail::HeapFree(buffer);
  buffer = nullptr;
}

std::uint8_t* aoStream::AllocateBuffer(std::size_t size) {
  const Operation operation("aoStream::AllocateBuffer");
  return detail::HeapAllocate(size);
}

}  // namespace aostorage
