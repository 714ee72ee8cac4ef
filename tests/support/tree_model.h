/// @file
/// A storage in plain memory as its callers see it: names, kinds, durations, values, the order of
/// slots and the rule of sharing. For long random histories over the whole library.
#ifndef AOSTORAGE_TESTS_SUPPORT_TREE_MODEL_H_
#define AOSTORAGE_TESTS_SUPPORT_TREE_MODEL_H_

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/tree_text.h"

namespace aostorage::testing {

/// The largest reserve of a block that histories work with.
inline constexpr std::uint32_t kMostReserve = 100;

struct TreeNode;
using Node = std::shared_ptr<TreeNode>;

/// A slot with its stream; without a name it is free. The root is a folder, too.
struct TreeNode {
  std::string name;
  bool folder = false;
  std::uint16_t duration = 0;
  Bytes value;
  unsigned changes = 0, cuts = 0;  ///< of the value, and those that shortened it
  bool gone = false;               ///< removed; objects may still be open on it
  TreeNode* in = nullptr;
  std::vector<Node> slots;
  /// What the slot's chain is good for: of kSlots, and of kNone, a folder can take it over and no
  /// child's slot will lie across two blocks.
  enum class Chain { kNone, kSlots, kAny } chain = Chain::kNone;

  std::size_t Length() const { return folder ? 4 + kSlotSize * slots.size() : value.size(); }
  Node Find(const std::string& child) const;
  std::vector<Node> Children() const;  ///< those in use
  /// Whether it is `other` or has it inside.
  bool Holds(const TreeNode& other) const;
  /// Takes the first free slot from `first` on, or appends one. Null for an unusable name.
  Node Add(const std::string& child, std::uint32_t packedKind, std::size_t first = 0);
  void Put(std::size_t at, const Bytes& bytes, bool final = false);
  void Cut(std::size_t length);
  void Vacate();
};

/// The names that objects hold open.
struct OpenNames {
  struct Record {
    std::string name;
    int uses;
    std::uint32_t flags;
  };
  Record* Find(const std::string& name);
  bool Refuses(const std::string& name, std::uint32_t flags);
  void Open(const std::string& name, std::uint32_t flags);
  int Close(const std::string& name);  ///< what Release gives

  std::vector<Record> records;
};

/// As aoStream::CopyFolder from one folder to another, with these children open in them.
bool Merge(const TreeNode& from, TreeNode& to, OpenNames fromOpen = {}, OpenNames toOpen = {});

struct TreeModel {
  /// An empty file, opened.
  void Start(std::size_t reservedSlots);
  /// The map is new; of two slots with one name it has the later one.
  void Reopened(bool fast = false);
  /// In the map or, `fast`, in the reserved slots.
  Node Find(const std::string& name, bool fast = false) const;
  Node Create(const std::string& name, std::uint32_t packedKind, bool fast = false);
  void Rename(const Node& stream, const std::string& newName);
  void Remove(const Node& stream);
  void Rebuild(const std::vector<std::string>& order);

  TreeNode root;
  std::size_t reserved = 0;  ///< slots before the first ordinary one
  std::map<std::string, Node> map;
  OpenNames open;
};

/// As TreeOf gives it for a file.
TreeText TreeOf(const TreeNode& folder, const std::string& path = "");

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_TREE_MODEL_H_
