// Places where streams are named, and ways down to them.
#ifndef AOSTORAGE_TOOLS_TRAIL_H_
#define AOSTORAGE_TOOLS_TRAIL_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <aostorage/path_loader.h>

#include "store.h"

namespace aotool {

// The names between the slashes of a path, empty ones included.
std::vector<std::string> SplitPath(std::string_view path);

// Where streams are named: a folder, or the root of the store. Borrows both.
struct Place {
  aostorage::aoStorage* storage = nullptr;
  aostorage::aoStream* folder = nullptr;  // null: the root

  // Null when there is none or it cannot be opened; the library's last error tells which.
  StreamPtr Open(const std::string& name, std::uint32_t flags) const;
  StreamPtr Create(const std::string& name, std::uint32_t packedKind) const;
};

// True when the last Open failed because there is no such name. Clear the last error before that
// Open.
bool NameIsMissing();

// The open folders on the way from a place down to another. Ends them from the bottom up, as they
// need it.
class Trail {
 public:
  explicit Trail(Place top) : start(top) {}
  Trail(const Trail&) = delete;
  Trail& operator=(const Trail&) = delete;
  ~Trail();

  // Goes down a path all at once, from the root on, when its names lead to a folder. Nothing was
  // entered before.
  bool Walk(const std::string& path, std::uint32_t flags);
  // Leaves all folders.
  void Reset();

  Place Bottom() const;
  void Push(const std::string& name, StreamPtr folder);
  void Pop();
  const std::vector<std::string>& Names() const { return names; }

 private:
  Place start;
  aostorage::CPathLoader loader;          // owns what Walk opened
  aostorage::aoStream* walked = nullptr;  // null: still at the start
  std::vector<std::string> names;
  std::vector<StreamPtr> folders;
};

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_TRAIL_H_
