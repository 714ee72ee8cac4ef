#include "support/life.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <utility>

#include "support/model.h"
#include "support/size.h"
#include "support/tree_model.h"

namespace aostorage::testing {
namespace {

constexpr std::size_t kMostRoots = 12, kMostPlainRoots = 7, kMostChildren = 40, kMostLevels = 3;
constexpr std::size_t kYouth = 150;  // steps in which most streams are made

template <class Value>
Bytes Encode(Value value) {
  Bytes bytes(sizeof(value));
  std::memcpy(bytes.data(), &value, sizeof(value));
  return bytes;
}

bool NothingFailed() { return LastError().code == ErrorCode::kNone; }

// Goes to a place of a stream with blocks, the short way where the object is to be believed. A walk
// to the end that fails is not told by the result.
bool GoTo(Session& session, aoStream& stream, std::uint32_t position, unsigned form) {
  const std::uint32_t here = stream.GetCurDataPos(), length = stream.GetLength();
  const std::uint32_t way = here > position ? here - position : position - here;
  if (session.retrying) form = 0;
  const std::uint32_t result = form == 0   ? stream.Seek(position, 0)
                               : form == 1 ? stream.Seek(length - position, 1)
                                           : stream.Seek(way, 2, position >= here);
  return session.Told(result, 0U, kFailed) && NothingFailed();
}

bool AllHoldSomething(const TreeNode& folder) {
  for (const Node& child : folder.Children()) {
    if (child->folder ? !AllHoldSomething(*child) : child->value.empty()) return false;
  }
  return true;
}

class LifeWriter {
 public:
  explicit LifeWriter(unsigned seed) : random(seed) {
    const bool older = seed % 4 == 3;
    FileBuilder file(older ? FileBuilder::Form::kOlder : FileBuilder::Form::kCurrent, 62);
    if (!older) Put16(file.bytes, 26, 4);  // slots in each further directory block
    life.start = file.bytes;
    model.Start(older ? 2 : 62);
  }

  Life Draw(std::size_t steps) {
    life.values.push_back({});
    while (life.steps.size() < steps) {
      const Kind* kind = kKinds;
      unsigned choice = Below(kTotal);
      for (; choice >= kind->weight; ++kind) choice -= kind->weight;
      if (life.steps.size() < kYouth && OneOf(2)) kind = kKinds + Below(2);  // creates
      step = Step();
      if (!(this->*kind->draw)()) continue;
      step.label = kind->label + (" " + step.path) + " " + step.other;
      step.opens = closed;
      closed = step.perform == nullptr;
      if (closed) step.perform = [](Session& session) { return session.Close(), true; };
      life.steps.push_back(std::move(step));
      life.values.push_back({});
      Gather(model.root, "");
    }
    return std::move(life);
  }

 private:
  struct Kind {
    const char* label;
    unsigned weight;
    bool (LifeWriter::*draw)();
  };
  static const Kind kKinds[];
  static const unsigned kTotal;

  unsigned Below(std::size_t end) { return static_cast<unsigned>(random() % end); }
  bool OneOf(unsigned count) { return Below(count) == 0; }

