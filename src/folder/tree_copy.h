// Copies what a stream holds into another one, all the way down.
#ifndef AOSTORAGE_FOLDER_TREE_COPY_H_
#define AOSTORAGE_FOLDER_TREE_COPY_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "folder/child_streams.h"
#include "stream/whole_stream.h"

namespace aostorage::detail {

// Follows a copy, stream by stream, depth first.
class CopyWitness {
 public:
  virtual ~CopyWitness() = default;
  // What is surely at `data` of a plain stream of that length or a longer one.
  static constexpr std::uint32_t kHeadSize = 64;

  // A plain stream of `size` bytes was read whole and its copy is complete, or a folder is entered.
  // False ends the copy as failed.
  virtual bool Copied(const tag_aoStream& header, const std::uint8_t* data, std::uint32_t size) = 0;
  // Everything in the folder entered last has been met.
  virtual void LeftFolder() = 0;
};

// One copy of one or more trees. It remembers what it cannot copy; a merge goes on behind it, any
// other copy ends there. Without recursion, and bounded on any file: more records, or more bytes
// and blocks, than the source file had room for at the start are damage.
class TreeCopy {
 public:
  enum class Goal {
    kMerge,  // a child of the same name in the destination is the counterpart
    kFresh,  // the destination is new: every child is created, also the second one of a name
    kNone,   // nothing is written; of plain streams the head is read, and whether the rest is there
  };

  TreeCopy(StorageCore& ofSource, Goal copyGoal, CopyWitness* follower = nullptr)
      : room(ofSource.file.Size().value_or(0)), goal(copyGoal), witness(follower) {}
  TreeCopy(const TreeCopy&) = delete;
  TreeCopy& operator=(const TreeCopy&) = delete;

  // The content of `from`, whose cursor stands at the start, into `to`.
  void Copy(StreamCore& from, StreamCore* to);

  // What was met in all copies so far.
  bool metEmptyPlain = false;  // its copy is there, and as empty
  bool metUnopenable = false;  // a child, or the rest of a folder, could not be opened
  bool metFailure = false;     // a counterpart could not be made, or bytes not be moved
  // A folder has fewer slots than it promises, and so, perhaps, children that nobody can find.
  bool metMissingSlots = false;

  bool IsWhole() const { return !metUnopenable && !metFailure; }

 private:
  struct Level {
    StreamCore* from;
    StreamCore* to;
    CountedStream toOwned, fromOwned;        // null at the top
    std::unique_ptr<ChildStreams> children;  // of the innermost level alone: it reads ahead
    std::uint32_t slotIndex = 0;
    bool metOne = false;  // the walk is behind its first child
  };

  void CopyPlain(StreamCore& from, StreamCore* to);
  void Enter(StreamCore* from, CountedStream fromOwned, StreamCore* to, CountedStream toOwned);
  bool Step();
  void CopyChild(std::unique_ptr<StreamCore> child);
  CountedStream Counterpart(StreamCore& folder, const tag_aoStream& child);
  void LeaveChildren(Level& level);
  void LeaveLevel();
  // The deepest first: a child keeps what it shares with the folders around it alive.
  void LeaveAll();
  bool Witnessed(const tag_aoStream& header, const std::uint8_t* data, std::uint32_t size);

  // False, with the copy given up, when the file has no room for what was met.
  bool HasRoom();

  std::uint64_t room;  // bytes of the source file
  Goal goal;
  CopyWitness* witness;
  WholeStream whole;
  std::vector<Level> levels;
  std::uint64_t recordsMet = 0;
  std::uint64_t bytesMet = 0;  // with the headers of the blocks that they lie in
  std::uint64_t walked = 0;    // in folders, whether it led anywhere or not
  bool givenUp = false;
};

}  // namespace aostorage::detail

#endif  // AOSTORAGE_FOLDER_TREE_COPY_H_
