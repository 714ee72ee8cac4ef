#include "folder/tree_copy.h"

#include <utility>

#include "platform/last_error.h"

namespace aostorage::detail {

void TreeCopy::Copy(StreamCore& from, StreamCore* to) {
  if (givenUp) return;
  if (!from.IsFolder()) {
    CopyPlain(from, to);
    return;
  }
  if (!Witnessed(from.Header(), nullptr, 0)) return;
  // Also when memory runs out: the levels must not outlive `from`.
  struct Leaving {
    ~Leaving() { copy.LeaveAll(); }
    TreeCopy& copy;
  } const leaving{*this};
  Enter(&from, nullptr, to, nullptr);
  while (!levels.empty() && Step()) {
  }
}

void TreeCopy::CopyPlain(StreamCore& from, StreamCore* to) {
  // A new stream is as empty as erasing would leave it.
  if (to != nullptr && to->Header().length != 0) to->Erase();
  const std::uint32_t size = from.Header().length;
  if (size == 0) {
    metEmptyPlain = true;
    Witnessed(from.Header(), nullptr, 0);
    return;
  }
  bool copied =
      goal == Goal::kNone ? whole.ReadHead(from, CopyWitness::kHeadSize) : whole.Read(from);
  bytesMet += std::uint64_t{from.Cursor().position} +
              std::uint64_t{from.Cursor().steps} * BlockHeader::kSize;
  if (!HasRoom()) return;
  if (copied && to != nullptr) {
    to->Rewind();
    copied = to->Write(whole.Data(), size, true) == size;
  }
  if (!copied) {
    metFailure = true;
  } else {
    Witnessed(from.Header(), whole.Data(), size);
  }
}

bool TreeCopy::HasRoom() {
  if (givenUp) return false;
  if (bytesMet <= room && recordsMet * StreamHeader::kSize <= room && walked <= kMostRounds * room)
    return true;
  givenUp = metFailure = true;
  return Fail(ErrorCode::kContradiction);
}

bool TreeCopy::Witnessed(const tag_aoStream& header, const std::uint8_t* data, std::uint32_t size) {
  if (witness == nullptr || witness->Copied(header, data, size)) return true;
  givenUp = metFailure = true;
  return false;
}

void TreeCopy::Enter(StreamCore* from, CountedStream fromOwned, StreamCore* to,
                     CountedStream toOwned) {
  if (!levels.empty()) LeaveChildren(levels.back());
  Level level;
  level.from = from;
  level.to = to;
  level.fromOwned = std::move(fromOwned);
  level.toOwned = std::move(toOwned);
  levels.push_back(std::move(level));
}

// One child of the innermost folder. False when the copy is to end.
bool TreeCopy::Step() {
  Level& level = levels.back();
  if (level.from->IsRemoved()) {
    Fail(ErrorCode::kNotFound);
    metUnopenable = true;
    LeaveLevel();
    return true;
  }
  if (level.children == nullptr) level.children = std::make_unique<ChildStreams>(*level.from);
  std::unique_ptr<StreamCore> child;
  Attempt walking;
  const ChildStreams::Walk walk = level.children->OpenNext(
      level.slotIndex, !level.metOne, kReadFlags, child, StreamCore::Sharing::kMomentary);
  switch (walk) {
    case ChildStreams::Walk::kOpened:
      level.metOne = true;
      CopyChild(std::move(child));
      break;
    case ChildStreams::Walk::kRefused:
    case ChildStreams::Walk::kLeadsBack:
      level.metOne = true;
      metUnopenable = true;
      break;
    case ChildStreams::Walk::kDamaged:
      ++level.slotIndex;
      metUnopenable = true;
      break;
    case ChildStreams::Walk::kCutOff:
      if (level.children->IsUnbegun()) {
        walking.Forget();
      } else {
        metUnopenable = true;
      }
      LeaveLevel();
      break;
    case ChildStreams::Walk::kEnd:
      if (!level.children->HasAllSlots()) {
        walking.Forget();  // a loss for a rebuild alone, which tells it by itself
        metMissingSlots = true;
      }
      LeaveLevel();
      break;
  }
  return !givenUp && (goal == Goal::kMerge || IsWhole());
}

void TreeCopy::CopyChild(std::unique_ptr<StreamCore> child) {
  const bool isFolder = child->IsFolder();
  StreamCore* from = child.get();
  CountedStream owned(isFolder ? child.release() : nullptr);
  ++recordsMet;
  if (!HasRoom()) return;
  StreamCore* destination = levels.back().to;
  CountedStream counterpart;
  if (goal != Goal::kNone) {
    counterpart = Counterpart(*destination, from->Header());
    if (counterpart == nullptr) {
      metFailure = true;
      return;
    }
  }
  StreamCore* to = counterpart.get();
  if (!isFolder) {
    CopyPlain(*from, to);
  } else if (Witnessed(from->Header(), nullptr, 0)) {
    Enter(from, std::move(owned), to, std::move(counterpart));
  }
}

CountedStream TreeCopy::Counterpart(StreamCore& folder, const tag_aoStream& child) {
  if (!folder.IsFolder()) return Fail(ErrorCode::kWrongKind), nullptr;
  if (folder.IsRemoved()) return Fail(ErrorCode::kNotFound), nullptr;
  const bool isFolder = IsFolderKind(child);
  const std::uint32_t kind = PackKind(isFolder);
  ChildStreams children(folder);
  CountedStream counterpart;
  if (goal == Goal::kFresh) {
    counterpart.reset(children.CreateUnseen(child.name, kind, kWriteFlags).release());
  } else {
    counterpart.reset(children.OpenOrCreate(child.name, kind, kWriteFlags).release());
    if (counterpart != nullptr && counterpart->IsFolder() != isFolder) {
      if (!RemoveWhole(*counterpart)) return nullptr;
      counterpart.reset(children.Create(child.name, kind, kWriteFlags).release());
    }
  }
  return children.IsCounted() ? std::move(counterpart) : nullptr;
}

void TreeCopy::LeaveChildren(Level& level) {
  if (level.children == nullptr) return;
  walked += level.children->BytesWalked();
  level.children.reset();
}

void TreeCopy::LeaveLevel() {
  if (levels.back().children != nullptr) bytesMet += levels.back().children->BytesPassed();
  LeaveChildren(levels.back());
  levels.pop_back();
  HasRoom();
  if (witness != nullptr) witness->LeftFolder();
}

void TreeCopy::LeaveAll() {
  while (!levels.empty()) levels.pop_back();
}

}  // namespace aostorage::detail