  // --- The tree as it is now
  static std::string PathOf(const TreeNode& node) {
    return node.in->in == nullptr ? node.name : PathOf(*node.in) + "/" + node.name;
  }
  static std::size_t LevelOf(const TreeNode& node) {
    return node.in == nullptr ? 0 : 1 + LevelOf(*node.in);
  }
  void Gather(const TreeNode& folder, const std::string& path) {
    for (const Node& child : folder.Children()) {
      life.values.back()[path + child->name] = child->value;
      Gather(*child, path + child->name + "/");
    }
  }
  void Collect(const TreeNode& folder, std::vector<Node>& all) const {
    for (const Node& child : folder.Children()) {
      all.push_back(child);
      Collect(*child, all);
    }
  }
  template <class Fits>
  Node Pick(Fits fits) {
    std::vector<Node> all;
    Collect(model.root, all);
    all.erase(std::remove_if(all.begin(), all.end(), [&](const Node& n) { return !fits(*n); }),
              all.end());
    return all.empty() ? nullptr : all[Below(all.size())];
  }
  Node PickPlain(bool filled = false) {
    return Pick([=](const TreeNode& n) { return !n.folder && (!filled || !n.value.empty()); });
  }
  Node PickFolder() {
    return Pick([](const TreeNode& n) { return n.folder; });
  }
  std::size_t Roots() const { return model.root.Children().size(); }
  std::size_t PlainRoots() const {
    std::size_t count = 0;
    for (const Node& stream : model.root.Children()) count += stream->folder ? 0 : 1;
    return count;
  }
  std::size_t Children() const {
    std::vector<Node> all;
    Collect(model.root, all);
    return all.size() - Roots();
  }
  std::string NewName(bool folder) {
    static const char digits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    ++names;
    return {folder ? 'f' : 'c', digits[names / 36 % 36], digits[names % 36]};
  }
  Bytes NewBytes() { return Pattern(OneOf(8) ? Below(700) : 1 + Below(60), Below(1000)); }
  // Whether a folder that is made now takes over no blocks that would split its slots.
  static bool TakesFolder(const TreeNode& in, std::size_t first) {
    while (first < in.slots.size() && !in.slots[first]->name.empty()) ++first;
    return first >= in.slots.size() || in.slots[first]->chain != TreeNode::Chain::kAny;
  }

