# All tests in mapping mode, but for those that it makes no sense for.

# Every storage that a test opens, or that the library opens for it, is put into the mode.
foreach(symbol 4OpenEPKcjj 6CreateEPKcjj 8OpenFastEPKcjj 12OpenOrCreateEPKcjj)
  target_link_options(aostorage_tests_mapped PRIVATE
                      LINKER:--wrap=_ZN9aostorage9aoStorage${symbol})
endforeach()
add_dependencies(aostorage_tests_mapped aostorage_tool)

# These cut the file from outside, which ends the process in this mode, make reads fail, or count
# them; the tests Mapping.* have figures of their own.
set(not_mapped
    Meanwhile.*
    FacadeData.WritesReadsAndMovesInOpenStreams
    Seeking.AfterAFailureOnlyAnAbsoluteSeekHelps
    SystemCalls.ASystemThatNeverMovesAByteEndsInFailure
    SystemCalls.CreatingAndRemovingCostTheSameInAnyDirectory
    SystemCalls.Opening
    SystemCalls.Reading
    Entries.CostTwoAndThreeCalls
    FolderChildren.CostFewCalls
    KeptIndex.SparesTheScanOfAFolderThatWasClosed
    Mapping.*)
# These watch the tool, a process of its own.
file(GLOB tool_tests CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/tool/*_test.cpp)
foreach(tool_test ${tool_tests})
  file(STRINGS ${tool_test} definitions REGEX "^TEST_?F?\\(")
  foreach(definition ${definitions})
    string(REGEX REPLACE "^TEST_?F?\\(([A-Za-z]+),.*" "\\1.*" suite "${definition}")
    list(APPEND not_mapped ${suite})
  endforeach()
endforeach()
list(REMOVE_DUPLICATES not_mapped)
list(JOIN not_mapped ":" not_mapped)
gtest_discover_tests(
  aostorage_tests_mapped
  TEST_FILTER "-${not_mapped}"
  TEST_PREFIX mapped.
  DISCOVERY_MODE PRE_TEST
  DISCOVERY_TIMEOUT 60
  PROPERTIES TIMEOUT 300)
