// How hexdump shows records: as text, or as a document.
#ifndef AOSTORAGE_TOOLS_HEX_OUTPUT_H_
#define AOSTORAGE_TOOLS_HEX_OUTPUT_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <aostorage/inspect.h>

#include "json.h"
#include "record_fields.h"
#include "style.h"

namespace aotool {

const char* StateWord(aostorage::RecordState state);

// A record, or a piece of one, and what it is to be called.
struct HexPiece {
  aostorage::Record record;
  const RecordLayout* layout = nullptr;  // null for bytes without fields
  std::uint64_t skipped = 0;             // bytes of the record that lie elsewhere, before these
  std::string title;
  std::vector<std::uint8_t> bytes;  // as many as are shown
};

class HexSink {
 public:
  virtual ~HexSink() = default;
  virtual void Put(const HexPiece& piece) = 0;
  // So many more slots, the last one at `lastOffset`, are byte by byte the one just put.
  virtual void PutSame(std::uint64_t count, std::uint64_t lastOffset) = 0;
};

std::unique_ptr<HexSink> MakeTextHex(ColorRule color);
// `head`: the fields before the records.
std::unique_ptr<HexSink> MakeJsonHex(Json head);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_HEX_OUTPUT_H_
