# Compiles each public header by itself, then the consumer, with nothing but the public headers in
# reach and every warning an error.
#   COMPILER, FLAGS  the compiler and the project's warning flags
#   INCLUDE_DIR      the public include directory
#   CONSUMER         the consumer's source
#   WORK_DIR         place for the object file

# -Woverloaded-virtual: clang has it in -Wall, g++ only from version 13 on.
set(command ${COMPILER} -std=c++17 -O2 ${FLAGS} -Woverloaded-virtual -Werror -I${INCLUDE_DIR})

file(GLOB headers RELATIVE ${INCLUDE_DIR} ${INCLUDE_DIR}/aostorage/*.h)
foreach(header ${headers})
  execute_process(COMMAND ${command} -fsyntax-only -include ${header} -x c++ /dev/null
                  RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "${header} does not compile by itself")
  endif()
endforeach()

get_filename_component(compiler_name ${COMPILER} NAME)
execute_process(COMMAND ${command} -c ${CONSUMER} -o ${WORK_DIR}/consumer.${compiler_name}.o
                RESULT_VARIABLE failed)
if(failed)
  message(FATAL_ERROR "the consumer does not compile")
endif()
