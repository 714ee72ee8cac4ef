/// @file
/// What the bytes of an input are.
#ifndef AOSTORAGE_FUZZ_SUPPORT_INPUT_H_
#define AOSTORAGE_FUZZ_SUPPORT_INPUT_H_

#include <string>
#include <vector>

#include "support/raw_file.h"

namespace aostorage::fuzz {

using testing::Bytes;

/// Bytes that decide what is done. When they are used up, every answer is 0.
class Script {
 public:
  Script(const std::uint8_t* first, std::size_t count) : at(first), end(first + count) {}

  bool Left() const { return at != end; }
  std::uint8_t Byte() { return at == end ? std::uint8_t{0} : *at++; }
  std::uint32_t Below(std::uint32_t limit);
  /// Small, at a border of some kind, or anything.
  std::uint32_t Word();
  /// Up to 1,000 bytes, most often few.
  Bytes Data();
  /// Most often one of `known`.
  std::string Name(const std::vector<std::string>& known);

 private:
  const std::uint8_t* at;
  const std::uint8_t* end;
};

/// The words that records are likely to be wrong at.
const std::vector<std::uint32_t>& BorderWords();

/// An input that is a file, then a script, then the script's length in two bytes.
struct FileAndScript {
  FileAndScript(const std::uint8_t* data, std::size_t size);
  /// The opposite.
  static Bytes Join(const Bytes& file, const Bytes& script);

  Bytes file, script;
};

}  // namespace aostorage::fuzz

#endif  // AOSTORAGE_FUZZ_SUPPORT_INPUT_H_
