#include "lab/report/report_page.h"

#include <array>
#include <stdexcept>
#include <utility>

#include "lab/report/assets.h"
#include "lab/report/report_data.h"

namespace erps::lab {

namespace {

std::string escape(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

uint32_t hex_digit(char c) {
  return static_cast<uint32_t>(c <= '9' ? c - '0' : c - 'a' + 10);
}

// From hexadecimal digits to base64, which is how a content security policy names a hash.
std::string to_base64(std::string_view hex) {
  constexpr std::string_view kDigits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (size_t i = 0; i < hex.size(); i += 6) {  // three bytes
    uint32_t bits = 0;
    for (size_t digit = i; digit < i + 6; ++digit) {
      bits = bits << 4U | (digit < hex.size() ? hex_digit(hex[digit]) : 0U);
    }
    const size_t bytes = std::min<size_t>(3, (hex.size() - i) / 2);
    for (size_t digit = 0; digit < 4; ++digit) {
      text += digit <= bytes ? kDigits[bits >> (18 - 6 * digit) & 0x3FU] : '=';
    }
  }
  return text;
}

}  // namespace

std::string report_page(const ReportInput& input) {
  // In the order in which the page has them; what is filled in is not looked at again.
  const std::array<std::pair<std::string_view, std::string>, 6> fillings{{
      {"{{script-hash}}", "sha256-" + to_base64(assets::kScriptHash)},
      {"{{style-hash}}", "sha256-" + to_base64(assets::kStyleHash)},
      {"{{title}}", escape(input.topology.name)},
      {"{{style}}", std::string(assets::kStyle)},
      {"{{data}}", report_data(input)},
      {"{{script}}", std::string(assets::kScript)},
  }};
  std::string page;
  std::string_view rest = assets::kPage;
  for (const auto& [place, filling] : fillings) {
    const size_t at = rest.find(place);
    if (at == std::string_view::npos) {
      throw std::logic_error("the page of the report has no place " + std::string(place));
    }
    page += rest.substr(0, at);
    page += filling;
    rest.remove_prefix(at + place.size());
  }
  page += rest;
  return page;
}

}  // namespace erps::lab
