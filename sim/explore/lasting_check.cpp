#include "sim/explore/lasting_check.h"

#include <algorithm>
#include <deque>
#include <unordered_map>

namespace erps::sim::explore {

namespace {
constexpr uint32_t kDone = ~uint32_t{0};
constexpr size_t kLookEvery = 4096;
}  // namespace

LastingCheck::LastingCheck(Explorer& explorer) : explorer_(explorer), model_(explorer.model_) {}

void LastingCheck::run() {
  const size_t states = explorer_.store_.size();
  const size_t bytes = states * (sizeof(uint32_t) + sizeof(uint16_t));
  if (!explorer_.within_limits(bytes)) {
    explorer_.report_.ending = Ending::kNotJudged;
    return;
  }
  numbers_.assign(states, 0);
  unrest_.assign(states, 0);
  for (size_t state = 0; state < states; ++state) {
    if (numbers_[state] == 0 && !look_from(static_cast<StateIndex>(state))) {
      return;
    }
  }
  explorer_.report_.ending = Ending::kExhausted;
  if (longest_unrest_ > 0 && explorer_.report_.surprises.empty()) {
    explorer_.report_.halves_to_rest = longest_unrest_ - 1;
  }
}

bool LastingCheck::look_from(StateIndex root) {
  enter(root);
  while (!visits_.empty()) {
    Visit& visit = visits_.back();
    if (visit.next_edge == edges_.size()) {
      if (!leave()) {
        return false;
      }
      continue;
    }
    const StateIndex to = edges_[visit.next_edge++].to;
    if (numbers_[to] == 0) {
      enter(to);
    } else if (numbers_[to] != kDone) {
      visit.lowest = std::min(visit.lowest, numbers_[to]);
    }
    if (next_number_ % kLookEvery == 0) {
      const size_t bytes = numbers_.size() * (sizeof(uint32_t) + sizeof(uint16_t)) +
                           visits_.capacity() * sizeof(Visit) + edges_.capacity() * sizeof(Edge) +
                           open_.capacity() * sizeof(StateIndex);
      if (!explorer_.within_limits(bytes)) {
        explorer_.report_.ending =
            explorer_.report_.ending == Ending::kStopped ? Ending::kStopped : Ending::kNotJudged;
        return false;
      }
    }
  }
  return true;
}

void LastingCheck::enter(StateIndex state) {
  numbers_[state] = next_number_;
  visits_.push_back({state, next_number_, edges_.size(), edges_.size()});
  ++next_number_;
  open_.push_back(state);
  next_.clear();
  model_.steps_from(explorer_.state_at(state), next_);
  for (const Model::Next& next : next_) {
    edges_.push_back({explorer_.index_of(next.state), next.second_half_done});
  }
}

// The last visit is over: all steps from its state have been followed.
bool LastingCheck::leave() {
  const Visit visit = visits_.back();
  const StateIndex state = visit.state;
  bool steps_to_itself = false;
  uint16_t unrest = explorer_.judge_.is_wrong_for_long(explorer_.state_at(state)) ? 1 : 0;
  for (size_t edge = visit.first_edge; edge < edges_.size(); ++edge) {
    const StateIndex to = edges_[edge].to;
    steps_to_itself = steps_to_itself || to == state;
    if (numbers_[to] == kDone && unrest_[to] != 0) {
      unrest =
          std::max(unrest, static_cast<uint16_t>(unrest_[to] + (edges_[edge].half_done ? 1 : 0)));
    }
  }
  unrest_[state] = unrest;
  edges_.resize(visit.first_edge);
  visits_.pop_back();
  if (!visits_.empty()) {
    visits_.back().lowest = std::min(visits_.back().lowest, visit.lowest);
  }
  if (visit.lowest != numbers_[state]) {
    return true;
  }
  std::vector<StateIndex> members;
  while (true) {
    members.push_back(open_.back());
    open_.pop_back();
    numbers_[members.back()] = kDone;
    unrest = std::max(unrest, unrest_[members.back()]);
    if (members.back() == state) {
      break;
    }
  }
  for (const StateIndex member : members) {
    unrest_[member] = unrest;
  }
  longest_unrest_ = std::max(longest_unrest_, unrest);
  return judge_component(members, members.size() > 1 || steps_to_itself);
}

bool LastingCheck::judge_component(const std::vector<StateIndex>& members, bool lasts) {
  if (!lasts) {
    return true;
  }
  for (const StateIndex member : members) {
    const NetworkState state = explorer_.state_at(member);
    if (!explorer_.judge_.is_wrong_for_long(state)) {
      continue;
    }
    const Verdict verdict = explorer_.judge_.for_long(state);
    if (explorer_.note(verdict, [&] { return way_round(member, members, verdict.what); })) {
      return false;
    }
  }
  return true;
}

// The shortest way to the state, and the shortest one from it back to itself.
Trouble LastingCheck::way_round(StateIndex state, const std::vector<StateIndex>& members,
                                const std::string& what) {
  Trouble trouble = explorer_.way_to(state, what);
  trouble.repeats_from = trouble.steps.size();
  struct Reached {
    StateIndex from;
    Step step;
  };
  std::unordered_map<StateIndex, Reached> reached;
  std::unordered_map<StateIndex, bool> inside;
  for (const StateIndex member : members) {
    inside[member] = true;
  }
  std::deque<StateIndex> waiting{state};
  while (reached.find(state) == reached.end()) {
    const StateIndex from = waiting.front();
    waiting.pop_front();
    std::vector<Model::Next> next;
    model_.steps_from(explorer_.state_at(from), next);
    for (const Model::Next& candidate : next) {
      const StateIndex to = explorer_.index_of(candidate.state);
      if (inside.count(to) != 0 && reached.try_emplace(to, Reached{from, candidate.step}).second) {
        waiting.push_back(to);
      }
    }
  }
  std::vector<Step> round;
  StateIndex at = state;
  do {
    round.push_back(reached.at(at).step);
    at = reached.at(at).from;
  } while (at != state);
  trouble.steps.insert(trouble.steps.end(), round.rbegin(), round.rend());
  return trouble;
}

}  // namespace erps::sim::explore
