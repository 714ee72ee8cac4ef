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

 private:
  Result CopyTree(aostorage::aoStream& source, Place to, const std::string& name);
  Result CopyPlain(aostorage::aoStream& source, Place to, const std::string& name);
  Result CopyFolder(aostorage::aoStream& source, Place to, const std::string& name);
  Result MakeCopyOfFolder(aostorage::aoStream& source, Trail& trail, const std::string& name);
  Result Count(aostorage::aoStream& source, std::uint64_t& count);

  Report& report;
  const char* verb;
  std::uint64_t items = 0;
  std::uint64_t bytes = 0;  // read from the source, to be written or to be compared
  Transfer transfer;
};

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_TREE_COPY_H_
