// A store as its names tell it, seen through the inspection: of a damaged one as far as it goes.
#ifndef AOSTORAGE_TOOLS_NAMED_TREE_H_
#define AOSTORAGE_TOOLS_NAMED_TREE_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <aostorage/inspect.h>

#include "inspected.h"
#include "report.h"

namespace aotool {

// The name in the stream's header; up to 61 bytes where it has no end.
std::string_view NameIn(const aostorage::InspectedStream& stream);

// What keeps the bytes of the stream from being had whole.
Result CheckWhole(const aostorage::InspectedStream& stream);

// The first damage to anything that a name leads to, or may have led to. What is removed or lost
// does not count.
Result FirstDamage(const aostorage::Inspection& inspection);

// Tells how a chain breaks off; empty when it does not.
std::string ChainEndText(const aostorage::InspectedStream& stream);

class NamedTree {
 public:
  explicit NamedTree(const aostorage::Inspection& inspected);

  const aostorage::Inspection& Store() const { return inspection; }
  const aostorage::InspectedStream& At(std::uint32_t stream) const {
    return inspection.Streams()[stream];
  }

  // What a folder, or for kNoIndex the root, holds: the streams that names lead to, in the byte
  // order of their names.
  std::vector<std::uint32_t> Children(std::uint32_t folder) const;
  // Those that another one of the same name hides, in the same order.
  std::vector<std::uint32_t> Hidden(std::uint32_t folder) const;
  // kNoIndex when there is none.
  std::uint32_t Child(std::uint32_t folder, std::string_view name) const;

  // Whether the stream lies in one of the slots that are reached without the directory.
  bool IsReserved(std::uint32_t stream) const;

  // What `path` leads to, by the rules of paths.h; "@OFFSET" leads to the stream whose header or
  // one of whose blocks lies there, also where no name does.
  Result Find(const std::string& path, std::uint32_t& stream) const;

 private:
  std::uint32_t FindOrdinary(std::string_view path) const;
  Result Descend(std::string_view rest, std::uint32_t& stream) const;
  Result FindAt(std::string_view offset, std::uint32_t& stream) const;
  void SortByName(std::vector<std::uint32_t>& streams) const;

  const aostorage::Inspection& inspection;
  std::vector<std::uint32_t> root, hiddenRoot;
};

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_NAMED_TREE_H_