  // --- Names and slots
  bool CreateRoot() {
    const unsigned form = Below(5);
    const bool fast = form >= 3, folder = form == 2 || (form != 4 && OneOf(3));
    const std::size_t first = fast ? 0 : model.reserved;
    if (Roots() >= kMostRoots || (folder && !TakesFolder(model.root, first))) return false;
    if (!folder && PlainRoots() >= kMostPlainRoots) return false;
    const std::string name = NewName(folder);
    const std::uint32_t kind = PackKind(folder, static_cast<std::uint16_t>(form));
    if (!model.Create(name, form == 4 ? 0 : kind, fast)) return false;
    step.path = name;
    step.begins = true;
    step.perform = [=](Session& session) {
      aoStorage* const s = session.Opened();
      if (s == nullptr) return false;
      const char* n = name.c_str();
      CPathLoader loader;
      if (form == 2) return loader.GetStreamByPath(s, name, 1, 1) != nullptr;
      return session.Keep(name, form == 0   ? s->CreateStream(n, kind, kWriteFlags)
                                : form == 1 ? s->OpenOrCreateStream(n, kind)
                                : form == 3 ? s->CreateStreamFast(n, kind, kWriteFlags)
                                            : s->OpenOrCreateStreamFast(n, 1));
    };
    return true;
  }
  bool CreateChild() {
    const Node in = PickFolder();
    if (!in || Children() >= kMostChildren) return false;
    const unsigned form = Below(4);
    const bool folder = form == 3 || OneOf(4);
    if (folder && (LevelOf(*in) >= kMostLevels || !TakesFolder(*in, 0))) return false;
    const Node made = in->Add(NewName(folder), PackKind(folder));
    const std::string path = step.path = PathOf(*made), name = made->name;
    step.begins = true;
    step.perform = [=](Session& session) {
      aoStream* const around = session.Around(path);
      if (around == nullptr) return false;
      const std::uint32_t kind = PackKind(folder);
      const char* n = name.c_str();
      CPathLoader loader;
      if (form == 3) return loader.GetSubStreamByPath(around, name, 1, 1) != nullptr;
      return session.Keep(
          path, form == 0   ? around->CreateStream(n, kind, kWriteFlags)
                : form == 1 ? around->OpenOrCreateStream(n, kind, kWriteFlags)
                            : around->OpenOrCreateStream(n, static_cast<std::int32_t>(kind)));
    };
    return true;
  }
  bool Rename() {
    const Node node = Pick([](const TreeNode&) { return true; });
    if (!node) return false;
    const std::string from = step.path = PathOf(*node), name = NewName(node->folder);
    model.Rename(node, name);
    const std::string to = step.other = PathOf(*node);
    step.perform = [=](Session& session) {
      aoStream* const stream = session.At(from);
      if (stream == nullptr || !stream->Rename(name.c_str())) return false;
      session.Renamed(from, to);
      return true;
    };
    return true;
  }
  bool Remove() {
    const Node node = Pick([](const TreeNode&) { return true; });
    // Large folders live longer, and all do while there are few streams.
    if (!node || (node->Children().size() > 2 && !OneOf(4))) return false;
    if ((node->folder || Children() < kMostChildren / 2) && !OneOf(5)) return false;
    const std::string path = step.path = PathOf(*node);
    const bool byPath = node->in->in == nullptr && OneOf(3);
    model.Remove(node);
    step.loses = byPath;
    step.removes = true;
    const std::string below = path + "/";
    step.perform = [=](Session& session) {
      session.LetGo(below);
      if (byPath) {
        session.LetGo(path);
        aoStorage* const storage = session.Opened();
        CPathLoader loader;
        return storage != nullptr && session.Told(loader.DeleteStreamByPath(storage, path), 1, 0);
      }
      aoStream* const stream = session.At(path);
      if (stream == nullptr || !stream->Remove()) return false;
      session.LetGo(path, true);
      return true;
    };
    return true;
  }
  bool Clear() {
    const Node node = PickFolder();
    if (!node || node->Children().empty()) return false;
    const std::string path = step.path = PathOf(*node), below = path + "/";
    for (const Node& child : node->Children()) child->Vacate();
    step.perform = [=](Session& session) {
      session.LetGo(below);
      aoStream* const folder = session.At(path);
      if (folder != nullptr) folder->ClearFolder();
      return folder != nullptr;
    };
    return true;
  }
  bool CopyTree() {
    const Node from = PickFolder(), to = PickFolder();
    if (!from || from->Holds(*to) || to->Holds(*from) || !AllHoldSomething(*from)) return false;
    std::vector<Node> all, goals{to};
    Collect(*from, all);
    Collect(*to, goals);
    const auto splits = [](const Node& slot) {
      return slot->name.empty() && slot->chain == TreeNode::Chain::kAny;
    };
    for (const Node& node : all) {
      if (!node->folder) continue;
      if (LevelOf(*node) - LevelOf(*from) + LevelOf(*to) > kMostLevels) return false;
      for (const Node& goal : goals) {
        if (std::any_of(goal->slots.begin(), goal->slots.end(), splits)) return false;
      }
    }
    if (all.empty() || Children() + all.size() > kMostChildren) return false;
    Merge(*from, *to);
    const std::string source = PathOf(*from), path = step.path = PathOf(*to), below = path + "/";
    step.flushing = step.begins = true;
    step.midway = Midway::kEmptied;
    step.perform = [=](Session& session) {
      session.LetGo(below);
      aoStream* const goal = session.At(path);
      aoStream* const folder = goal == nullptr ? nullptr : session.At(source);
      return folder != nullptr && folder->CopyFolder(goal);
    };
    return true;
  }

