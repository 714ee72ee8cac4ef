// Operations over the whole interface, foretold by a tree in memory.
#include <algorithm>

#include "support/input.h"
#include "support/require.h"
#include "targets/targets.h"
#include "whole/whole_history.h"

namespace aostorage::fuzz {

void RunModel(const std::uint8_t* data, std::size_t size) {
  Script script(data, std::min<std::size_t>(size, 3000));  // longer ones find no more, but slowly
  const std::string wrong = testing::RunWholeHistory(
      [&](unsigned below) { return script.Below(below); }, [&] { return script.Left(); }, 16);
  Require(wrong.empty(), "the model foretells something else;", wrong);
}

}  // namespace aostorage::fuzz
