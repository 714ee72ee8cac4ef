// Long random histories over the whole public interface: two storages, several objects on their
// streams, every kind of operation, with reopening and rebuilds in between. A tree in plain memory
// foretells each result; after each step it is compared with the bytes of the files.
#include "whole/whole_history.h"

#include <random>

#include "support/model.h"
#include "whole/whole_fixture.h"

namespace aostorage::testing {
namespace {

class WholeInterface : public WholeHistory {
 public:
  struct Row {
    const char* label;
    unsigned weight;
    On needs;
    void (WholeInterface::*run)();
  };
  static const Row kRows[];

  /// @return the last steps where something was not as foretold, else nothing
  std::string Run(std::function<unsigned(unsigned below)> draw, const std::function<bool()>& goOn,
                  int stepsBetweenLooks) {
    random = std::move(draw);
    for (Side& side : sides) {
      on = &side;
      // With few reserved slots, or with few others, so that the directory grows.
      const std::uint16_t reserved[] = {2, 6, 62}, slots = reserved[Draw(3)];
      const auto built = slots == 2 ? FileBuilder::Form::kOlder : FileBuilder::Form::kCurrent;
      WriteFile(side.path, FileBuilder(built, slots).bytes);
      side.model.Start(slots);
      Reopen();
    }
    int step = 0;
    while (goOn() && !HasFailure()) {
      Step();
      if (++step % stepsBetweenLooks == 0) CompareFiles();
    }
    CompareFiles();
    if (!HasFailure()) return "";
    std::ostringstream steps;
    steps << "step " << step << "; the last steps:\n";
    for (const std::string& line : log) steps << line;
    return steps.str();
  }
  void Step();

