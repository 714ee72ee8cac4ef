# Installs the library below WORK_DIR, builds the consumer project against it with find_package, and
# runs the consumer there.
#   BUILD_DIR                     the build to install from
#   GENERATOR, COMPILER, FLAGS    what that build was made with
#   CONSUMER_DIR, SHARED_LIBS     the consumer project, and which library it asks for
#   WORK_DIR                      emptied first

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR}/run)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --component library
                        --prefix ${WORK_DIR}/prefix COMMAND_ERROR_IS_FATAL ANY)
execute_process(
  COMMAND
    ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/build -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix -DCMAKE_CXX_COMPILER=${COMPILER}
    -DCMAKE_CXX_FLAGS=${FLAGS} -DBUILD_SHARED_LIBS=${SHARED_LIBS} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${WORK_DIR}/build/consumer WORKING_DIRECTORY ${WORK_DIR}/run
                COMMAND_ERROR_IS_FATAL ANY)
