/// @file
/// What histories over the whole interface work on: two storages with their models, the objects
/// that are open in them, and what a step draws.
#ifndef AOSTORAGE_TESTS_WHOLE_WHOLE_FIXTURE_H_
#define AOSTORAGE_TESTS_WHOLE_WHOLE_FIXTURE_H_

#include <algorithm>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "folder/storage_fixture.h"
#include "support/check_file.h"
#include "support/tree_model.h"

namespace aostorage::testing {

struct Side {
  std::string path;
  Storage storage;
  TreeModel model;
};

/// An open object and what it knows of its stream.
struct Object {
  ~Object() {
    if (!stream) return;
    const int uses = stream.release()->Release();
    EXPECT_EQ(uses, Siblings().Close(name));
  }
  OpenNames& Siblings() const { return parent ? parent->children : side->model.open; }
  bool MayChange() const { return (flags & kStreamWrite) != 0; }
  bool IsBelow(const Object& other) const {
    return parent && (parent.get() == &other || parent->IsBelow(other));
  }
  bool IsFresh() const { return changes == node->changes; }
  /// Whether reads and writes behind an absolute seek are right: what another object shortened, or
  /// gave its first block, is for an object opened anew.
  bool CanSeek() const { return IsFresh() || (cuts == node->cuts && placed); }
  void Wrote(const Bytes& data, bool final) {
    const bool wasFresh = IsFresh();
    node->Put(at, data, final);
    at += static_cast<std::uint32_t>(data.size());
    placed = placed || !data.empty();
    if (wasFresh || (!data.empty() && (final || at == node->Length()))) Knows();
  }
  void Cut(std::size_t length) {
    node->Cut(length);
    at = 0;
    Knows();
  }
  void Knows() {
    changes = node->changes;
    cuts = node->cuts;
  }

  std::shared_ptr<Object> parent;  ///< outlives the child
  Side* side;
  Node node;
  std::uint32_t flags;
  Stream stream;
  std::string name = node->name;
  std::uint32_t at = 0;
  unsigned changes = node->changes, cuts = node->cuts;  ///< of the value, as the object knows it
  bool placed = !node->value.empty();                   ///< the object has seen a block
  OpenNames children = {};
};
using ObjectPtr = std::shared_ptr<Object>;

inline std::string Text(const std::string& name, bool folder, std::size_t length,
                        unsigned minutes) {
  return name + (folder ? "/ " : " ") + std::to_string(length) + " @" + std::to_string(minutes);
}
inline std::string Text(const Stream& s) {
  return s ? Text(s->GetName(), s->IsFolder() != 0, s->GetLength(), s->GetDuration()) : "none";
}
inline std::string Text(const Node& n) {
  return n ? Text(n->name, n->folder, n->Length(), n->duration) : "none";
}
/// The bytes of an entry.
template <class Value>
Bytes Encode(Value value) {
  Bytes bytes(sizeof(value));
  std::memcpy(bytes.data(), &value, sizeof(value));
  return bytes;
}
inline Bytes Encode(const std::string& text) {
  Bytes bytes = Encode(static_cast<std::uint16_t>(text.size()));
  bytes.insert(bytes.end(), text.begin(), text.end());
  return bytes;
}
inline Bytes Encode(const char* text) { return Encode(std::string(text)); }
inline std::uint32_t Size(const Bytes& bytes) { return static_cast<std::uint32_t>(bytes.size()); }

class WholeHistory : public ::testing::Test {
 protected:
  /// What kind of object a step needs.
  enum class On { kRoot, kFolder, kPlain, kAny };

