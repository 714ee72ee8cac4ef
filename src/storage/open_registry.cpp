#include "storage/open_registry.h"

#include <utility>

#include "platform/last_error.h"

namespace aostorage::detail {
namespace {

// Only the flags of the first open count.
bool Shares(std::uint32_t recordFlags, std::uint32_t newFlags) {
  if ((recordFlags & kExclusive) != 0) return false;
  if ((recordFlags & kShareRead) == 0) return true;
  return (newFlags & (kExclusive | kShareReadWrite)) == 0;
}

}  // namespace

t_OpenStream* OpenRegistry::Find(std::string_view name) {
  if (records.empty()) return nullptr;
  const auto found = records.lower_bound(name);
  return found != records.end() && found->first == name ? &found->second.open : nullptr;
}

bool OpenRegistry::MayOpen(std::string_view name, std::uint32_t flags) {
  const t_OpenStream* record = Find(name);
  return record == nullptr || Shares(record->openFlags, flags) || Fail(ErrorCode::kShared);
}

void OpenRegistry::Open(std::string_view name, std::uint32_t flags) {
  if (t_OpenStream* record = Find(name)) {
    ++record->useCount;
  } else {
    Add(name, flags);
  }
}

void OpenRegistry::Add(std::string_view name, std::uint32_t flags) {
  std::string key(name);
  records.emplace(key, Record{{key, 1, flags}, nextNumber++});
}

std::int32_t OpenRegistry::Close(std::string_view name) {
  const auto found = records.lower_bound(name);
  if (found == records.end() || found->first != name) return kNoRecord;
  const auto before = static_cast<std::int32_t>(found->second.open.useCount);
  if (--found->second.open.useCount == 0) records.erase(found);
  return before;
}

void OpenRegistry::Rename(const std::string& oldName, std::string newName,
                          std::string newKey) noexcept {
  const auto found = records.lower_bound(oldName);
  if (found == records.end() || found->first != oldName) return;
  auto record = records.extract(found);
  record.key() = std::move(newKey);
  record.mapped().open.name = std::move(newName);
  auto younger = records.lower_bound(record.key());
  while (younger != records.end() && younger->first == record.key() &&
         younger->second.number < record.mapped().number) {
    ++younger;
  }
  records.insert(younger, std::move(record));
}

}  // namespace aostorage::detail
