// How far a stream of an inspected file can be believed.
#ifndef AOSTORAGE_TOOLS_RECOVER_VERDICT_H_
#define AOSTORAGE_TOOLS_RECOVER_VERDICT_H_

#include <cstdint>
#include <string>

#include <aostorage/inspect.h>

namespace aotool {

struct Verdict {
  std::uint64_t bytes = 0;  // that can be read of it
  std::string why;          // what speaks against it; empty when nothing does

  bool Whole() const { return why.empty(); }
};

// Of a plain stream: whether these are all its bytes and its own. Of a folder: whether all its
// slots are there.
Verdict JudgeStream(const aostorage::Inspection& source, std::uint32_t stream);

// Whether its header tells a length. Of a removed stream and of blocks without a header none is
// known.
bool HasLength(const aostorage::InspectedStream& stream);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_RECOVER_VERDICT_H_
