# In full size a test may take hours; a TIMEOUT that is set cannot be changed by ctest's options.
if("$ENV{AOSTORAGE_TEST_SIZE}" STREQUAL "full")
  set_tests_properties(${unit_tests} PROPERTIES TIMEOUT 86400)
endif()
