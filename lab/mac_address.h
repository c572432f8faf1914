// A MAC address as a value.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace erps::lab {

struct MacAddress {
  std::array<uint8_t, 6> bytes{};

  friend bool operator==(const MacAddress&, const MacAddress&) = default;
  friend bool operator<(const MacAddress& a, const MacAddress& b) { return a.bytes < b.bytes; }

  bool is_zero() const { return bytes == std::array<uint8_t, 6>{}; }
  bool is_group() const { return (bytes[0] & 1) != 0; }
};

// "02:00:00:00:00:01"
std::string to_text(const MacAddress& address);

// Six two-digit hexadecimal bytes separated by colons; nothing else.
std::optional<MacAddress> parse_mac_address(std::string_view text);

}  // namespace erps::lab
