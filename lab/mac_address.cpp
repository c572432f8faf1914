#include "lab/mac_address.h"

namespace erps::lab {

namespace {

int digit_of(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  if (c >= 'A' && c <= 'F') {
    return c - 'A' + 10;
  }
  return -1;
}

}  // namespace

std::string to_text(const MacAddress& address) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const uint8_t byte : address.bytes) {
    if (!text.empty()) {
      text += ':';
    }
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

std::optional<MacAddress> parse_mac_address(std::string_view text) {
  MacAddress address;
  if (text.size() != 17) {
    return std::nullopt;
  }
  for (size_t i = 0; i < address.bytes.size(); ++i) {
    const int high = digit_of(text[3 * i]);
    const int low = digit_of(text[3 * i + 1]);
    if (high < 0 || low < 0 || (i > 0 && text[3 * i - 1] != ':')) {
      return std::nullopt;
    }
    address.bytes[i] = static_cast<uint8_t>(high * 16 + low);
  }
  return address;
}

}  // namespace erps::lab
