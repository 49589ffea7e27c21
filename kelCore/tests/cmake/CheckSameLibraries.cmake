# Builds the libraries again, from a copy of the sources in another directory, and fails unless they
# are the same as in this build, byte for byte.
#
# SOURCES and BUILD are the directories of this build; the copy goes below DIRECTORY. GENERATOR, COMPILER,
# FLAGS and TYPE are those of this build. LIBRARIES are the files to compare, in BUILD;
# TARGETS build them.

file(REMOVE_RECURSE ${DIRECTORY})
set(copy ${DIRECTORY}/copy-whose-path-has-another-length)
set(copiedBuild ${copy}/out)

# Directories with a build are left out.
file(GLOB entries RELATIVE ${SOURCES} ${SOURCES}/*)
foreach(entry IN LISTS entries)
  string(FIND "${BUILD}/" "${SOURCES}/${entry}/" holdsThisBuild)
  if(NOT entry MATCHES "^(build|\\.git)$" AND holdsThisBuild EQUAL -1)
    file(COPY ${SOURCES}/${entry} DESTINATION ${copy})
  endif()
endforeach()

# Options in the environment of ctest would also apply to the other build.
unset(ENV{CXXFLAGS})
unset(ENV{LDFLAGS})
execute_process(
  COMMAND ${CMAKE_COMMAND} -S ${copy} -B ${copiedBuild} -G ${GENERATOR}
    -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_CXX_FLAGS=${FLAGS} -DCMAKE_BUILD_TYPE=${TYPE}
    -DBUILD_TESTING=OFF
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} --build ${copiedBuild} --target ${TARGETS}
  COMMAND_ERROR_IS_FATAL ANY)

foreach(library IN LISTS LIBRARIES)
  file(RELATIVE_PATH name ${BUILD} ${library})
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${library} ${copiedBuild}/${name}
    RESULT_VARIABLE differs)
  if(differs)
    message(FATAL_ERROR "${name} is not the same when it is built in ${copy}")
  endif()
endforeach()
file(REMOVE_RECURSE ${DIRECTORY})
