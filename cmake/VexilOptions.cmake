# One interface target carries the flags that every target of the project is built with.
add_library(vexil_options INTERFACE)
target_compile_features(vexil_options INTERFACE cxx_std_20)
target_include_directories(vexil_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(vexil_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
  -Woverloaded-virtual -Wzero-as-null-pointer-constant -Wcast-align -Wformat=2 -Wno-format-nonliteral
  $<$<BOOL:${VEXIL_WERROR}>:-Werror>)
# GCC 12 warns of an overlap in its own library where a text literal is put in front of a std::string at -O3.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(vexil_options INTERFACE -Wno-restrict)
endif()

if(VEXIL_SANITIZE)
  target_compile_options(vexil_options INTERFACE
    -fsanitize=${VEXIL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vexil_options INTERFACE -fsanitize=${VEXIL_SANITIZE})
endif()
if(VEXIL_FUZZ)
  # Coverage for the fuzzer; each fuzz target links libFuzzer itself.
  target_compile_options(vexil_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
endif()

# A compiler cache is used where there is one. It takes what another checkout has compiled from the same sources: the
# folder's name in the debug information matters to nobody, and paths below the project's root count as relative.
find_program(VEXIL_CCACHE ccache)
if(VEXIL_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_NOHASHDIR=1 CCACHE_BASEDIR=${PROJECT_SOURCE_DIR}
    ${VEXIL_CCACHE})
endif()

# vexil_library(NAME SOURCES... [LIBRARIES ...]): one static library of a room.
function(vexil_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
  add_library(${name} STATIC ${arg_SOURCES})
  target_link_libraries(${name} PUBLIC vexil_options ${arg_LIBRARIES})
endfunction()
