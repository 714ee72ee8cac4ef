#include "storage/shared_stream.h"

#include <iterator>
#include <utility>

namespace aostorage::detail {
namespace {

bool LiesInside(const SharedStream& stream, const SharedStream& folder) {
  for (const SharedStream* at = stream.Parent(); at != nullptr; at = at->Parent()) {
    if (at == &folder) return true;
  }
  return false;
}

}  // namespace

SharedStream::SharedStream(SharedStreams& openStreams, std::uint32_t offset,
                           const tag_aoStream& header, std::shared_ptr<SharedStream> folder)
    : onDisk(header), table(openStreams), headerOffset(offset), parent(std::move(folder)) {
  if (parent != nullptr) ++parent->openChildren;
}

// Parents that only their children hold are let go one by one: the chain may be deeper than the
// stack.
SharedStream::~SharedStream() {
  table.Leave(*this);
  bool counted = !removed;
  for (std::shared_ptr<SharedStream> up = std::move(parent); up != nullptr;) {
    if (counted) --up->openChildren;
    if (up.use_count() > 1) break;
    counted = !up->removed;
    std::shared_ptr<SharedStream> further = std::move(up->parent);
    up = std::move(further);
  }
}

void SharedStream::MarkRemoved() {
  if (removed) return;
  removed = true;
  if (parent != nullptr) --parent->openChildren;
}

std::shared_ptr<SharedStream> SharedStreams::Find(std::uint32_t headerOffset) const {
  const auto found = byHeaderOffset.find(headerOffset);
  return found == byHeaderOffset.end() ? nullptr : found->second.lock();
}

std::shared_ptr<SharedStream> SharedStreams::FindOrMake(
    std::uint32_t headerOffset, const tag_aoStream& header,
    const std::shared_ptr<SharedStream>& folder) {
  if (std::shared_ptr<SharedStream> present = Find(headerOffset)) {
    present->onDisk = header;  // just read: what it says is newer than what was remembered
    return present;
  }
  auto made = std::make_shared<SharedStream>(*this, headerOffset, header, folder);
  byHeaderOffset[headerOffset] = made;
  return made;
}

void SharedStreams::Leave(const SharedStream& stream) {
  const auto found = byHeaderOffset.find(stream.HeaderOffset());
  if (found == byHeaderOffset.end()) return;
  const std::shared_ptr<SharedStream> present = found->second.lock();
  if (present == nullptr || present.get() == &stream) byHeaderOffset.erase(found);
}

void SharedStreams::Displace(std::uint32_t headerOffset) {
  if (const std::shared_ptr<SharedStream> old = Find(headerOffset)) MarkRemoved(*old);
}

void SharedStreams::MarkRemoved(SharedStream& stream) {
  stream.MarkRemoved();
  Leave(stream);
  if (!stream.HasOpenChildren()) return;
  for (auto entry = byHeaderOffset.begin(); entry != byHeaderOffset.end();) {
    const std::shared_ptr<SharedStream> open = entry->second.lock();
    const bool inside = open != nullptr && LiesInside(*open, stream);
    if (inside) open->MarkRemoved();
    // A stream made in its place later is another one.
    entry = inside ? byHeaderOffset.erase(entry) : std::next(entry);
  }
}

}  // namespace aostorage::detail
