// The page's own files, put into the program when it is built.
#pragma once

#include <string_view>

namespace erps::lab::assets {

extern const std::string_view kPage;  // with places for what differs
extern const std::string_view kStyle;
extern const std::string_view kScript;
// SHA-256 of the style and of the script, in hexadecimal digits.
extern const std::string_view kStyleHash;
extern const std::string_view kScriptHash;

}  // namespace erps::lab::assets
