// What is wrong with a state of a network, and which of it is the protocol's own.
//
// A surprise is known by what it looks like in the nodes' records; whatever does not look exactly
// so is a violation.
//
// Threading: one thread. Errors: none.
#pragma once

#include <string>

#include "sim/explore/model.h"

namespace erps::sim::explore {

struct Verdict {
  std::string what;      // empty: nothing is wrong
  std::string surprise;  // name of the surprise that it is, or empty: a violation
};

class Judge {
 public:
  explicit Judge(Model& model) : model_(model) {}

  // A forwarding loop is wrong at any time.
  Verdict at_once(const NetworkState& state);
  // Wrong in a network that is left alone and in this state again and again, or for ever: it is
  // split although working links join it, or not at rest although everything works. Not while a
  // switch that was commanded has not been cleared.
  bool is_wrong_for_long(const NetworkState& state);
  Verdict for_long(const NetworkState& state);

 private:
  bool is_revertive(const NetworkState& state) const;
  bool heard_no_nr(const NetworkState& state) const;

  Model& model_;
};

}  // namespace erps::sim::explore
