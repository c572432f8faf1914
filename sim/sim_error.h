#pragma once

#include <stdexcept>

namespace erps::sim {

// The simulation cannot be set up or asked: a mistake of the caller, or of the system.
class SimError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The module under simulation did what no host allows: a lock misused, a buffer lost, a call that
// makes no sense. The text names seed, time and node.
class Violation : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace erps::sim
