// Times as findings tell them.
#pragma once

#include <cstdint>
#include <string>

namespace erps::sim {

// 58.5 ms
inline std::string in_milliseconds(int64_t time_us) {
  return std::to_string(time_us / 1000) + "." + std::to_string(time_us % 1000 / 100) + " ms";
}

// 1.234 s
inline std::string in_seconds(int64_t time_us) {
  const std::string thousandths = std::to_string(1000 + time_us / 1000 % 1000);
  return std::to_string(time_us / 1'000'000) + "." + thousandths.substr(1) + " s";
}

}  // namespace erps::sim
