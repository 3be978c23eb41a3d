# SPDX-License-Identifier: Apache-2.0
# kelnn_test_suites(PROGRAM): ctest's entries for a program of GoogleTest, PROGRAM.SUITE, one for each suite. What a suite
# sets up is then made once, and a suite that crashes takes no other along. Each writes what its cases did into
# results/PROGRAM.SUITE.json of the build, which scripts/test.sh counts.
#
# The suites are asked for after each build of the program, by this file run as a script.

if(NOT CMAKE_SCRIPT_MODE_FILE)
  set(kelnn_test_suites_script ${CMAKE_CURRENT_LIST_FILE})

  function(kelnn_test_suites program)
    set(entries ${CMAKE_CURRENT_BINARY_DIR}/${program}_suites.cmake)
    add_custom_command(TARGET ${program} POST_BUILD VERBATIM
      COMMAND ${CMAKE_COMMAND} -D "PROGRAM=$<TARGET_FILE:${program}>" -D "EMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR}"
        -D "RESULTS=${CMAKE_BINARY_DIR}/results" -D "ENTRIES=${entries}" -P ${kelnn_test_suites_script})
    # A program that was not built is an entry that cannot run.
    set(include_file ${CMAKE_CURRENT_BINARY_DIR}/${program}_include.cmake)
    file(WRITE ${include_file} "if(EXISTS \"${entries}\")\n  include(\"${entries}\")\nelse()\n"
      "  add_test(${program} ${program}_was_not_built)\nendif()\n")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${include_file})
  endfunction()
  return()
endif()

execute_process(COMMAND ${EMULATOR} ${PROGRAM} --gtest_list_tests OUTPUT_VARIABLE listed RESULT_VARIABLE result)
if(result)
  message(FATAL_ERROR "${PROGRAM} lists no tests: ${result}")
endif()
get_filename_component(name ${PROGRAM} NAME)
list(JOIN EMULATOR "\" \"" start)
if(start)
  set(start "\"${start}\" ")
endif()
set(text "")
string(REGEX MATCHALL "(^|\n)[A-Za-z0-9_/]+\\." suites "${listed}")
foreach(suite ${suites})
  string(REGEX REPLACE "[\n.]" "" suite "${suite}")
  string(REPLACE "/" "_" file "${suite}")
  string(APPEND text
    "add_test(\"${name}.${suite}\" ${start}\"${PROGRAM}\" \"--gtest_filter=${suite}.*\")\n"
    "set_tests_properties(\"${name}.${suite}\" PROPERTIES TIMEOUT 600 FAIL_REGULAR_EXPRESSION \"Running 0 tests\""
    " ENVIRONMENT \"GTEST_OUTPUT=json:${RESULTS}/${name}.${file}.json\")\n")
endforeach()
file(WRITE ${ENTRIES} "${text}")
