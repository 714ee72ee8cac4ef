#include "support/tree_model.h"

#include <algorithm>

namespace aostorage::testing {
namespace {

constexpr std::size_t kFastSlots = 6;

bool IsFree(const Node& slot) { return slot->name.empty(); }

// What a rebuild leaves of it.
void Compact(TreeNode& stream) {
  stream.slots = stream.Children();
  stream.duration = 0;
  for (const Node& child : stream.slots) Compact(*child);
}

}  // namespace

Node TreeNode::Find(const std::string& child) const {
  for (const Node& slot : slots) {
    if (!child.empty() && slot->name == child) return slot;
  }
  return nullptr;
}

std::vector<Node> TreeNode::Children() const {
  std::vector<Node> children = slots;
  children.erase(std::remove_if(children.begin(), children.end(), IsFree), children.end());
  return children;
}

bool TreeNode::Holds(const TreeNode& other) const {
  return this == &other || (other.in != nullptr && Holds(*other.in));
}

Node TreeNode::Add(const std::string& child, std::uint32_t packedKind, std::size_t first) {
  if (child.empty() || child.size() > kMaxNameLength) return nullptr;
  while (first < slots.size() && !IsFree(slots[first])) ++first;
  if (first == slots.size()) slots.push_back(nullptr);
  const Chain old = slots[first] ? slots[first]->chain : Chain::kNone;
  slots[first] = std::make_shared<TreeNode>();
  slots[first]->chain = old;
  slots[first]->name = child;
  slots[first]->folder = (packedKind & 0xFF) != 0;
  slots[first]->duration = static_cast<std::uint16_t>(packedKind >> 16);
  slots[first]->in = this;
  if (slots[first]->folder && old == Chain::kNone) slots[first]->chain = Chain::kSlots;
  return slots[first];
}

void TreeNode::Put(std::size_t at, const Bytes& bytes, bool final) {
  if (bytes.empty()) return;
  const bool slotsFit = bytes.size() > kMostReserve && bytes.size() % kSlotSize == 4;
  chain = chain == Chain::kNone && slotsFit ? Chain::kSlots : Chain::kAny;
  const std::size_t end = at + bytes.size();
  Cut(final ? end : std::max(end, value.size()));
  std::copy(bytes.begin(), bytes.end(), value.begin() + static_cast<std::ptrdiff_t>(at));
}

void TreeNode::Cut(std::size_t length) {
  if (length < value.size()) ++cuts;
  value.resize(length);
  ++changes;
}

void TreeNode::Vacate() {
  gone = true;
  for (const Node& child : Children()) child->Vacate();
  const auto mine = [&](const Node& slot) { return slot.get() == this; };
  const Node vacated = std::make_shared<TreeNode>();
  vacated->chain = chain;
  std::replace_if(in->slots.begin(), in->slots.end(), mine, vacated);
}

OpenNames::Record* OpenNames::Find(const std::string& name) {
  for (Record& record : records) {
    if (record.name == name) return &record;
  }
  return nullptr;
}

bool OpenNames::Refuses(const std::string& name, std::uint32_t flags) {
  const Record* first = Find(name);
  if (first == nullptr || (first->flags & (kExclusive | kShareRead)) == 0) return false;
  return (first->flags & kExclusive) != 0 || (flags & (kExclusive | kShareReadWrite)) != 0;
}

void OpenNames::Open(const std::string& name, std::uint32_t flags) {
  Record* record = Find(name);
  if (record == nullptr) records.push_back({name, 1, flags});
  if (record != nullptr) ++record->uses;
}

int OpenNames::Close(const std::string& name) {
  Record* record = Find(name);
  if (record == nullptr) return -1;
  const int before = record->uses--;
  if (before == 1) records.erase(records.begin() + (record - records.data()));
  return before;
}

bool Merge(const TreeNode& from, TreeNode& to, OpenNames fromOpen, OpenNames toOpen) {
  bool whole = true;
  for (const Node& child : from.Children()) {
    Node goal = to.Find(child->name);
    bool done = !fromOpen.Refuses(child->name, kReadFlags) &&
                (goal == nullptr || !toOpen.Refuses(child->name, kWriteFlags));
    if (done && goal != nullptr && goal->folder != child->folder) {
      goal->Vacate();
      goal = nullptr;
      done = to.Find(child->name) == nullptr;  // else a second one of that name is in the way
    }
    if (done && goal == nullptr) goal = to.Add(child->name, PackKind(child->folder));
    if (done && !child->folder) {
      goal->Cut(0);
      goal->Put(0, child->value);
    }
    whole = done && (child->folder ? Merge(*child, *goal) : !child->value.empty()) && whole;
  }
  return whole;
}

void TreeModel::Start(std::size_t reservedSlots) {
  reserved = reservedSlots;
  root.slots.clear();
  while (root.slots.size() < reserved) root.slots.push_back(std::make_shared<TreeNode>());
  Reopened();
}

void TreeModel::Reopened(bool fast) {
  map.clear();
  for (const Node& stream : root.Children()) {
    if (!fast) map[stream->name] = stream;
  }
  open = OpenNames();
}

Node TreeModel::Find(const std::string& name, bool fast) const {
  const auto found = map.find(name);
  if (!fast) return found == map.end() ? nullptr : found->second;
  for (std::size_t i = 0; i < std::min(reserved, kFastSlots); ++i) {
    if (!name.empty() && root.slots[i]->name == name) return root.slots[i];
  }
  return nullptr;
}

Node TreeModel::Create(const std::string& name, std::uint32_t packedKind, bool fast) {
  const std::size_t end = std::min(reserved, kFastSlots);
  std::size_t first = fast ? 0 : reserved;
  while (first < end && !IsFree(root.slots[first])) ++first;
  if (map.count(name) != 0 || (fast && first == end)) return nullptr;
  const Node made = root.Add(name, packedKind, first);
  if (made != nullptr) map[name] = made;
  return made;
}

void TreeModel::Rename(const Node& stream, const std::string& newName) {
  const bool atRoot = stream->in == &root;
  if (atRoot && Find(stream->name) == stream) map.erase(stream->name);
  if (atRoot) map[newName] = stream;
  stream->name = newName;
}

void TreeModel::Remove(const Node& stream) {
  if (Find(stream->name) == stream) map.erase(stream->name);
  stream->Vacate();
}

void TreeModel::Rebuild(const std::vector<std::string>& order) {
  const std::map<std::string, Node> carried = map;
  Start(kFastSlots);
  for (const std::string& name : order) root.slots.push_back(carried.at(name));
  for (const Node& stream : root.slots) Compact(*stream);
  Reopened();
}

TreeText TreeOf(const TreeNode& folder, const std::string& path) {
  TreeText lines;
  for (const Node& child : folder.Children()) {
    const std::string value(child->value.begin(), child->value.end());
    lines.push_back(path + child->name + (child->folder ? "/" : "=" + value));
    for (std::string& line : TreeOf(*child, path + child->name + "/"))
      lines.push_back(std::move(line));
  }
  return lines;
}

}  // namespace aostorage::testing
