# Fails when a test file gives the test program no test: left out of the build, named so that the
# build does not pick it up, or holding only test patterns that nothing instantiates.
#   TESTS_DIR     where the test files are
#   TEST_PROGRAM  the program that should hold them all; empty when none was built
#   WORK_DIR      place for the program's list

file(GLOB_RECURSE candidates ${TESTS_DIR}/*.cpp)
set(expected "")
foreach(file ${candidates})
  file(STRINGS ${file} test_lines REGEX "^ *(TYPED_)?TEST(_F|_P)?\\(" LIMIT_COUNT 1)
  if(test_lines OR file MATCHES "_test\\.cpp$")
    list(APPEND expected ${file})
  endif()
endforeach()

if(NOT expected)
  message("no test files")
  return()
endif()
if(NOT TEST_PROGRAM)
  message(FATAL_ERROR "no test program was built, but there are test files: ${expected}")
endif()

set(list_file ${WORK_DIR}/test_list.json)
file(REMOVE ${list_file})
execute_process(COMMAND ${TEST_PROGRAM} --gtest_list_tests --gtest_output=json:${list_file}
                OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(STRINGS ${list_file} file_lines REGEX "\"file\": ")
list(REMOVE_DUPLICATES file_lines)
string(REPLACE "\\/" "/" file_lines "${file_lines}")  # JSON may escape the slash

set(missing "")
foreach(file ${expected})
  string(FIND "${file_lines}" "\"${file}\"" place)
  if(place EQUAL -1)
    list(APPEND missing ${file})
  endif()
endforeach()
if(missing)
  list(JOIN missing "\n  " missing)
  message(FATAL_ERROR "no test of these files is in the test program:\n  ${missing}")
endif()
list(LENGTH expected count)
message("${count} test files, all in the test program")
