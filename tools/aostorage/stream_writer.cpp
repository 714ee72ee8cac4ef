#include "stream_writer.h"

#include <cstddef>
#include <cstdint>
#include <utility>

#include <aostorage/error.h>
#include <aostorage/types.h>

#include "names.h"
#include "transfer.h"
#include "walk.h"

namespace aotool {
namespace {

std::string StandsAs(const std::string& name) {
  return "; the new content stands under the name '" + Shown(name) + "'";
}

// Without clearing the last error, which tells why the stream could not be filled.
bool TakeBack(StreamPtr& stream) {
  if (!stream->Remove()) return false;
  static_cast<void>(stream.release());
  return true;
}

// Where the record of a child stands; 0 when there is none.
std::uint32_t RecordOf(Place place, const std::string& name) {
  aostorage::tag_aoStream header;
  aostorage::tag_aoStreamOffset offset;
  return place.folder->FindStream(name.c_str(), header, offset) ? offset.headerOffset : 0;
}

// Gives the new stream its name. Where two children had it, the other one might be found first.
Result RenameChild(Place place, const std::string& name, const std::string& nameForNow,
                   aostorage::aoStream& fresh) {
  const std::uint32_t record = RecordOf(place, nameForNow);
  aostorage::ClearLastError();
  if (!fresh.Rename(name.c_str())) return FromLibrary();
  if (RecordOf(place, name) == record) return {};
  static_cast<void>(fresh.Rename(nameForNow.c_str()));
  return {kFailure, "a further stream has this name"};
}

Result RenameRoot(const std::string& name, aostorage::aoStream& fresh) {
  aostorage::ClearLastError();
  return fresh.Rename(name.c_str()) ? Result{} : FromLibrary();
}

// The new stream is whole, whatever becomes of the old one meanwhile.
Result CopyOver(aostorage::aoStream& old, StreamPtr& fresh, const std::string& nameForNow) {
  Transfer transfer([](std::uint64_t) {});
  transfer.IgnoreInterrupts();
  aostorage::ClearLastError();
  Result result;
  if (fresh->Seek(0, 0) != 0 || old.Seek(0, 0) != 0) result = FromLibrary();
  if (result.Ok()) result = transfer.CopyAcross(*fresh, old);
  if (result.Ok()) return Remove(fresh);
  result.reason += StandsAs(nameForNow);
  return result;
}

// Counted as far as the library gathers them; it opens each one on the way.
std::size_t SlotsInUse(aostorage::aoStorage& storage) {
  int position = -1;
  StreamPtr stream(storage.OpenStreamFirst2(position, aostorage::kReadFlags));
  for (int before = -1; position != before;) {
    before = position;
    stream.reset(storage.OpenStreamNext2(position, aostorage::kReadFlags));
  }
  return static_cast<std::size_t>(position + 1);
}

}  // namespace

Result FreeNameBeside(Place place, const std::string& name, std::string& free) {
  UsedNames tried;
  for (;;) {
    free = tried.MakeUnique("~new~" + name, aostorage::kMaxNameLength);
    aostorage::ClearLastError();
    if (place.Open(free, aostorage::kReadFlags)) continue;
    return NameIsMissing() ? Result{} : FromLibrary();
  }
}

Result PutInPlace(Place place, const std::string& name, const std::string& nameForNow,
                  StreamPtr& old, StreamPtr& fresh) {
  if (Result result = Remove(old); !result.Ok()) {
    result.reason += TakeBack(fresh) ? "; the old content stays" : StandsAs(nameForNow);
    return result;
  }
  Result result = place.folder != nullptr ? RenameChild(place, name, nameForNow, *fresh)
                                          : RenameRoot(name, *fresh);
  if (!result.Ok()) result.reason += StandsAs(nameForNow);
  return result;
}

Result StreamWriter::Write(Place place, const std::string& name, std::uint32_t packedKind,
                           StreamPtr old, const Fill& fill) {
  StreamPtr fresh;
  if (!old) {
    Result result = WriteNew(place, name, packedKind, fill, fresh);
    if (!result.Ok()) result.reason += fresh ? "; what was stored stays" : "; nothing was stored";
    return result;
  }
  std::string nameForNow;
  Result result = FreeNameBeside(place, name, nameForNow);
  if (result.Ok()) result = WriteNew(place, nameForNow, packedKind, fill, fresh);
  if (!result.Ok()) {
    result.reason += "; the old content stays";
    return result;
  }
  return MustKeepSlot(place, name, *old) ? CopyOver(*old, fresh, nameForNow)
                                         : PutInPlace(place, name, nameForNow, old, fresh);
}

Result StreamWriter::WriteNew(Place place, const std::string& name, std::uint32_t packedKind,
                              const Fill& fill, StreamPtr& stream) {
  aostorage::ClearLastError();
  stream = place.Create(name, packedKind);
  if (!stream) return FromLibrary();
  Result result = fill(*stream, name);
  if (!result.Ok()) TakeBack(stream);
  return result;
}

// A stream of a reserved slot is opened by its slot. And of several root streams of one name the
// one of the last slot is seen.
bool StreamWriter::MustKeepSlot(Place place, const std::string& name,
                                const aostorage::aoStream& old) {
  if (place.folder != nullptr || old.IsFolder() == 1) return false;
  if (StreamPtr(place.storage->OpenStreamFast(name.c_str(), aostorage::kReadFlags))) return true;
  if (!rootHasTwins) rootHasTwins = SlotsInUse(*place.storage) != RootNames(*place.storage).size();
  return *rootHasTwins;
}

}  // namespace aotool