  // --- Bytes
  bool Write() {
    const Node node = PickPlain();
    if (!node) return false;
    Bytes bytes = NewBytes();
    const bool bare = node->chain == TreeNode::Chain::kNone;
    if (bare && OneOf(3)) {  // looks like the slots of a folder
      const Bytes ghost = StreamRecord("ghost", false, 0, 0);
      bytes = FolderPayload(std::vector<Bytes>(2 + Below(2), ghost));
    }
    if (bare && OneOf(8)) bytes.clear();  // a block and nothing else
    const unsigned how = Below(8), seek = Below(3);
    const bool final = how < 2;
    if (how == 2) bytes = Encode(std::int32_t{7} << Below(20));
    const std::size_t size = node->value.size();
    const auto at = static_cast<std::uint32_t>(OneOf(2) ? size : Below(size + 1));
    node->Put(at, bytes, final);
    if (bytes.empty()) node->chain = TreeNode::Chain::kAny;
    const std::string path = step.path = PathOf(*node);
    step.flushing = final;
    if (final) step.midway = Midway::kShortened;
    const auto data = std::make_shared<const Bytes>(std::move(bytes));
    step.perform = [=](Session& session) {
      aoStream* const stream = session.At(path);
      if (stream == nullptr || (!bare && !GoTo(session, *stream, at, seek))) return false;
      const auto count = static_cast<std::uint32_t>(data->size());
      if (how == 2) {
        std::int32_t value = 0;
        std::memcpy(&value, data->data(), 4);
        *stream << value;
        return true;
      }
      if (how == 3) {
        CAoStreamFile(stream).Write(data->data(), count);
        return true;
      }
      return session.Told(stream->Write(data->data(), count, final), count, kFailed);
    };
    return true;
  }
  bool Shorten() {
    const Node node = PickPlain();
    if (!node) return false;
    const bool erase = OneOf(2);
    const std::uint32_t to = erase ? 0 : Below(node->value.size() + 1);
    node->Cut(to);
    const std::string path = step.path = PathOf(*node);
    step.perform = [=](Session& session) {
      aoStream* const stream = session.At(path);
      return stream != nullptr && (erase ? stream->Erase() : stream->SetLength(to));
    };
    return true;
  }
  bool CopyBytes() {
    const Node from = PickPlain(true), to = PickPlain();
    if (!from || from == to) return false;
    to->Cut(0);
    to->Put(0, from->value, true);
    const std::string source = PathOf(*from), path = step.path = PathOf(*to);
    step.flushing = true;
    step.midway = Midway::kEmptied;
    step.perform = [=](Session& session) {
      aoStream* const stream = session.At(source);
      aoStream* const goal = stream == nullptr ? nullptr : session.At(path);
      return goal != nullptr && GoTo(session, *stream, 0, 0) && stream->CopyStream(goal);
    };
    return true;
  }

