// A guard in front of the TOML parser, whose stack a hostile file could exhaust.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>

namespace erps::client {

inline constexpr size_t kMostDotsInALine = 100;

// The first line with more dots than that; 0 where there is none. The parser limits how deep values
// stand in each other but not the parts of a key, of which each is a table in a table.
inline uint32_t too_deep_line(std::string_view text) {
  uint32_t line = 1;
  size_t dots = 0;
  for (const char c : text) {
    if (c == '\n') {
      ++line;
      dots = 0;
    } else if (c == '.' && ++dots > kMostDotsInALine) {
      return line;
    }
  }
  return 0;
}

}  // namespace erps::client
