// Copies of streams and folders, within a store and between two.
#ifndef AOSTORAGE_TOOLS_TREE_COPY_H_
#define AOSTORAGE_TOOLS_TREE_COPY_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "paths.h"
#include "stream_writer.h"
#include "transfer.h"
#include "walk.h"

namespace aotool {

// Copies a stream, or a folder with all it holds, with its durations. All of it is read back from
// the store before the copy counts as done.
class TreeCopy {
 public:
  // `copyVerb` says what is done, for the progress.
  TreeCopy(Report& toReport, const char* copyVerb, std::uint64_t sizeOfSourceStore);

  // `name` is free in `to`. A copy that failed is removed again.
  Result Copy(aostorage::aoStream& source, Place to, const std::string& name);

  // As Copy, over what stands in `to` under that name and is of the same kind. A stream gets the
  // new bytes and keeps its duration. A folder keeps what only it holds; in it, what has a name of
  // the other kind makes way. Each stream stays as it was until its copy is whole. A copy of a
  // folder that failed stays as far as it came.
  Result CopyOver(aostorage::aoStream& source, Place to, const std::string& name);

 private:
  // A folder that is being made under another name, because a plain stream has its own.
  struct Aside {
    std::size_t depth;  // folders above it on the trail
    std::string name, nameForNow;
  };

  Result CopyTree(aostorage::aoStream& source, Place to, const std::string& name);
  Result OpenOld(Place to, const std::string& name, StreamPtr& old);
  Result CopyPlain(aostorage::aoStream& source, Place to, const std::string& name);
  Result FillAndCompare(aostorage::aoStream& source, aostorage::aoStream& copy, Place to,
                        const std::string& name);
  Result CopyFolder(aostorage::aoStream& source, Place to, const std::string& name);
  Result CopyWhatItHolds(aostorage::aoStream& source, Trail& trail, std::uint64_t expected);
  Result EnterCopyOfFolder(aostorage::aoStream& source, Trail& trail, const std::string& name);
  Result PutAsideInPlace(Trail& trail);
  void TakeBackAside(Trail& trail, Result& result);
  Result Count(aostorage::aoStream& source, std::uint64_t& count);

  Report& report;
  const char* verb;
  std::uint64_t room;    // bytes of the store that is copied from
  bool over = false;     // what has the name in the goal is copied over
  bool touched = false;  // there was a first write
  std::vector<Aside> aside;
  std::uint64_t items = 0;
  std::uint64_t bytes = 0;  // read from the source, to be written or to be compared
  Transfer transfer;
  StreamWriter writer;
};

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_TREE_COPY_H_