  // --- Entries of a folder or of the root
  Bytes DrawEntry(unsigned form) {
    const unsigned n = Below(1000);
    const auto i = static_cast<std::int32_t>(n);
    switch (form) {
      case 0:
        return Encode(n);
      case 1:
        return Encode(i);
      case 2:
        return Encode(std::int64_t{n} << 33);
      case 3:
        return Encode(n * 0.25);
      case 4:
        return Encode(tagSIZE{i, -i});
      case 5:
        return Encode(tagRECT{i, -i, 0, i});
      case 6: {
        const std::string text(n % 10, 't');
        Bytes bytes = Encode(static_cast<std::uint16_t>(text.size()));
        bytes.insert(bytes.end(), text.begin(), text.end());
        bytes.push_back(0);  // for the call, which takes it as a C string
        return bytes;
      }
      default:
        return Pattern(1 + Below(40), n);
    }
  }
  template <class Value>
  static Value As(const Bytes& bytes) {
    Value value;
    std::memcpy(&value, bytes.data(), sizeof(value));
    return value;
  }
  // Forms 7 and 8 are the log and the erased entry; the root has no log, size or rectangle.
  template <class Owner>
  static bool SetEntry(Session& session, Owner& owner, const char* name, unsigned form,
                       const Bytes& bytes) {
    const auto count = static_cast<std::uint32_t>(bytes.size());
    const auto done = [&](int result) { return session.Told(result, 1, 0); };
    if constexpr (std::is_same_v<Owner, aoStream>) {
      const auto size = form == 4 ? As<tagSIZE>(bytes) : tagSIZE();
      const auto rect = form == 5 ? As<tagRECT>(bytes) : tagRECT();
      if (form == 0) return done(owner.SetEntry(name, As<std::uint32_t>(bytes)));
      if (form == 4) return done(owner.SetEntry(name, &size));
      if (form == 5) return done(owner.SetEntry(name, &rect));
      if (form == 7) return done(owner.SetEntry(name, bytes.data(), count));
    }
    if (form == 1) return done(owner.SetEntry(name, As<std::int32_t>(bytes)));
    if (form == 2) return done(owner.SetEntry(name, As<std::int64_t>(bytes)));
    if (form == 3) return done(owner.SetEntry(name, As<double>(bytes)));
    if (form == 6)
      return done(owner.SetEntry(name, reinterpret_cast<const char*>(bytes.data()) + 2));
    const int result = owner.SetEntryEraseOld(name, bytes.data(), count);
    return session.Told(result, static_cast<int>(count), result == 0 ? 0 : -1);
  }
  bool Entry() {
    const Node in = OneOf(6) ? nullptr : PickFolder();
    const TreeNode& around = in ? *in : model.root;
    const unsigned rootForms[] = {1, 2, 3, 6, 8};
    const unsigned form = in ? Below(9) : rootForms[Below(5)];
    const auto there = around.Children();
    Node node = there.empty() || OneOf(2) ? nullptr : there[Below(there.size())];
    if (node && node->folder) return false;
    if (!node && (in ? Children() >= kMostChildren : PlainRoots() >= kMostPlainRoots)) return false;
    step.begins = !node;
    const std::string newName = NewName(false);
    if (!node) node = in ? in->Add(newName, 0) : model.Create(newName, 0);
    const auto given = std::make_shared<const Bytes>(DrawEntry(form));
    Bytes bytes = *given;
    if (form == 6) bytes.pop_back();
    const auto end = static_cast<std::uint32_t>(std::max<std::size_t>(4, node->value.size()));
    if (form == 7) node->Put(0, Encode(end));
    node->Put(form == 7 ? node->value.size() : 0, bytes, form == 8);
    step.flushing = form == 8;
    if (step.flushing) step.midway = Midway::kShortened;
    step.logs = form == 7;
    const std::string path = step.path = PathOf(*node), name = node->name;
    const bool inFolder = in != nullptr;
    step.perform = [=](Session& session) {
      session.LetGo(path);
      aoStream* const folder = inFolder ? session.Around(path) : nullptr;
      if (folder != nullptr) return SetEntry(session, *folder, name.c_str(), form, *given);
      aoStorage* const storage = inFolder ? nullptr : session.Opened();
      return storage != nullptr && SetEntry(session, *storage, name.c_str(), form, *given);
    };
    return true;
  }
  // The facade opens the file for itself.
  bool Facade() {
    const Node in = Pick([](const TreeNode& n) { return n.folder && n.in->in == nullptr; });
    if (!in || Children() >= kMostChildren) return false;
    const auto there = in->Children();
    Node node = there.empty() || OneOf(3) ? nullptr : there[Below(there.size())];
    if (node && node->folder) return false;
    step.begins = !node;
    if (!node) node = in->Add(NewName(false), 0);
    const bool append = OneOf(2), final = OneOf(2);
    const auto data = std::make_shared<const Bytes>(NewBytes());
    if (data->empty()) return false;
    node->Put(append ? node->value.size() : 0, *data, final);
    node->chain = TreeNode::Chain::kAny;
    step.flushing = final;
    if (final) step.midway = Midway::kShortened;
    step.logs = append;
    step.path = PathOf(*node);
    const std::string folder = in->name, name = node->name;
    step.perform = [=](Session& session) {
      session.Close();
      CCompStgFile file;
      return session.Told(file.Open(session.Path().c_str(), 2), 1, 0) && NothingFailed() &&
             session.Told(file.OpenOrCreateGenericStream(folder.c_str(), 0, 0), 1, 0) &&
             session.Told(file.WriteGenericChildStream(name.c_str(), data->data(),
                                                       static_cast<std::int32_t>(data->size()),
                                                       append, final),
                          1, 0);
    };
    return true;
  }

