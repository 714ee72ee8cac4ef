// Walks of a facade, and its cursor.
#include <cstddef>
#include <string_view>

#include <aostorage/compound_file.h>

#include "access/held.h"
#include "platform/last_error.h"

namespace aostorage {

using detail::Fail;
using detail::Guarded;
using detail::Hold;
using detail::Operation;

namespace {

constexpr std::size_t kKeptNameLength = 63;
constexpr std::size_t kNumberedNameLength = 8;

// Names as CreateStreamName writes them for numbers from 0x10000000 on, in either case. The number
// with all bits set is none.
bool IsNumberedName(std::string_view name) {
  constexpr std::string_view kDigits = "0123456789abcdefABCDEF";
  return name.size() == kNumberedNameLength && name.front() != '0' &&
         name.find_first_not_of(kDigits) == std::string_view::npos &&
         name.find_first_not_of("fF") != std::string_view::npos;
}

int Seek(aoStream* stream, std::uint8_t origin) {
  if (stream == nullptr) return Fail(ErrorCode::kNotOpen), 0;
  stream->Seek(0, origin);
  return 1;
}

}  // namespace

// --- Root streams

CCompStgFile::Step CCompStgFile::WalkOn(std::uint32_t flags) {
  aoStorage* const root = Storage();
  if (root == nullptr) return Fail(ErrorCode::kNotOpen), Step::kNone;
  if (aoStream* const moving = Generic()) {
    if (!moving->GoNext()) return Step::kEnd;
    stream->childCookie = 0;
    return Step::kStands;
  }
  return Guarded(Step::kNone, [&] {
    stream = Hold(storage, nullptr, [&] { return root->OpenStreamFirst(flags); });
    return stream != nullptr ? Step::kStands : Step::kNone;
  });
}

int CCompStgFile::OpenNextGenericStream() {
  const Operation operation("CCompStgFile::OpenNextGenericStream");
  const Step step = WalkOn(ModeFlags());
  if (step == Step::kEnd) CloseStream();
  return step == Step::kStands ? 1 : 0;
}

int CCompStgFile::OpenNextStream() {
  const Operation operation("CCompStgFile::OpenNextStream");
  for (;;) {
    const Step step = WalkOn(kReadFlags);
    if (step == Step::kEnd) CloseStream();
    if (step != Step::kStands) return 0;
    if (IsNumberedName(Generic()->GetName())) return 1;
  }
}

char* CCompStgFile::GetNextStreamName(std::uint32_t flags) {
  const Operation operation("CCompStgFile::GetNextStreamName");
  return WalkOn(flags) == Step::kStands ? KeepName(*Generic()) : nullptr;
}

char* CCompStgFile::GetStreamName() {
  const Operation operation("CCompStgFile::GetStreamName");
  const aoStream* const from = Generic();
  if (from == nullptr) return Fail(ErrorCode::kNotOpen), nullptr;
  return KeepName(*from);
}

char* CCompStgFile::KeepName(const aoStream& from) {
  const std::string_view name(from.GetName());
  nameBuffer[name.copy(nameBuffer.data(), kKeptNameLength)] = '\0';
  return nameBuffer.data();
}

// --- Children

char* CCompStgFile::GetNextChildStreamName(aoStream*& child) {
  const Operation operation("CCompStgFile::GetNextChildStreamName");
  aoStream* const folder = Generic();
  if (folder == nullptr) return Fail(ErrorCode::kNotOpen), nullptr;
  if (folder->IsFolder() == 0) return Fail(ErrorCode::kWrongKind), nullptr;
  std::uint32_t& cookie = stream->childCookie;
  const bool goesOn = child != nullptr && cookie != 0;
  if (child != nullptr) child->Release();
  child = goesOn ? folder->OpenStreamNext(cookie, kReadFlags)
                 : folder->OpenStreamFirst(cookie, kReadFlags);
  return child != nullptr ? KeepName(*child) : nameBuffer.data();
}

// --- Cursor

int CCompStgFile::GoToBeginningOfGenericStream() {
  const Operation operation("CCompStgFile::GoToBeginningOfGenericStream");
  return Seek(Generic(), 0);
}

int CCompStgFile::GoToBeginningOfGenericChildStream() {
  const Operation operation("CCompStgFile::GoToBeginningOfGenericChildStream");
  return Seek(Generic() != nullptr ? Child() : nullptr, 0);
}

int CCompStgFile::GoToEndOfGenericChildStream() {
  const Operation operation("CCompStgFile::GoToEndOfGenericChildStream");
  return Seek(Generic() != nullptr ? Child() : nullptr, 1);
}

}  // namespace aostorage
