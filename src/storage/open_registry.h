// The names that stream objects hold open, and the sharing rule between them. A storage has one for
// its root streams, each folder object one for its children.
#ifndef AOSTORAGE_STORAGE_OPEN_REGISTRY_H_
#define AOSTORAGE_STORAGE_OPEN_REGISTRY_H_

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include <aostorage/types.h>

namespace aostorage::detail {

class OpenRegistry {
 public:
  static constexpr std::int32_t kNoRecord = -1;

  // The oldest record of that name, or null. Valid until that record closes.
  t_OpenStream* Find(std::string_view name);
  // Whether the flags of the name's record let a further open with `flags` through. Notes the
  // reason.
  bool MayOpen(std::string_view name, std::uint32_t flags);
  // Counts one more use: in the name's record, which keeps its flags, or in a new one.
  void Open(std::string_view name, std::uint32_t flags);
  // Adds a record even if the name has one.
  void Add(std::string_view name, std::uint32_t flags);
  // Takes one use off. The count before it, or kNoRecord.
  std::int32_t Close(std::string_view name);
  // The name's oldest record follows a renamed stream and keeps its age. The new name comes twice,
  // for the record and its key, so that nothing is left to allocate.
  void Rename(const std::string& oldName, std::string newName, std::string newKey) noexcept;
  void Clear() { records.clear(); }

 private:
  struct Record {
    t_OpenStream open;
    std::uint64_t number;  // in the order of their making
  };

  // Records of one name stand in the order of their making.
  std::multimap<std::string, Record, std::less<>> records;
  std::uint64_t nextNumber = 0;
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_STORAGE_OPEN_REGISTRY_H_
