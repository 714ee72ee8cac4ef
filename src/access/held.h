// What facades that were copied from each other share.
#ifndef AOSTORAGE_ACCESS_HELD_H_
#define AOSTORAGE_ACCESS_HELD_H_

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include <aostorage/storage.h>
#include <aostorage/stream.h>

namespace aostorage::detail {

class HeldStream;

// An open storage. Whoever closes it closes it for all, and with it the streams that any of them
// has opened in it.
class HeldStorage {
 public:
  HeldStorage() = default;
  HeldStorage(const HeldStorage&) = delete;
  HeldStorage& operator=(const HeldStorage&) = delete;
  ~HeldStorage() { Close(); }

  void Take(aoStorage* opened) { open = opened; }
  aoStorage* Get() const { return open; }
  inline void Close();

 private:
  friend class HeldStream;
  aoStorage* open = nullptr;
  std::vector<HeldStream*> streams;  // in the order of opening
};

// An open stream, root or child.
class HeldStream {
 public:
  // `around`: the folder that a child is in, which outlives it.
  HeldStream(std::shared_ptr<HeldStorage> openStorage, std::shared_ptr<HeldStream> around)
      : storage(std::move(openStorage)), folder(std::move(around)) {
    storage->streams.push_back(this);
  }
  HeldStream(const HeldStream&) = delete;
  HeldStream& operator=(const HeldStream&) = delete;
  ~HeldStream() { Close(); }

  void Take(aoStream* opened) { open = opened; }
  aoStream* Get() const { return open; }
  void Close() {
    if (aoStream* const ending = Forget()) ending->Release();
  }
  // Gives the stream away: it ends elsewhere.
  aoStream* Forget() {
    std::vector<HeldStream*>& streams = storage->streams;
    streams.erase(std::remove(streams.begin(), streams.end(), this), streams.end());
    return std::exchange(open, nullptr);
  }

  // Where the walk over this folder's children goes on, 0 when none is on its way.
  std::uint32_t childCookie = 0;

 private:
  std::shared_ptr<HeldStorage> storage;
  std::shared_ptr<HeldStream> folder;
  aoStream* open = nullptr;
};

void HeldStorage::Close() {
  while (!streams.empty()) streams.back()->Close();  // children before their folders
  if (open != nullptr) std::exchange(open, nullptr)->Release();
}

// The stream that `opening` gives, for sharing. What can fail comes before the stream is open.
template <typename OpenBody>
std::shared_ptr<HeldStream> Hold(const std::shared_ptr<HeldStorage>& storage,
                                 const std::shared_ptr<HeldStream>& folder, OpenBody opening) {
  auto held = std::make_shared<HeldStream>(storage, folder);
  held->Take(opening());
  return held->Get() == nullptr ? nullptr : held;
}

}  // namespace aostorage::detail

#endif  // AOSTORAGE_ACCESS_HELD_H_
