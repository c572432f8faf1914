#include "sim/explore/replay.h"

#include <algorithm>

#include "sim/sim_error.h"

namespace erps::sim::explore {

namespace {

// What came between two states is not compared: faults that were counted, and time.
bool is_same_network(NetworkState one, NetworkState other) {
  one.halves = other.halves = 0;
  return one == other;
}

// What is wrong with the end of the way: a loop, or what lasts, when the way ends where it began to
// repeat itself or where the network has nothing to do any more.
std::string judge_end(Model& model, const Trouble& way, const NetworkState& state,
                      const std::optional<NetworkState>& repeated) {
  Judge judge(model);
  const Verdict now = judge.at_once(state);
  if (!now.what.empty()) {
    return now.what;
  }
  if (way.repeats_from && (!repeated || !is_same_network(*repeated, state))) {
    throw SimError("the repetition does not end in the state that it begins in");
  }
  return way.repeats_from || model.is_quiet(state) ? judge.for_long(state).what : std::string();
}

}  // namespace

Budget replay_budget() {
  Budget budget;
  budget.cuts = budget.strand_failures = budget.crashes = budget.commands = kMostFaults;
  return budget;
}

std::optional<Model::Next> take(Model& model, const NetworkState& state, const Step& step) {
  std::vector<Model::Next> next;
  model.steps_from(state, next);
  model.faults_from(state, next);
  const auto found = std::find_if(next.begin(), next.end(), [&](const Model::Next& candidate) {
    return candidate.step == step;
  });
  return found != next.end() ? std::optional(*found) : std::nullopt;
}

std::string replay(Model& model, const Trouble& way,
                   const std::function<void(const ReplayStep&)>& told) {
  NetworkState state = model.initial_states().at(way.start.second_half);
  std::optional<NetworkState> repeated;
  for (size_t i = 0; i < way.steps.size(); ++i) {
    if (way.repeats_from == i) {
      repeated = state;
    }
    const auto next = take(model, state, way.steps[i]);
    if (!next) {
      throw SimError("step " + std::to_string(i + 1) +
                     " of the scenario cannot happen where the steps before it lead: " +
                     model.state_text(state));
    }
    told({i + 1, model.step_text(state, way.steps[i]), model.state_text(next->state),
          model.has_partition(next->state), model.has_loop(next->state)});
    if (next->violation != nullptr) {
      return *next->violation;
    }
    state = next->state;
  }
  return judge_end(model, way, state, repeated);
}

}  // namespace erps::sim::explore
