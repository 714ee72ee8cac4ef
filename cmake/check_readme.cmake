# Fails when a C++ block of the README is not, byte for byte, the program of examples/ that the line
# before it names, or when a program there has no block: what the README shows is what is compiled.
#   README        the file
#   EXAMPLES_DIR  where the programs are

file(READ ${README} text)
file(GLOB programs RELATIVE ${EXAMPLES_DIR} ${EXAMPLES_DIR}/*.cpp)

set(missing "")
foreach(program ${programs})
  file(READ ${EXAMPLES_DIR}/${program} code)
  string(FIND "${text}" "<!-- examples/${program} -->\n```cpp\n${code}```\n" place)
  if(place EQUAL -1)
    list(APPEND missing ${program})
  endif()
endforeach()
if(missing)
  list(JOIN missing "\n  " missing)
  message(FATAL_ERROR "the README does not show these as they are:\n  ${missing}")
endif()

# Each program has a block, so one block more is one that no program stands behind.
string(REGEX MATCHALL "```(cpp|c\\+\\+)" blocks "${text}")
list(LENGTH blocks block_count)
list(LENGTH programs program_count)
if(NOT block_count EQUAL program_count)
  message(FATAL_ERROR "${block_count} C++ blocks in the README for ${program_count} programs")
endif()
message("${program_count} programs, all in the README as they are")
