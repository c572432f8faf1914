# erps_add_tests(TARGET LABEL name TIMEOUT seconds [SERIAL] [SANITIZE address|undefined|thread ...])
#
# Registers the cases of a GoogleTest program one by one. A build with one of the named sanitizers
# registers the whole program as one test instead, labelled "sanitize": a process a case costs more
# there than the cases themselves. SERIAL: nothing else runs beside it.
include(GoogleTest)

function(erps_add_tests target)
  cmake_parse_arguments(TESTS "SERIAL" "LABEL;TIMEOUT" "SANITIZE" ${ARGN})
  string(REPLACE ";" "|" wanted "${TESTS_SANITIZE}")
  string(REPLACE "," ";" sanitizers "${ERPS_SANITIZE}")
  list(FILTER sanitizers INCLUDE REGEX "^(${wanted})$")
  if(NOT ERPS_SANITIZE)
    # One label: discovery at test time takes a list of labels apart.
    set(properties LABELS ${TESTS_LABEL} TIMEOUT ${TESTS_TIMEOUT})
    if(TESTS_SERIAL)
      list(APPEND properties RUN_SERIAL TRUE)
    endif()
    gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST PROPERTIES ${properties})
  elseif(sanitizers)
    add_test(NAME ${target} COMMAND ${target})
    set_tests_properties(${target} PROPERTIES
      LABELS sanitize TIMEOUT 900 RUN_SERIAL TRUE SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\] [1-9]")
    add_dependencies(sanitized_tests ${target})
  endif()
endfunction()
