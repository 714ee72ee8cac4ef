// The public face of an open stream: data, state, positioning, length.
#include <utility>

#include <aostorage/stream.h>

#include "platform/last_error.h"
#include "stream/stream_core.h"
#include "stream/stream_maker.h"

namespace aostorage {

using detail::Fail;
using detail::Guarded;
using detail::Operation;

namespace {

// Of a stream without a place in a storage, what only such a place has.
template <typename Number>
Number Lacks(const char* operationName) {
  const Operation operation(operationName);
  Fail(ErrorCode::kWrongKind);
  return 0;
}

}  // namespace

aoStream::aoStream() = default;
aoStream::aoStream(std::unique_ptr<detail::StreamCore> openCore) : core(std::move(openCore)) {}
aoStream::~aoStream() = default;

std::uint32_t aoStream::Read(void* buffer, std::uint32_t count) {
  const Operation operation("aoStream::Read");
  if (core == nullptr) return Fail(ErrorCode::kWrongKind), kFailed;
  return core->Read(buffer, count);
}

std::uint32_t aoStream::Write(const void* buffer, std::uint32_t count, bool final) {
  const Operation operation("aoStream::Write");
  if (core == nullptr) return Fail(ErrorCode::kWrongKind), kFailed;
  core->ForgetIndex();  // what is written straight into a folder's data may be child records
  return core->Write(buffer, count, final);
}

int aoStream::IsFolder() const { return core != nullptr && core->IsFolder() ? 1 : 0; }
std::uint16_t aoStream::GetDuration() const {
  return core != nullptr ? core->Header().duration : Lacks<std::uint16_t>("aoStream::GetDuration");
}
const char* aoStream::GetName() const {
  return core != nullptr ? core->Header().name : (Lacks<int>("aoStream::GetName"), "");
}
std::uint32_t aoStream::GetCurDataPos() const {
  return core != nullptr ? core->Cursor().position
                         : Lacks<std::uint32_t>("aoStream::GetCurDataPos");
}
std::uint32_t aoStream::GetNumChildren() const {
  return core != nullptr ? core->ChildCount() : Lacks<std::uint32_t>("aoStream::GetNumChildren");
}
std::uint32_t aoStream::GetLength() const {
  return core != nullptr ? core->Header().length : Lacks<std::uint32_t>("aoStream::GetLength");
}

std::uint32_t aoStream::Seek(std::uint32_t distance, std::uint8_t origin, bool forward) {
  const Operation operation("aoStream::Seek");
  if (core == nullptr) return Fail(ErrorCode::kWrongKind), kFailed;
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
      Fail(ErrorCode::kBadArgument);
  }
  return moved ? 0 : kFailed;
}

std::int32_t aoStream::Seek2(std::int32_t offset, std::uint32_t origin) {
  const Operation operation("aoStream::Seek2");
  if (core == nullptr) return Fail(ErrorCode::kWrongKind), -1;
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
  const Operation operation("aoStream::SetLength");
  if (core == nullptr) return Fail(ErrorCode::kWrongKind);
  return core->SetLength(newLength);
}

bool aoStream::Erase() {
  const Operation operation("aoStream::Erase");
  if (core == nullptr) return Fail(ErrorCode::kWrongKind);
  return core->Erase();
}

bool aoStream::GoNext() {
  return Guarded("aoStream::GoNext", false,
                 [&] { return core != nullptr ? core->GoNext() : Fail(ErrorCode::kWrongKind); });
}

int aoStream::Release() {
  const Operation operation("aoStream::Release");
  if (core == nullptr) return Fail(ErrorCode::kWrongKind), 0;
  const int useCount = *core->Header().name == '\0' ? 0 : core->CloseInRegistry();
  detail::StreamMaker::End(this);
  return useCount;
}

}  // namespace aostorage