  // --- Names and slots
  void OpenOne() {
    const bool make = form < 5, obtain = form >= 13, open = !make && !obtain;
    if (obtain) flags = kWriteFlags;
    // A folder that is made and cannot be opened would stay without a count.
    if (o ? Open().Refuses(name, flags) && !Find() : obtain && yes) kind = 0;
    Node node = make ? nullptr : Openable(Find(), flags);
    const bool counted = o || node;
    if (make || (obtain && !node)) node = Create(kind);
    if (o) node = Openable(node, flags);
    const char* n = name.c_str();
    aoStorage& s = Opened();
    aoStream* got = nullptr;
    if (o && make) got = o->stream->CreateStream(n, kind, flags);
    if (o && open) got = o->stream->OpenStream(n, flags);
    if (o && obtain) got = o->stream->OpenOrCreateStream(n, kind, flags);
    if (!o && make) got = yes ? s.CreateStreamFast(n, kind, flags) : s.CreateStream(n, kind, flags);
    if (!o && open) got = yes ? s.OpenStreamFast(n, flags) : s.OpenStream(n, flags);
    if (!o && obtain) got = yes ? s.OpenOrCreateStreamFast(n, 0) : s.OpenOrCreateStream(n, kind);
    Keep(got, node, counted);
  }
  void DropName() {
    const bool wasThere = Model().map.erase(name) != 0;
    EXPECT_EQ(Opened().RemoveStream(name.c_str()), wasThere);
  }
  void WalkNames() {
    aoStorage& s = Opened();
    std::vector<Node> nodes;
    for (const auto& entry : Model().map) nodes.push_back(entry.second);
    if (yes) std::reverse(nodes.begin(), nodes.end());
    s.EnableSorting(1, yes);
    StreamCookie cookie = -1;
    CIterateSortedStreams scan;
    scan.descending = yes;
    for (const Node& node : nodes) {
      const bool first = scan.firstCall != 0;
      const Stream met(first ? s.OpenStreamFirst(cookie, flags) : s.OpenStreamNext(cookie, flags));
      EXPECT_EQ(Text(met), Text(Openable(node, flags)));
      EXPECT_EQ(s.IterateSortedStreamsNoOPENS(&scan), 1);
      EXPECT_EQ(scan.streamName, node->name);
      EXPECT_EQ(scan.streamOffset.durationSeconds, node->duration * 60U);
    }
    EXPECT_EQ(cookie, -1);
    EXPECT_EQ(s.IterateSortedStreamsNoOPENS(&scan), 0);
    if (nodes.empty()) return;
    Keep(s.OpenStreamByOffset(scan.streamOffset, scan.streamName.c_str(), flags),
         Openable(nodes.back(), flags));
  }
  void WalkSlots() {
    aoStorage& s = Opened();
    int position = -1, expected = -1;
    for (const Node& slot : Model().root.Children()) {
      const Stream met(++expected == 0 ? s.OpenStreamFirst2(position, flags)
                                       : s.OpenStreamNext2(position, flags));
      EXPECT_EQ(Text(met), Text(Openable(Model().Find(slot->name), flags)));
      EXPECT_EQ(position, expected);
    }
    const std::vector<Node>& slots = Model().root.slots;
    std::size_t at = Model().reserved;
    if (at == slots.size() || slots[at]->name.empty()) return;
    Stream moving(s.OpenStreamFirst(flags));
    EXPECT_EQ(Text(moving), Text(Openable(slots[at], flags)));
    if (!moving) return;
    Open().Open(slots[at]->name, flags);
    for (; at + 1 < slots.size() && !slots[at + 1]->name.empty(); ++at) {
      EXPECT_TRUE(moving->GoNext());
      EXPECT_EQ(Text(moving), Text(slots[at + 1]));
      Open().records.push_back({slots[at + 1]->name, 1, flags});
      Open().Close(slots[at]->name);
    }
    EXPECT_FALSE(moving->GoNext());
    EXPECT_EQ(moving.release()->Release(), Open().Close(slots[at]->name));
  }
  void WalkChildren() {
    aoStream& s = *o->stream;
    tag_aoStream header;
    tag_aoStreamOffset offset;
    EXPECT_EQ(s.FindStream(name.c_str(), header, offset), Find() != nullptr);
    std::vector<std::string> listed, expected;
    std::uint32_t cookie = 0;
    bool first = true, listing = true;
    for (const Node& child : o->node->Children()) {
      const Stream met(first ? s.OpenStreamFirst(cookie, flags) : s.OpenStreamNext(cookie, flags));
      EXPECT_EQ(Text(met), Text(Openable(child, flags)));
      first = false;
      listing = listing && Openable(child, kReadFlags);
      if (listing) expected.push_back(child->name);
    }
    s.EnumStreams(listed);
    EXPECT_EQ(listed, expected);
    EXPECT_EQ(s.GetNumChildren(), o->node->slots.size());
  }
  void Clear() {
    o->stream->ClearFolder();
    for (const Node& child : o->node->Children()) {
      if (!Openable(child, kWriteFlags)) return;
      child->Vacate();
    }
  }
  void Rename() {
    if (form == 0) name = std::string(70, 'r');
    const bool may = o->MayChange() && !name.empty();
    EXPECT_EQ(o->stream->Rename(name.c_str()), may);
    if (!may) return;
    name = name.substr(0, kMaxNameLength);
    Model().Rename(o->node, name);
    if (OpenNames::Record* record = o->Siblings().Find(o->name)) record->name = name;
    o->name = name;
  }
  void RemoveOne() {
    LetGo([&](const ObjectPtr& each) { return each->IsBelow(*o); });
    const bool may = o->MayChange();
    EXPECT_EQ(Remove(o->stream), may);
    if (!may) return;
    o->Siblings().Close(o->name);
    Model().Remove(o->node);
    LetGo([&](const ObjectPtr& each) { return each == o; });
  }
  // Nothing is written through an object whose stream was removed.
  void UseGone() {
    for (const ObjectPtr& each : objects) {
      if (!each->node->gone) continue;
      aoStream& s = *each->stream;
      EXPECT_EQ(s.Write("x", 1), kFailed);
      EXPECT_FALSE(s.Erase() || s.Rename("back") || s.SetEntry("a", 1) != 0);
      EXPECT_FALSE(Got(s.CreateStream("a", kFolderKind, kWriteFlags)));
    }
  }
  void CopyTree() {
    const ObjectPtr to = Pick(On::kFolder);
    for (const Node& child : o->node->Children()) {  // as in OpenOne
      if (!to->node->Find(child->name) && to->children.Refuses(child->name, kWriteFlags)) return;
    }
    const bool apart = !to->node->Holds(*o->node) && !o->node->Holds(*to->node);
    const bool whole = apart && Merge(*o->node, *to->node, o->children, to->children);
    EXPECT_EQ(o->stream->CopyFolder(to->stream.get()), whole);
  }

