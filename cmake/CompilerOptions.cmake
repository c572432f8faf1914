# Warnings are errors everywhere; ERPS_SANITIZE and ERPS_COVERAGE instrument the whole tree.
set(ERPS_SANITIZE "" CACHE STRING "address, undefined, thread, a list of them with commas, or empty")
option(ERPS_COVERAGE "Instrument for line and branch coverage" OFF)
option(ERPS_UNITY_BUILD "Compile the simulator as a few large sources" ON)
option(ERPS_FUZZ "Instrument for libFuzzer and build the fuzz targets; clang only" OFF)

add_library(erps_options INTERFACE)
target_compile_options(erps_options INTERFACE
  -Wall -Wextra -Wpedantic -Werror -Wshadow -Wold-style-cast -Wcast-qual -Wnon-virtual-dtor
  -Woverloaded-virtual -Wformat=2 -Wundef -fno-common -fstack-protector-strong)
target_include_directories(erps_options INTERFACE ${CMAKE_SOURCE_DIR})

if(ERPS_SANITIZE)
  add_compile_options(-fsanitize=${ERPS_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ERPS_SANITIZE})
endif()

if(ERPS_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(ERPS_COVERAGE)
  add_compile_options(--coverage -O0)
  add_link_options(--coverage)
endif()

# erps_precompile(TARGET HEADER...): reads large headers of libraries once for all files of a target.
# Every file includes what it uses all the same: the clang preset, for clang-tidy, goes without.
function(erps_precompile target)
  target_precompile_headers(${target} PRIVATE ${ARGN})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # Equal headers make equal files, so that the compiler cache knows them again.
    target_compile_options(${target} PRIVATE "SHELL:-Xclang -fno-pch-timestamp")
  endif()
endfunction()
