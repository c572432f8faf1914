// Why the laboratory could not do its work: a missing privilege or program, a call that failed. An
// expectation that does not hold is no such error.
#pragma once

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace erps::lab {

// The text says what failed and, where there is something to do about it, what.
class LabError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// "what: meaning of errno"
inline LabError system_error(const std::string& what, int error_number = errno) {
  return LabError(what + ": " + std::strerror(error_number));
}

}  // namespace erps::lab
