find_package(GTest REQUIRED)
include(GoogleTest)

# What only one test at a time may use. The JACK servers of one user share a folder, which each removes when it ends.
set(VEXIL_JACK_SERVERS jack_servers)

# Exit status by which a test says that the machine lacks what it needs.
set(VEXIL_SKIP_CODE 77)

# vexil_test(NAME LABEL unit|contract|widgets|system|fuzz SOURCES ... LIBRARIES ... [TIMEOUT seconds] [USES thing])
# One GoogleTest program; each of its tests is a ctest entry of its own, named NAME.Suite.Test, so that every test
# stands alone and a skipped one is counted as skipped. The timeout is that of one test; no two tests run that
# use the same thing. Widget tests run on Qt's offscreen platform.
function(vexil_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "LABEL;TIMEOUT;USES" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gmock GTest::gtest vexil_options)
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
  gtest_discover_tests(${name} TEST_PREFIX "${name}." DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS "${arg_LABEL}" TIMEOUT ${arg_TIMEOUT} SKIP_RETURN_CODE ${VEXIL_SKIP_CODE} ${properties})
endfunction()

# vexil_script_test(NAME LABEL system|house SCRIPT file [ARGUMENTS ...] [TIMEOUT seconds] [USES thing])
# A test that is a Python program: exit status 0 passed, 77 skipped, anything else failed. It runs by the system's own
# Python, which has the Debian packages, and finds the modules of tools/.
function(vexil_script_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "LABEL;SCRIPT;TIMEOUT;USES" "ARGUMENTS")
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  add_test(NAME ${name} COMMAND /usr/bin/python3 ${CMAKE_CURRENT_SOURCE_DIR}/${arg_SCRIPT} ${arg_ARGUMENTS})
  set_tests_properties(${name} PROPERTIES LABELS "${arg_LABEL}" TIMEOUT ${arg_TIMEOUT}
    SKIP_RETURN_CODE ${VEXIL_SKIP_CODE} ENVIRONMENT "PYTHONDONTWRITEBYTECODE=1;PYTHONPATH=${PROJECT_SOURCE_DIR}/tools" RESOURCE_LOCK "${arg_USES}")
endfunction()
