#include "client/error.h"

#include <string.h>

#include "client/return_codes.h"

namespace erps::client {

namespace {

std::string refusal_text(const std::string& what, uint32_t code) {
  const char* sentence = return_code_sentence(code);
  return what + ": " + (sentence != nullptr ? sentence : "the module gave an unknown reason") +
         " (code " + std::to_string(code) + ")";
}

}  // namespace

Refused::Refused(const std::string& what, uint32_t code)
    : std::runtime_error(refusal_text(what, code)), code_(code) {}

void throw_system_error(const std::string& what, int error_number) {
  throw ClientError(ErrorKind::kSystem, what + ": " + strerror(error_number));
}

}  // namespace erps::client
