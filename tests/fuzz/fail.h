// How a fuzz target says what it found: the process ends, and the fuzzer keeps the input.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace erps::fuzz {

[[noreturn]] inline void fail(const std::string& what) {
  std::fprintf(stderr, "FOUND: %s\n", what.c_str());
  std::abort();
}

inline void require(bool holds, const char* what) {
  if (!holds) {
    fail(what);
  }
}

}  // namespace erps::fuzz