  // --- Bytes
  void ReadAndWrite() {
    aoStream& s = *o->stream;
    CAoStreamFile file(&s);
    const std::uint32_t size = Size(o->node->value);
    // With another object's writes it knows neither the length nor how its block goes on: it writes
    // where it stands, or goes to a place from the start.
    const bool stay = size == 0 || (!o->IsFresh() && yes);
    if (!o->IsFresh()) form = Draw(5);
    const std::uint32_t to = stay ? o->at : Draw(size + 1);
    const std::uint32_t distance = to < o->at ? o->at - to : to - o->at;
    Bytes into(stay ? 0 : Draw(size - to + 1));
    std::uint32_t moved = 0;
    if (!stay && form < 5) moved = s.Seek(to, 0);
    if (!stay && form >= 5 && form < 10) moved = s.Seek(size - to, 1);
    if (!stay && form >= 10 && form < 15) moved = s.Seek(distance, 2, to >= o->at);
    if (!stay && form >= 15 && file.Seek(static_cast<std::int32_t>(to), 0) != 0) moved = 1;
    EXPECT_EQ(moved, 0U);
    EXPECT_EQ(yes ? s.Read(into.data(), Size(into)) : file.Read(into.data(), Size(into)),
              Size(into));
    EXPECT_EQ(into, Slice(o->node->value, to, into.size()));
    o->at = to + Size(into);
    EXPECT_EQ(s.GetCurDataPos(), o->at);
    const bool asValue = form % 4 == 3, final = form % 4 == 0;
    if (asValue) data = Encode(name);
    if (asValue) s << name;
    EXPECT_EQ(asValue ? Size(data) : s.Write(data.data(), Size(data), final), data.size());
    o->Wrote(data, final);
    EXPECT_TRUE(!o->IsFresh() || s.GetLength() == o->node->Length());
  }
  void Shorten() {
    yes = yes || !o->IsFresh();
    const std::uint32_t to = yes ? 0 : Draw(Size(o->node->value) + 3);
    const bool may = o->MayChange() && to <= o->node->value.size();
    EXPECT_EQ(yes ? o->stream->Erase() : o->stream->SetLength(to), may);
    if (may) o->Cut(to);
  }
  void CopyBytes() {
    const ObjectPtr to = Pick(On::kPlain);
    if (!o->IsFresh()) return;
    const Bytes value = o->node->value;
    const bool same = o->node == to->node;
    o->stream->Seek(0, 0);
    o->at = same ? 0 : Size(value);
    EXPECT_EQ(o->stream->CopyStream(to->stream.get()), !same && !value.empty());
    if (same) return;
    if (to->MayChange() || !value.empty()) to->Cut(0);
    to->Wrote(value, true);
  }

