# Builds copies of the examples in EXAMPLES like a user, against the installation in the directory "first"
# below STAGE, and installs them there. Then renames the directory to MOVED.
#
# Uses COMPILER, or KEL_EXAMPLES_COMPILER of the environment, and GENERATOR. Warnings are errors, also in
# kelCore's headers.

if(DEFINED ENV{KEL_EXAMPLES_COMPILER})
  set(COMPILER $ENV{KEL_EXAMPLES_COMPILER})
endif()

# The flags that ctest may have been started with are not meant for the examples.
unset(ENV{CXXFLAGS})
unset(ENV{LDFLAGS})
foreach(example tone host)
  file(COPY ${EXAMPLES}/${example} DESTINATION ${STAGE}/sources)
  set(build ${STAGE}/build/${example})
  execute_process(
    COMMAND ${CMAKE_COMMAND} -S ${STAGE}/sources/${example} -B ${build} -G ${GENERATOR}
      -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=${COMPILER}
      -DCMAKE_PREFIX_PATH=${STAGE}/first -DCMAKE_NO_SYSTEM_FROM_IMPORTED=ON
      "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Werror"
    COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${CMAKE_COMMAND} --build ${build} COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${CMAKE_COMMAND} --install ${build} --prefix ${STAGE}/first
    COMMAND_ERROR_IS_FATAL ANY)
endforeach()
file(RENAME ${STAGE}/first ${MOVED})
file(REMOVE_RECURSE ${STAGE}/build)