  unsigned Draw(unsigned below) { return random(below); }
  /// One of few, or an unusable one.
  std::string Name() {
    static const std::string pool[] = {"a", "b", "c", "d", std::string(60, 'n')};
    return Draw(40) == 0 ? std::string(Draw(2) * 61, 'x') : pool[Draw(std::size(pool))];
  }
  void DrawStep(const char* label, On needs) {
    constexpr std::uint32_t kOwn = kStreamRead | kStreamWrite;
    constexpr std::uint32_t kFlags[] = {kReadFlags, kOwn, kOwn | kShareRead, kOwn | kExclusive};
    form = Draw(20);
    yes = Draw(2) == 0;
    name = Name();
    flags = Draw(2) == 0 ? kWriteFlags : kFlags[Draw(4)];
    kind = PackKind(Draw(2) == 0, static_cast<std::uint16_t>(Draw(2) * Draw(100)));
    data = Pattern(Draw(15) == 0 ? Draw(1000) : Draw(60), Draw(1000));
    o = Pick(needs);
    if (o) on = o->side;
    std::ostringstream line;
    line << label << (on == sides ? " in A, " : " in B, ") << (o ? o->name + ", " : "") << name
         << ", form " << form << ", yes " << yes << ", flags " << flags << ", kind " << kind << ", "
         << data.size() << " bytes\n";
    log.push_back(line.str());
    if (log.size() > 20) log.pop_front();
  }
  /// An object on a stream that is there, or null.
  ObjectPtr Pick(On needs) {
    std::vector<ObjectPtr> fitting;
    for (const ObjectPtr& each : objects) {
      const TreeNode& node = *each->node;
      const bool fits = needs == (node.folder ? On::kFolder : On::kPlain) && each->CanSeek();
      if (!node.gone && (fits || needs == On::kAny)) fitting.push_back(each);
    }
    return fitting.empty() ? nullptr : fitting[Draw(static_cast<unsigned>(fitting.size()))];
  }
  template <class Which>
  void LetGo(Which which) {
    objects.erase(std::remove_if(objects.begin(), objects.end(), which), objects.end());
  }
  void Close() {
    LetGo([&](const ObjectPtr& each) { return each->side == on; });
    on->storage.reset();
  }
  void Reopen() {
    Close();
    const auto open = form == 0   ? aoStorage::OpenFast
                      : form == 1 ? aoStorage::OpenOrCreate
                                  : aoStorage::Open;
    on->storage.reset(open(on->path.c_str(), kWriteFlags, yes ? 0 : 100));
    ASSERT_TRUE(on->storage);
    Model().Reopened(form == 0);
    std::size_t met = 0;
    StreamCookie cookie = 0;
    for (Stream s(Opened().OpenStreamFirst(cookie, kReadFlags)); s; ++met) {
      ASSERT_NO_FATAL_FAILURE(CompareTree(s, Model().Find(s->GetName())));
      s.reset(Opened().OpenStreamNext(cookie, kReadFlags));
    }
    EXPECT_EQ(met, Model().map.size());
  }
  void Rebuild() {
    form = 2;
    Reopen();
    if (yes) {
      on->storage.reset();
      EXPECT_EQ(aoStorage::Recreate(on->path.c_str()), 1);
      on->storage.reset(aoStorage::Open(on->path.c_str(), kWriteFlags, 0));
    } else {
      Opened().EnableSorting(1, 0);
      on->storage.reset(aoStorage::Recreate(on->storage.release(), on->path.c_str()));
    }
    ASSERT_TRUE(on->storage);
    std::vector<std::string> order;
    for (const RawStream& stream : ReadImage(ReadFile(on->path)).streams) {
      if (Model().map.count(stream.path) != 0) order.push_back(stream.path);
    }
    EXPECT_TRUE(yes || std::is_sorted(order.begin(), order.end()));
    Model().Rebuild(order);
  }
  /// The model with what the public interface gives ...
  void CompareTree(const Stream& stream, const Node& node) {
    ASSERT_EQ(Text(stream), Text(node));
    EXPECT_EQ(node->folder ? Bytes() : ReadValue(*stream), node->value);
    std::uint32_t cookie = 0;
    Stream child(stream->OpenStreamFirst(cookie, kReadFlags));
    for (const Node& each : node->Children()) {
      ASSERT_NO_FATAL_FAILURE(CompareTree(child, each));
      child.reset(stream->OpenStreamNext(cookie, kReadFlags));
    }
    EXPECT_FALSE(child);
  }
  /// ... and with the bytes of the files.
  void CompareFiles() {
    for (const Side& side : sides) {
      EXPECT_EQ(CheckFile(side.path), "");
      EXPECT_EQ(TreeOf(ReadImage(ReadFile(side.path))), TreeOf(side.model.root));
    }
  }

  aoStorage& Opened() { return *on->storage; }
  TreeModel& Model() { return on->model; }
  /// @name By `name`: in the folder `o`, without it at the root, `yes`: in its reserved slots
  /// @{
  OpenNames& Open() { return o ? o->children : Model().open; }
  Node Find() { return o ? o->node->Find(name) : Model().Find(name, yes); }
  Node Create(std::uint32_t newKind) {
    if (!o) return Model().Create(name, newKind, yes);
    return Find() ? nullptr : o->node->Add(name, newKind);
  }
  Node Openable(const Node& node, std::uint32_t with) {
    return node && !Open().Refuses(node->name, with) ? node : nullptr;
  }
  /// @}
  /// The object given must be on `node`.
  void Keep(aoStream* got, const Node& node, bool counted = true) {
    Stream stream(got);
    EXPECT_EQ(Text(stream), Text(node));
    if (!stream || !node) return;
    if (counted) Open().Open(node->name, flags);
    objects.push_back(ObjectPtr(new Object{o, on, node, flags, std::move(stream)}));
  }

  const TempDir dir;
  Side sides[2] = {{dir.File("A"), nullptr, {}}, {dir.File("B"), nullptr, {}}};
  std::vector<ObjectPtr> objects;
  std::deque<std::string> log;  ///< the last steps
  std::function<unsigned(unsigned below)> random;
  /// @name Of the present step
  /// @{
  Side* on = sides;
  ObjectPtr o;
  unsigned form = 0;  ///< below 20
  bool yes = false;
  std::string name;
  Bytes data;
  std::uint32_t flags = 0, kind = 0;
  /// @}
};

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_WHOLE_WHOLE_FIXTURE_H_