  // --- Entries, of the folder `o` or of the root
  void Entry() {
    const auto number = static_cast<std::int32_t>(form);
    if (form < 4) return TypedEntry(number, -1);
    if (form < 8) return TypedEntry(std::int64_t{number} << 33, std::int64_t{-1});
    if (form < 12) return TypedEntry(number * 0.25, -1.5);
    if (form < 16) return TypedEntry(form == 12 ? "" : "text", "none");
    yes = false;
    BytesEntry(o && form < 18);
  }
  // What an entry is written to.
  Node Obtained() {
    Node node = Openable(Find(), kWriteFlags);
    if (!node) node = Create(0);
    if (o) node = Openable(node, kWriteFlags);
    return node && !node->folder ? node : nullptr;
  }
  // Not where the name of a stream that is gone is still held open.
  bool MayRead() { return Openable(Find(), kReadFlags) != nullptr; }
  template <class Value>
  void TypedEntry(Value value, Value fallback) {
    const char* n = name.c_str();
    const int result = o     ? o->stream->SetEntry(n, value)
                       : yes ? Opened().SetEntryFast(n, value)
                             : Opened().SetEntry(n, value);
    const Node node = Obtained();
    EXPECT_EQ(result, node ? 1 : 0);
    if (node) node->Put(0, Encode(value));
    const auto got = o     ? o->stream->GetEntry(n, fallback)
                     : yes ? Opened().GetEntryFast(n, fallback)
                           : Opened().GetEntry(n, fallback);
    EXPECT_EQ(Encode(got), node && MayRead() ? Encode(value) : Encode(fallback));
  }
  void BytesEntry(bool append) {
    const char* n = name.c_str();
    const int result = append ? o->stream->SetEntry(n, data.data(), Size(data))
                       : o    ? o->stream->SetEntryEraseOld(n, data.data(), Size(data))
                              : Opened().SetEntryEraseOld(n, data.data(), Size(data));
    const Node node = data.empty() ? nullptr : Obtained();
    EXPECT_EQ(result, data.empty() ? 1 : !node ? 0 : append ? 1 : static_cast<int>(data.size()));
    if (!node) return;
    if (append) node->Put(0, Encode(std::max(4U, Size(node->value))));
    node->Put(append ? node->value.size() : 0, data, true);
    if (!MayRead()) return;
    Bytes into(node->value.size());
    const int read = o ? o->stream->GetEntryErasedOld(n, into.data(), Size(into))
                       : Opened().GetEntryErasedOld(n, into.data(), Size(into));
    EXPECT_EQ(read, 1);
    EXPECT_EQ(into, node->value);
  }

