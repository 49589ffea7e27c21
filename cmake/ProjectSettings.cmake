# The settings that the project's own code is compiled and linked with. They do not reach consumers.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# The build tree mirrors the install tree and is linked like an installed one, so that it can be moved and
# the libraries do not contain the path of the build directory.
include(GNUInstallDirs)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_BINDIR})
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR})
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR})
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)

# Programs find the libraries and plug-ins by relative paths, so that the whole tree can be moved.
set(KEL_INSTALL_PLUGINDIR ${CMAKE_INSTALL_LIBDIR}/kel)
file(RELATIVE_PATH KEL_BINDIR_TO_LIBDIR
  ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})

option(KEL_WARNINGS_AS_ERRORS "Warnings are errors in the project's own build" ${PROJECT_IS_TOP_LEVEL})
set(KEL_SANITIZE "" CACHE STRING "Sanitizers to build with, the value of -fsanitize=")
option(KEL_COVERAGE "Build for coverage measurement" OFF)
option(KEL_GROUPS "Compile the files of a group as one, which makes a whole build faster" OFF)

# Without precompiled headers, a file that lacks an include does not compile. A compiler cache does not
# serve files that use them.
option(KEL_PRECOMPILED_HEADERS "Precompile the headers that most files include" ${KEL_GROUPS})
if(CMAKE_CXX_COMPILER_LAUNCHER)
  set(KEL_PRECOMPILED_HEADERS OFF)
endif()

# kel_group_files(TARGET file...)
# Compiles these files as one if KEL_GROUPS is on. Their local names must not clash. The core and the plug-in
# have no groups: they are tested as they are shipped.
function(kel_group_files target)
  set_target_properties(${target} PROPERTIES UNITY_BUILD ${KEL_GROUPS} UNITY_BUILD_MODE GROUP)
  list(GET ARGN 0 group)
  string(MAKE_C_IDENTIFIER ${group} group)
  set_source_files_properties(${ARGN} PROPERTIES UNITY_GROUP ${group})
  if(KEL_GROUPS AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # The compiler treats the files of a group as headers, whose types other files could use.
    target_compile_options(${target} PRIVATE -Wno-subobject-linkage)
  endif()
endfunction()

add_library(kelProjectSettings INTERFACE)
target_compile_options(kelProjectSettings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast
  -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wformat=2 -Wundef -Wnull-dereference
  -Wdouble-promotion -Wimplicit-fallthrough
  # Paths in log records and debug information are relative to the project's root.
  # Of the maps that match, the last one counts.
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=
  -ffile-prefix-map=${PROJECT_BINARY_DIR}=build
  -fstack-protector-strong)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(kelProjectSettings INTERFACE
    -Wlogical-op -Wduplicated-cond -Wduplicated-branches)
endif()
if(KEL_WARNINGS_AS_ERRORS)
  target_compile_options(kelProjectSettings INTERFACE -Werror)
endif()

target_link_options(kelProjectSettings INTERFACE
  -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,--as-needed)

if(KEL_SANITIZE)
  target_compile_options(kelProjectSettings INTERFACE
    -fsanitize=${KEL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(kelProjectSettings INTERFACE -fsanitize=${KEL_SANITIZE})
else()
  # The sanitizers' runtime is found at load time only.
  target_link_options(kelProjectSettings INTERFACE -Wl,-z,defs)
endif()

if(KEL_COVERAGE)
  # Counted without losses also where threads run.
  target_compile_options(kelProjectSettings INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(kelProjectSettings INTERFACE --coverage)
endif()
