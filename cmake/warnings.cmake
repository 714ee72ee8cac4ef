# Shared with the checks that compile the public headers, so that they are held to the same set.
set(AOSTORAGE_WARNING_FLAGS -Wall -Wextra -Wpedantic -Wconversion -Wshadow)

# Gives `target` the project's warnings. They stop the build only here: a project that takes this one
# in with add_subdirectory must not fail on a warning that its newer compiler has learnt.
function(aostorage_target_warnings target)
  target_compile_options(${target} PRIVATE ${AOSTORAGE_WARNING_FLAGS})
  if(PROJECT_IS_TOP_LEVEL)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

# What every target of this project shares.
function(aostorage_target_defaults target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
  aostorage_target_warnings(${target})
endfunction()
