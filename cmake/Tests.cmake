# erps_add_tests(TARGET LABEL name TIMEOUT seconds [SERIAL] [SHARDS n]
#                [SANITIZE address|undefined|thread ...] [EVERY_TIME address|thread ...])
#
# Registers the cases of a GoogleTest program one by one. A build with one of the named sanitizers
# registers the whole program as one test instead, labelled "sanitize", or as SHARDS tests: a process
# a case costs more there than the cases themselves. SERIAL: nothing else runs beside it. Those of
# EVERY_TIME are labelled "every_time", too, which script/test runs; script/sanitize runs all.
include(GoogleTest)

function(erps_add_tests target)
  cmake_parse_arguments(TESTS "SERIAL" "LABEL;TIMEOUT;SHARDS" "SANITIZE;EVERY_TIME" ${ARGN})
  string(REPLACE ";" "|" wanted "${TESTS_SANITIZE}")
  string(REPLACE "," ";" sanitizers "${ERPS_SANITIZE}")
  set(every_time "${sanitizers}")
  list(FILTER sanitizers INCLUDE REGEX "^(${wanted})$")
  string(REPLACE ";" "|" wanted "${TESTS_EVERY_TIME}")
  list(FILTER every_time INCLUDE REGEX "^(${wanted})$")
  get_target_property(sources ${target} SOURCES)
  list(LENGTH sources files)
  if(files GREATER 3) # fewer are compiled before the header is
    erps_precompile(${target} <gmock/gmock.h> <gtest/gtest.h>)
  endif()
  if(NOT ERPS_SANITIZE)
    # One label: discovery at test time takes a list of labels apart.
    set(properties LABELS ${TESTS_LABEL} TIMEOUT ${TESTS_TIMEOUT})
    if(TESTS_SERIAL)
      list(APPEND properties RUN_SERIAL TRUE)
    endif()
    gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST PROPERTIES ${properties})
  elseif(sanitizers)
    set(labels sanitize)
    if(every_time)
      list(APPEND labels every_time)
      add_dependencies(every_time_tests ${target})
    endif()
    if(NOT TESTS_SHARDS)
      set(TESTS_SHARDS 1)
    endif()
    foreach(shard RANGE 1 ${TESTS_SHARDS})
      math(EXPR index "${shard} - 1")
      set(test ${target})
      if(TESTS_SHARDS GREATER 1)
        string(APPEND test ".${shard}of${TESTS_SHARDS}")
      endif()
      add_test(NAME ${test} COMMAND ${target})
      set_tests_properties(${test} PROPERTIES
        LABELS "${labels}" TIMEOUT 900 RUN_SERIAL "${TESTS_SERIAL}"
        ENVIRONMENT "GTEST_TOTAL_SHARDS=${TESTS_SHARDS};GTEST_SHARD_INDEX=${index}"
        SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\] [1-9]")
    endforeach()
    add_dependencies(sanitized_tests ${target})
  endif()
endfunction()
