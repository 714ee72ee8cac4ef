// The life of a facade, and how it selects and removes streams. Each object shares what it holds
// with its copies; see held.h.
#include <utility>

#include <aostorage/compound_file.h>

#include "access/held.h"
#include "platform/last_error.h"

namespace aostorage {

using detail::Attempt;
using detail::Fail;
using detail::Guarded;
using detail::HeldStorage;
using detail::Hold;
using detail::Operation;

namespace {

constexpr std::int32_t kReadMode = 1;
constexpr std::int32_t kWriteMode = 2;
constexpr std::int32_t kSecondReadMode = 3;  // no different from the first

// Goes on to creating only where nothing is lost: no file, or one of 0 bytes. `fellBack` is set
// then.
aoStorage* OpenForWriting(const char* path, std::int32_t& fellBack) {
  Attempt opening;
  aoStorage* const existing = aoStorage::Open(path, kWriteFlags, 0);
  if (existing != nullptr) return existing;
  if (opening.Code() != ErrorCode::kNotFound && opening.Code() != ErrorCode::kNotAStorage)
    return nullptr;
  opening.Forget();
  const Attempt creating;
  aoStorage* const made = aoStorage::OpenOrCreate(path, kWriteFlags, 0);
  if (made != nullptr || creating.Code() != ErrorCode::kNotAStorage) fellBack = 1;
  return made;
}

// What is closed on the way need not have been open.
template <typename Closing>
void Quietly(Closing closing) {
  Attempt attempt;
  closing();
  attempt.Forget();
}

bool IsFolder(const aoStream* stream) { return stream != nullptr && stream->IsFolder() != 0; }

}  // namespace

// --- Life

CCompStgFile::CCompStgFile() = default;
CCompStgFile::CCompStgFile(const CCompStgFile& other) = default;
CCompStgFile& CCompStgFile::operator=(const CCompStgFile& other) = default;
CCompStgFile::~CCompStgFile() {
  Quietly([&] { Close(); });
}

int CCompStgFile::Open(const char* path, std::int32_t openMode) {
  const Operation operation("CCompStgFile::Open");
  Quietly([&] { Close(); });
  return Guarded(0, [&] {
    // Before the storage: nothing fails once it is open.
    auto held = std::make_shared<HeldStorage>();
    switch (openMode) {
      case kReadMode:
      case kSecondReadMode:
        held->Take(aoStorage::Open(path, kReadFlags, 0));
        break;
      case kWriteMode:
        held->Take(OpenForWriting(path, createdNew));
        break;
      default:
        Fail(ErrorCode::kBadArgument);
    }
    if (held->Get() == nullptr) return 0;
    storage = std::move(held);
    mode = openMode;
    return 1;
  });
}

int CCompStgFile::Close() {
  const Operation operation("CCompStgFile::Close");
  const bool wasOpen = Storage() != nullptr;
  Quietly([&] { CloseStream(); });
  if (storage != nullptr) storage->Close();
  storage.reset();
  mode = 0;
  return wasOpen || Fail(ErrorCode::kNotOpen) ? 1 : 0;
}

int CCompStgFile::CloseStream() {
  const Operation operation("CCompStgFile::CloseStream");
  Quietly([&] { CloseChildStream(); });
  buffer.reset();
  bufferAux64 = 0;
  bufferAux32 = 0;
  const bool wasOpen = Generic() != nullptr;
  if (wasOpen) stream->Close();
  stream.reset();
  return wasOpen || Fail(ErrorCode::kNotOpen) ? 1 : 0;
}

int CCompStgFile::CloseChildStream() {
  const Operation operation("CCompStgFile::CloseChildStream");
  const bool wasOpen = Child() != nullptr;
  if (wasOpen) childStream->Close();
  childStream.reset();
  return wasOpen || Fail(ErrorCode::kNotOpen) ? 1 : 0;
}

bool CCompStgFile::CreatedNew() const { return createdNew != 0; }
std::int32_t CCompStgFile::Mode() const { return Storage() != nullptr ? mode : 0; }

aoStorage* CCompStgFile::Storage() const { return storage != nullptr ? storage->Get() : nullptr; }
aoStream* CCompStgFile::Generic() const { return stream != nullptr ? stream->Get() : nullptr; }
aoStream* CCompStgFile::Child() const {
  return childStream != nullptr ? childStream->Get() : nullptr;
}

std::uint32_t CCompStgFile::ModeFlags() const {
  return Mode() == kWriteMode ? kWriteFlags : kReadFlags;
}

// --- Selecting

bool CCompStgFile::Select(const char* name, std::uint32_t flags) {
  Quietly([&] { CloseStream(); });
  aoStorage* const root = Storage();
  if (root == nullptr) return Fail(ErrorCode::kNotOpen);
  return Guarded(false, [&] {
    stream = Hold(storage, nullptr, [&] { return root->OpenStream(name, flags); });
    return stream != nullptr;
  });
}

int CCompStgFile::OpenGenericStream(const char* name) {
  const Operation operation("CCompStgFile::OpenGenericStream");
  return Select(name, kWriteFlags) ? 1 : 0;
}

int CCompStgFile::OpenGenericStreams(const char* name, const char* childName) {
  const Operation operation("CCompStgFile::OpenGenericStreams");
  if (!Select(name, ModeFlags())) return 0;
  aoStream* const folder = Generic();
  if (!IsFolder(folder)) return 1;
  return Guarded(0, [&] {
    childStream = Hold(storage, stream, [&] { return folder->OpenStream(childName, ModeFlags()); });
    return childStream != nullptr ? 1 : 0;
  });
}

int CCompStgFile::OpenOrCreateGenericStream(const char* name, std::int32_t toEnd,
                                            std::uint32_t packedKind) {
  const Operation operation("CCompStgFile::OpenOrCreateGenericStream");
  std::int32_t created = 0;
  return OpenOrCreateGenericStream(name, toEnd, packedKind, created);
}

int CCompStgFile::OpenOrCreateGenericStream(const char* name, std::int32_t toEnd,
                                            std::uint32_t packedKind, std::int32_t& created) {
  const Operation operation("CCompStgFile::OpenOrCreateGenericStream");
  Quietly([&] { CloseStream(); });
  created = 0;
  aoStorage* const root = Storage();
  if (root == nullptr) return Fail(ErrorCode::kNotOpen), 0;
  return Guarded(0, [&] {
    stream = Hold(storage, nullptr, [&] {
      Attempt opening;
      aoStream* const there = root->OpenStream(name, kWriteFlags);
      created = there == nullptr ? 1 : 0;
      // One that is there and does not open could not be created either.
      if (opening.Code() != ErrorCode::kNotFound) return there;
      opening.Forget();
      return root->CreateStream(name, packedKind, kWriteFlags);
    });
    if (stream == nullptr) return 0;
    if (toEnd != 0) Generic()->Seek(0, 1);
    return 1;
  });
}

std::int32_t CCompStgFile::GetStreamSize() {
  const Operation operation("CCompStgFile::GetStreamSize");
  const aoStream* const from = Generic();
  if (from == nullptr) return Fail(ErrorCode::kNotOpen), 0;
  return static_cast<std::int32_t>(from->GetLength());
}

// --- Removing

int CCompStgFile::RemoveGenericStream() {
  const Operation operation("CCompStgFile::RemoveGenericStream");
  aoStream* const target = Generic();
  if (target == nullptr) return Fail(ErrorCode::kNotOpen), 0;
  if (!target->Remove()) return 0;
  stream->Forget();  // the object has ended with its stream
  stream.reset();
  return 1;
}

int CCompStgFile::RemoveGenericStream(const char* name) {
  const Operation operation("CCompStgFile::RemoveGenericStream");
  return Select(name, kWriteFlags) ? RemoveGenericStream() : 0;
}

int CCompStgFile::RemoveGenericChildStream(const char* name, const char* childName) {
  const Operation operation("CCompStgFile::RemoveGenericChildStream");
  if (!Select(name, kWriteFlags)) return 0;
  aoStream* const folder = Generic();
  if (!IsFolder(folder)) return Fail(ErrorCode::kWrongKind), 0;
  const bool named = childName != nullptr && *childName != '\0';
  aoStream* const child = named ? folder->OpenStream(childName, kWriteFlags) : nullptr;
  if (child != nullptr && !child->Remove()) child->Release();
  CloseStream();
  if (!named) Fail(ErrorCode::kNameUnusable);
  return named ? 1 : 0;
}

}  // namespace aostorage
