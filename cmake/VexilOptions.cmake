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
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND VEXIL_COMPILE_TOGETHER)
  # A type that is defined in a source may have members of that source's own: GCC warns of it in every file but the one it compiles.
  target_compile_options(vexil_options INTERFACE -Wno-subobject-linkage)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # Clang takes the zero of a defaulted <=> for one of ours; GCC, which compiles the same sources, warns of ours alone.
  target_compile_options(vexil_options INTERFACE -Wno-zero-as-null-pointer-constant)
endif()

if(VEXIL_SANITIZE)
  target_compile_options(vexil_options INTERFACE
    -fsanitize=${VEXIL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vexil_options INTERFACE -fsanitize=${VEXIL_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    set(ignored ${PROJECT_BINARY_DIR}/sanitizers-ignore.txt)
    configure_file(cmake/sanitizers-ignore.txt.in ${ignored} @ONLY)
    target_compile_options(vexil_options INTERFACE -fsanitize-ignorelist=${ignored})
  endif()
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

# A compiler cache is used where there is one.
find_program(VEXIL_CCACHE ccache)
if(VEXIL_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${PROJECT_SOURCE_DIR}/cmake/compile-cached ${PROJECT_SOURCE_DIR})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # A precompiled header is the same whenever it is made.
    add_compile_options("SHELL:-Xclang -fno-pch-timestamp")
  endif()
endif()

# vexil_precompiled(TARGET [HEADERS]): compiles the target with a header that is compiled once, where VEXIL_PRECOMPILE asks for it.
# HEADERS is plain or qt. The other builds compile every source without, and so see an include that is missing, as does
# tests/house/check_own_includes.py.
function(vexil_precompiled target)
  set(headers vexil_plain_headers)
  if(ARGV1 STREQUAL "qt")
    set(headers vexil_qt_headers)
  endif()
  if(VEXIL_PRECOMPILE AND TARGET ${headers})
    target_precompile_headers(${target} REUSE_FROM ${headers})
  endif()
endfunction()

if(VEXIL_PRECOMPILE)
  set(nothing ${PROJECT_BINARY_DIR}/nothing.cpp)
  file(CONFIGURE OUTPUT ${nothing} CONTENT "")
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    find_package(GTest REQUIRED)
    set(plain_headers <algorithm> <array> <atomic> <chrono> <condition_variable> <cstdint> <deque> <filesystem> <fstream>
      <functional> <map> <memory> <mutex> <optional> <random> <set> <sstream> <string> <string_view> <thread>
      <unordered_map> <variant> <vector> <gmock/gmock.h> <gtest/gtest.h> <nlohmann/json.hpp>)
    add_library(vexil_plain_headers OBJECT EXCLUDE_FROM_ALL ${nothing})
    target_link_libraries(vexil_plain_headers PRIVATE vexil_options GTest::gmock)
    target_precompile_headers(vexil_plain_headers PRIVATE ${plain_headers})
    set(qt_headers ${plain_headers} <QtWidgets>)
    set(qt_libraries GTest::gmock)
  else()
    # GCC reads a precompiled header whole for every source, and forgets which warnings the library's own headers have switched off.
    # For the toolkit's headers it pays: 0.7 s a source in place of 2.9 s.
    set(qt_headers <QApplication> <QComboBox> <QKeyEvent> <QLabel> <QLineEdit> <QPainter> <QPushButton> <QStyle> <QStyleOption> <QWidget>)
    set(qt_libraries "")
  endif()
  find_package(Qt6 6.4 QUIET COMPONENTS Widgets)
  if(Qt6_FOUND)
    add_library(vexil_qt_headers OBJECT EXCLUDE_FROM_ALL ${nothing})
    target_link_libraries(vexil_qt_headers PRIVATE vexil_options ${qt_libraries} Qt6::Widgets)
    target_precompile_headers(vexil_qt_headers PRIVATE ${qt_headers})
  endif()
endif()

# vexil_busy(SOURCE...): sources of this folder in which long tests spend most of their time. They are compiled with VEXIL_BUSY_FLAGS, too.
function(vexil_busy)
  if(VEXIL_BUSY_FLAGS)
    set_source_files_properties(${ARGV} PROPERTIES COMPILE_OPTIONS "${VEXIL_BUSY_FLAGS}" SKIP_PRECOMPILE_HEADERS ON)
  endif()
endfunction()

# vexil_together(TARGET tests|libraries [APART source...]): compiles several sources of the target as one where VEXIL_COMPILE_TOGETHER
# names their kind: eight of a library at a time, all of a test.
function(vexil_together target kind)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "APART")
  if(kind IN_LIST VEXIL_COMPILE_TOGETHER)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON)
    if(kind STREQUAL "tests")
      set_target_properties(${target} PROPERTIES UNITY_BUILD_BATCH_SIZE 0)
    endif()
    if(arg_APART)
      set_source_files_properties(${arg_APART} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
    endif()
  endif()
endfunction()

# vexil_library(NAME SOURCES... [APART ...] [LIBRARIES ...]): one static library of a room. Its sources are compiled eight at a time
# where VEXIL_COMPILE_TOGETHER asks for it: no two of them may define the same name in their unnamed namespaces. Sources that stand
# behind APART are always compiled one by one, since a system header that they include spoils others.
function(vexil_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;APART;LIBRARIES")
  add_library(${name} STATIC ${arg_SOURCES} ${arg_APART})
  vexil_together(${name} libraries APART ${arg_APART})
  target_link_libraries(${name} PUBLIC vexil_options ${arg_LIBRARIES})
  if("Qt6::Widgets" IN_LIST arg_LIBRARIES OR "vexil_platform_qt" IN_LIST arg_LIBRARIES)
    vexil_precompiled(${name} qt)
  else()
    vexil_precompiled(${name})
  endif()
endfunction()
