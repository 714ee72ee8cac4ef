// The public face of an open stream: data, state, positioning, length.
#include <utility>

#include <aostorage/stream.h>

#include "platform/last_error.h"
#include "stream/stream_core.h"
#include "stream/stream_maker.h"

namespace aostorage {

using detail::Fail;
using detail::Guarded;

aoStream::aoStream() = default;
aoStream::aoStream(std::unique_ptr<detail::StreamCore> openCore) : core(std::move(openCore)) {}
aoStream::~aoStream() = default;

std::uint32_t aoStream::Read(void* buffer, std::uint32_t count) {
  if (core == nullptr) return Fail(Error::kRefused), kFailed;
  return core->Read(buffer, count);
}

std::uint32_t aoStream::Write(const void* buffer, std::uint32_t count, bool final) {
  if (core == nullptr) return Fail(Error::kRefused), kFailed;
  core->ForgetIndex();  // what is written straight into a folder's data may be child records
  return core->Write(buffer, count, final);
}

int aoStream::IsFolder() const { return core != nullptr && core->IsFolder() ? 1 : 0; }
std::uint16_t aoStream::GetDuration() const {
  return core != nullptr ? core->Header().duration : std::uint16_t{0};
}
const char* aoStream::GetName() const { return core != nullptr ? core->Header().name : ""; }
std::uint32_t aoStream::GetCurDataPos() const {
  return core != nullptr ? core->Cursor().position : 0;
}
std::uint32_t aoStream::GetNumChildren() const { return core != nullptr ? core->ChildCount() : 0; }
std::uint32_t aoStream::GetLength() const { return core != nullptr ? core->Header().length : 0; }

std::uint32_t aoStream::Seek(std::uint32_t distance, std::uint8_t origin, bool forward) {
  if (core == nullptr) return Fail(Error::kRefused), kFailed;
  bool moved = false;
  switch (origin) {
    case 0:
      moved = core->SeekRight(distance, true);
      break;
    case 1:
      moved = core->SeekLeft(distance, true);
      break;
    case 2:
      moved = forward ? core->SeekRight(distance, false) : core->SeekLeft(distance, false);
      break;
    default:
      Fail(Error::kBadArgument);
  }
  return moved ? 0 : kFailed;
}

std::int32_t aoStream::Seek2(std::int32_t offset, std::uint32_t origin) {
  if (core == nullptr) return Fail(Error::kRefused), -1;
  const auto magnitude =
      offset < 0 ? 0U - static_cast<std::uint32_t>(offset) : static_cast<std::uint32_t>(offset);
  bool moved = false;
  if (origin > 1) {
    moved = core->SeekRight(0, true);
  } else if (offset < 0) {
    moved = core->SeekLeft(magnitude, origin == 0);
  } else {
    moved = core->SeekRight(magnitude, origin == 0);
  }
  return moved ? 0 : -1;
}

bool aoStream::SetLength(std::uint32_t newLength) {
  if (core == nullptr) return Fail(Error::kRefused);
  return core->SetLength(newLength);
}

bool aoStream::Erase() {
  if (core == nullptr) return Fail(Error::kRefused);
  return core->Erase();
}

bool aoStream::GoNext() {
  if (core == nullptr) return Fail(Error::kRefused);
  return Guarded(false, [&] { return core->GoNext(); });
}

int aoStream::Release() {
  if (core == nullptr) return Fail(Error::kRefused), 0;
  const int useCount = *core->Header().name == '\0' ? 0 : core->CloseInRegistry();
  detail::StreamMaker::End(this);
  return useCount;
}

}  // namespace aostorage