  // --- What changes nothing
  bool Read() {
    const Node node = PickPlain(true);
    if (!node) return false;
    const std::string path = step.path = PathOf(*node);
    const auto value = std::make_shared<const Bytes>(node->value);
    const auto into = std::make_shared<Bytes>(node->value.size());
    step.perform = [=](Session& session) {
      aoStream* const stream = session.At(path);
      if (stream == nullptr || !GoTo(session, *stream, 0, 0)) return false;
      const auto count = static_cast<std::uint32_t>(into->size());
      const bool read = session.Told(stream->Read(into->data(), count), count, kFailed);
      session.odd = session.odd || (read && *into != *value);
      return read;
    };
    return true;
  }
  bool Walk() {
    const Node node = PickFolder();
    if (!node) return false;
    const std::string path = step.path = PathOf(*node);
    std::vector<std::string> listed;
    for (const Node& child : node->Children()) listed.push_back(child->name);
    step.perform = [=](Session& session) {
      aoStream* const folder = session.At(path);
      if (folder == nullptr) return false;
      std::uint32_t cookie = 0;
      std::size_t met = 0;
      for (Stream child(folder->OpenStreamFirst(cookie, kReadFlags)); child; ++met) {
        session.odd = session.odd || met >= listed.size() || listed[met] != child->GetName();
        child.reset(folder->OpenStreamNext(cookie, kReadFlags));
      }
      if (LastError().code == ErrorCode::kNotFound) ClearLastError();  // the walk's end
      session.odd = session.odd || (NothingFailed() && met != listed.size());
      return NothingFailed();
    };
    return true;
  }
  bool Sync() {
    step.syncs = true;
    step.perform = [](Session& session) {
      aoStorage* const storage = session.Opened();
      return storage != nullptr && storage->Sync();
    };
    return true;
  }
  bool Close() { return !life.steps.empty() && !closed; }

  std::mt19937 random;
  TreeModel model;
  Life life;
  Step step;
  bool closed = true;
  unsigned names = 0;
};

const LifeWriter::Kind LifeWriter::kKinds[] = {
    {"create", 8, &LifeWriter::CreateRoot},
    {"create", 16, &LifeWriter::CreateChild},
    {"rename", 6, &LifeWriter::Rename},
    {"remove", 12, &LifeWriter::Remove},
    {"clear", 1, &LifeWriter::Clear},
    {"copy the tree to", 3, &LifeWriter::CopyTree},
    {"write", 40, &LifeWriter::Write},
    {"shorten", 6, &LifeWriter::Shorten},
    {"copy to", 5, &LifeWriter::CopyBytes},
    {"set the entry", 16, &LifeWriter::Entry},
    {"by the facade", 3, &LifeWriter::Facade},
    {"read", 4, &LifeWriter::Read},
    {"walk", 2, &LifeWriter::Walk},
    {"sync", 4, &LifeWriter::Sync},
    {"close", 12, &LifeWriter::Close},
};
const unsigned LifeWriter::kTotal = [] {
  unsigned total = 0;
  for (const Kind& kind : kKinds) total += kind.weight;
  return total;
}();

}  // namespace

Life DrawLife(unsigned seed, std::size_t steps) { return LifeWriter(seed).Draw(steps); }

std::vector<unsigned> LifeSeeds() {
  if (!FullSize() || std::getenv("AOSTORAGE_TEST_SEED") != nullptr)
    return HistorySeeds(kSanitized ? 1 : 2);
  std::vector<unsigned> seeds;
  while (seeds.size() < 20) seeds.push_back(static_cast<unsigned>(seeds.size()));
  return seeds;
}

}  // namespace aostorage::testing