  // --- Access layers
  void Path() {
    if (yes) o = nullptr;
    yes = false;
    std::vector<std::string> names{name};
    std::string path = name;
    for (; Draw(3) != 0; path += "/" + names.back()) names.push_back(Name());
    const bool remove = !o && form < 5, create = !remove && form % 2 == 0;
    const std::uint32_t with = remove || form % 3 == 0 ? kWriteFlags : kReadFlags;
    if (name.empty() || (o && !Find() && Open().Refuses(name, with))) return;  // as in OpenOne
    const bool usable = path.find("//") == std::string::npos;
    Node node = usable ? Openable(Find(), with) : nullptr;
    const bool made = usable && create && !node && (node = Create(kFolderKind)) != nullptr;
    for (std::size_t i = 1; node && i < names.size(); ++i) {
      if (names[i].empty()) break;  // the path ends in a slash
      const Node next = node->Find(names[i]);
      node = next || !create || !node->folder ? next : node->Add(names[i], kFolderKind);
    }
    CPathLoader loader;
    if (remove) {
      EXPECT_EQ(loader.DeleteStreamByPath(on->storage.get(), path), node ? 1 : 0);
      if (node) Model().Remove(node);
      return;
    }
    aoStream* const got =
        o ? loader.GetSubStreamByPath(o->stream.get(), path, with == kWriteFlags, create)
          : loader.GetStreamByPath(on->storage.get(), path, with == kWriteFlags, create);
    EXPECT_EQ(got ? got->GetName() : "none", node ? node->name : "none");
    if (made && !o) Open().Close(name);  // released, though not counted when it was created
  }
  void Facade() {
    Close();
    Model().Reopened();
    CCompStgFile file;
    ASSERT_EQ(file.Open(on->path.c_str(), 2), 1);
    for (int i = 0; i < 6; ++i) {
      DrawStep("- facade", On::kRoot);
      UseFacade(file);
    }
    EXPECT_EQ(file.Close(), 1);
    Reopen();
  }
  void UseFacade(CCompStgFile& file) {
    yes = false;
    const std::string childName = Name();
    const char *text = name.c_str(), *childText = childName.c_str();
    const auto size = static_cast<std::int32_t>(data.size());
    const int append = form % 2 == 0, final = form % 3 == 0;
    Node node = Find(), child = node ? node->Find(childName) : nullptr;
    if (form == 0) {
      EXPECT_EQ(file.RemoveGenericStream(text), node ? 1 : 0);
      if (node) Model().Remove(node);
      return;
    }
    if (form < 3) {
      EXPECT_EQ(file.RemoveGenericChildStream(text, childText),
                node && node->folder && !childName.empty() ? 1 : 0);
      if (child) Model().Remove(child);
      return;
    }
    std::int32_t created = 7;
    const bool there = node != nullptr;
    if (!there) node = Create(kind);
    EXPECT_EQ(file.OpenOrCreateGenericStream(text, append, kind, created), node ? 1 : 0);
    EXPECT_EQ(created, there ? 0 : 1);
    if (!node) return;
    EXPECT_EQ(file.WriteGenericStream(data.data(), size), node->folder ? 0 : 1);
    if (!node->folder) return node->Put(append != 0 ? node->value.size() : 0, data);
    if (!child) child = node->Add(childName, 0);
    const bool plain = child && !child->folder;
    EXPECT_EQ(file.WriteGenericChildStream(childText, data.data(), size, append, final), plain);
    if (plain) child->Put(append != 0 ? child->value.size() : 0, data, final != 0);
    EXPECT_EQ(file.OpenGenericStreams(text, childText), child ? 1 : 0);
    aoStream* walked = nullptr;
    for (const Node& each : node->Children()) {
      EXPECT_EQ(file.GetNextChildStreamName(walked), each->name);
    }
    file.GetNextChildStreamName(walked);
    EXPECT_EQ(walked, nullptr);
  }
};

const WholeInterface::Row WholeInterface::kRows[] = {
    {"open at the root", 90, On::kRoot, &WholeInterface::OpenOne},
    {"open a child", 150, On::kFolder, &WholeInterface::OpenOne},
    {"drop a name", 5, On::kRoot, &WholeInterface::DropName},
    {"walk by name", 15, On::kRoot, &WholeInterface::WalkNames},
    {"walk by slot", 12, On::kRoot, &WholeInterface::WalkSlots},
    {"walk the children", 40, On::kFolder, &WholeInterface::WalkChildren},
    {"clear", 4, On::kFolder, &WholeInterface::Clear},
    {"rename", 25, On::kAny, &WholeInterface::Rename},
    {"remove", 35, On::kAny, &WholeInterface::RemoveOne},
    {"use what is gone", 20, On::kRoot, &WholeInterface::UseGone},
    {"copy a folder", 20, On::kFolder, &WholeInterface::CopyTree},
    {"rebuild", 5, On::kRoot, &WholeInterface::Rebuild},
    {"reopen", 12, On::kRoot, &WholeInterface::Reopen},
    {"read and write", 150, On::kPlain, &WholeInterface::ReadAndWrite},
    {"shorten", 25, On::kPlain, &WholeInterface::Shorten},
    {"copy bytes", 25, On::kPlain, &WholeInterface::CopyBytes},
    {"root entry", 60, On::kRoot, &WholeInterface::Entry},
    {"child entry", 90, On::kFolder, &WholeInterface::Entry},
    {"path", 60, On::kFolder, &WholeInterface::Path},
    {"facade", 8, On::kRoot, &WholeInterface::Facade},
};

void WholeInterface::Step() {
  LetGo([&](const ObjectPtr& each) {
    return (each->node->gone && Draw(20) == 0) || (objects.size() > 15 && Draw(15) == 0);
  });
  unsigned total = 0;
  for (const Row& row : kRows) total += row.weight;
  const Row* row = kRows;
  for (unsigned choice = Draw(total); choice >= row->weight; ++row) choice -= row->weight;
  on = &sides[Draw(2)];
  DrawStep(row->label, row->needs);
  (this->*(o || row->needs == On::kRoot ? row->run : &WholeInterface::OpenOne))();
  o = nullptr;
}

}  // namespace

std::string RunWholeHistory(std::function<unsigned(unsigned below)> draw,
                            const std::function<bool()>& goOn, int stepsBetweenLooks) {
  class History : public WholeInterface {
    void TestBody() override {}
  };
  History history;
  return history.Run(std::move(draw), goOn, stepsBetweenLooks);
}

TEST(WholeInterfaceTest, GivesWhatATreeInMemoryForetells) {
  for (const unsigned seed : HistorySeeds(10)) {
    std::mt19937 random(seed);
    int steps = 0;
    const std::string wrong =
        RunWholeHistory([&](unsigned below) { return static_cast<unsigned>(random() % below); },
                        [&] { return ++steps <= 1000; });
    ASSERT_EQ(wrong, "") << "AOSTORAGE_TEST_SEED=" << seed;
  }
}

}  // namespace aostorage::testing
