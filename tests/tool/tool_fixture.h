/// @file
/// What tests of the command line tool share: the tool run as a program on a store of its own.
#ifndef AOSTORAGE_TESTS_TOOL_TOOL_FIXTURE_H_
#define AOSTORAGE_TESTS_TOOL_TOOL_FIXTURE_H_

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/raw_file.h"
#include "support/temp_dir.h"

#ifndef AOSTORAGE_TOOL_PATH
#error "AOSTORAGE_TOOL_PATH must be the path of the aostorage tool"
#endif

namespace aostorage::testing {

namespace fs = std::filesystem;

struct Outcome {
  int code;
  std::string out, err;
};

inline std::string Quoted(const std::string& word) {
  std::string quoted = "'";
  for (const char letter : word)
    quoted += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
  return quoted + "'";
}

inline std::string Text(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void SetText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

inline std::string Bulk(std::size_t size) {
  std::string text;
  for (const std::uint8_t byte : Pattern(size)) text += static_cast<char>(byte);
  return text;
}

class Tool : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(Run({"create", store}).code, 0); }

  // `before` is shell text in front of the command.
  Outcome Run(const std::vector<std::string>& words, const std::string& input = "",
              const std::string& before = "") {
    SetText(dir.File("stdin"), input);
    std::string command = before + Quoted(AOSTORAGE_TOOL_PATH);
    for (const std::string& word : words) command += " " + Quoted(word);
    command += " <" + Quoted(dir.File("stdin")) + " >" + Quoted(dir.File("stdout")) + " 2>" +
               Quoted(dir.File("stderr"));
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Text(dir.File("stdout")),
            Text(dir.File("stderr"))};
  }

  int Code(const std::vector<std::string>& words, const std::string& input = "") {
    return Run(words, input).code;
  }
  std::string Cat(const std::string& path) { return Run({"cat", store, path}).out; }

  TempDir dir;
  const std::string store = dir.File("a.store");
};

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_TOOL_TOOL_FIXTURE_H_
