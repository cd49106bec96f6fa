find_package(GTest REQUIRED)

# Exit status by which a test says that the machine lacks what it needs.
set(VEXIL_SKIP_CODE 77)

# vexil_test(NAME LABEL unit|contract|widgets|system|fuzz SOURCES ... LIBRARIES ... [TIMEOUT seconds])
# One GoogleTest program, one ctest entry. Widget tests run on Qt's offscreen platform.
function(vexil_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "LABEL;TIMEOUT" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gmock GTest::gtest vexil_options)
  add_test(NAME ${name} COMMAND ${name})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  set_tests_properties(${name} PROPERTIES LABELS "${arg_LABEL}" TIMEOUT ${arg_TIMEOUT}
    SKIP_RETURN_CODE ${VEXIL_SKIP_CODE})
  if(arg_LABEL STREQUAL "widgets")
    set_tests_properties(${name} PROPERTIES ENVIRONMENT "QT_QPA_PLATFORM=offscreen")
  endif()
endfunction()
