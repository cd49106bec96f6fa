find_package(GTest REQUIRED)
include(GoogleTest)

# What only one test at a time may use. The JACK servers of one user share a folder, which each removes when it ends.
set(VEXIL_JACK_SERVERS jack_servers)

# Exit status by which a test says that the machine lacks what it needs.
set(VEXIL_SKIP_CODE 77)

# vexil_wanted(LABEL...): sets vexil_wanted to whether this build has tests of one of the labels. A test that must also run
# without sanitizers, since it depends on time, says PLAIN and is wanted where that label is.
macro(vexil_wanted)
  set(vexil_wanted OFF)
  foreach(label ${ARGV})
    if(NOT VEXIL_TEST_LABELS OR label IN_LIST VEXIL_TEST_LABELS)
      set(vexil_wanted ON)
    endif()
  endforeach()
endmacro()

# vexil_test_program(NAME LABEL label... [SOURCES ...] [TOGETHER ...] LIBRARIES ...): a program of the tests with one of these labels.
# Where the build has no such tests, it is made only when it is asked for by name. Sources that stand behind TOGETHER are compiled
# as one where VEXIL_COMPILE_TOGETHER asks for it: no two of them may define the same name in their unnamed namespaces.
function(vexil_test_program name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LABEL;SOURCES;TOGETHER;LIBRARIES")
  add_executable(${name} ${arg_SOURCES} ${arg_TOGETHER})
  if(arg_TOGETHER)
    vexil_together(${name} tests APART ${arg_SOURCES})
  endif()
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} vexil_options)
  if(arg_LIBRARIES MATCHES "qt|Qt")
    vexil_precompiled(${name} qt)
  else()
    vexil_precompiled(${name})
  endif()
  vexil_wanted(${arg_LABEL})
  if(NOT vexil_wanted)
    set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL ON)
  endif()
endfunction()

# vexil_test(NAME LABEL unit|contract|widgets|system [PLAIN] [SOURCES ...] [TOGETHER ...] LIBRARIES ... [TIMEOUT seconds] [USES things] [COST seconds])
# One GoogleTest program; each of its tests is a ctest entry of its own, named NAME.Suite.Test, so that every test
# stands alone and a skipped one is counted as skipped. The timeout is that of one test; no two tests run that
# use the same thing. Widget tests run on Qt's offscreen platform.
# With VEXIL_WHOLE_PROGRAMS all tests of a program run in one process, as one entry: the sanitizers cost each process more than
# most tests take. What each test gave stands in results/NAME.xml. COST: programs that take longest begin first.
function(vexil_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "PLAIN" "LABEL;TIMEOUT;USES;COST" "SOURCES;TOGETHER;LIBRARIES")
  set(labels ${arg_LABEL})
  if(arg_PLAIN)
    list(APPEND labels plain)
  endif()
  vexil_test_program(${name} LABEL ${labels} SOURCES ${arg_SOURCES} TOGETHER ${arg_TOGETHER}
    LIBRARIES ${arg_LIBRARIES} GTest::gmock GTest::gtest)
  vexil_wanted(${labels})
  if(NOT vexil_wanted)
    return()
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  set(properties "")
  if(arg_LABEL STREQUAL "widgets")
    list(APPEND properties ENVIRONMENT "QT_QPA_PLATFORM=offscreen")
  endif()
  if(arg_USES)
    list(APPEND properties RESOURCE_LOCK "${arg_USES}")
  endif()
  if(VEXIL_WHOLE_PROGRAMS)
    if(NOT arg_COST)
      set(arg_COST 1)
    endif()
    add_test(NAME ${name} COMMAND ${name} --gtest_brief=1 --gtest_output=xml:${PROJECT_BINARY_DIR}/results/${name}.xml)
    set_tests_properties(${name} PROPERTIES LABELS "${arg_LABEL}" TIMEOUT 600 COST ${arg_COST} ${properties})
    return()
  endif()
  gtest_discover_tests(${name} TEST_PREFIX "${name}." DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS "${arg_LABEL}" TIMEOUT ${arg_TIMEOUT} SKIP_RETURN_CODE ${VEXIL_SKIP_CODE} ${properties})
endfunction()

# vexil_script_test(NAME LABEL label [PLAIN] SCRIPT file [ARGUMENTS ...] [TIMEOUT seconds] [USES things] [COST seconds])
# A test that is a Python program: exit status 0 passed, 77 skipped, anything else failed. It runs by the system's own
# Python, which has the Debian packages, and finds the modules of tools/.
function(vexil_script_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "PLAIN" "LABEL;SCRIPT;TIMEOUT;USES;COST" "ARGUMENTS")
  set(labels ${arg_LABEL})
  if(arg_PLAIN)
    list(APPEND labels plain)
  endif()
  vexil_wanted(${labels})
  if(NOT vexil_wanted)
    return()
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  add_test(NAME ${name} COMMAND /usr/bin/python3 ${CMAKE_CURRENT_SOURCE_DIR}/${arg_SCRIPT} ${arg_ARGUMENTS})
  if(NOT arg_COST)
    set(arg_COST 0)
  endif()
  set_tests_properties(${name} PROPERTIES LABELS "${arg_LABEL}" TIMEOUT ${arg_TIMEOUT} COST ${arg_COST}
    SKIP_RETURN_CODE ${VEXIL_SKIP_CODE} ENVIRONMENT "PYTHONDONTWRITEBYTECODE=1;PYTHONPATH=${PROJECT_SOURCE_DIR}/tools" RESOURCE_LOCK "${arg_USES}")
endfunction()
