// Copies of streams and folders, within a store and between two.
#ifndef AOSTORAGE_TOOLS_TREE_COPY_H_
#define AOSTORAGE_TOOLS_TREE_COPY_H_

#include <cstdint>
#include <string>

#include "paths.h"
#include "transfer.h"
#include "walk.h"

namespace aotool {

// Copies a stream, or a folder with all it holds, with its durations. All of it is read back from
// the store before the copy counts as done.
class TreeCopy {
 public:
  // `copyVerb` says what is done, for the progress.
  TreeCopy(Report& toReport, const char* copyVerb);

  // `name` is free in `to`. A copy that failed is removed again.
  Result Copy(aostorage::aoStream& source, Place to, const std::string& name);

  // As Copy, over what stands in `to` under that name and is of the same kind. A stream gets the
  // new bytes and keeps its duration. A folder keeps what only it holds; in it, what has a name of
  // the other kind is removed first. A copy that failed stays as far as it came.
  Result CopyOver(aostorage::aoStream& source, Place to, const std::string& name);

 private:
  Result CopyTree(aostorage::aoStream& source, Place to, const std::string& name);
  Result Obtain(aostorage::aoStream& source, Place to, const std::string& name, StreamPtr& copy);
  Result CopyPlain(aostorage::aoStream& source, Place to, const std::string& name);
  Result CopyFolder(aostorage::aoStream& source, Place to, const std::string& name);
  Result EnterCopyOfFolder(aostorage::aoStream& source, Trail& trail, const std::string& name);
  Result Count(aostorage::aoStream& source, std::uint64_t& count);

  Report& report;
  const char* verb;
  bool over = false;     // what has the name in the goal is copied over
  bool touched = false;  // there was a first write
  std::uint64_t items = 0;
  std::uint64_t bytes = 0;  // read from the source, to be written or to be compared
  Transfer transfer;
};

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_TREE_COPY_H_
