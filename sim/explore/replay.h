// Walks a way through the states of a network once more, step by step, with the real module.
//
// Threading: one thread. Errors: SimError for a step that cannot happen where the way has led.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "sim/explore/explorer.h"

namespace erps::sim::explore {

// A budget that allows every step that a scenario can have.
Budget replay_budget();

// The step from this state, or nothing when it cannot happen in it.
std::optional<Model::Next> take(Model& model, const NetworkState& state, const Step& step);

struct ReplayStep {
  size_t number = 0;  // from 1
  std::string text;
  std::string state;  // of the nodes behind it
  bool split = false;
  bool loop = false;
};

// `told` of every step; the trouble at the end of the way, or an empty text. A way with a
// repetition is walked round once.
std::string replay(Model& model, const Trouble& way,
                   const std::function<void(const ReplayStep&)>& told);

}  // namespace erps::sim::explore
