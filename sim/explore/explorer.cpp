#include "sim/explore/explorer.h"

#include <algorithm>

#include "sim/checks/convergence.h"
#include "sim/explore/lasting_check.h"
#include "sim/simulation.h"

namespace erps::sim::explore {

namespace {

constexpr size_t kLookEvery = 1024;
constexpr size_t kMostWords = kMostNodes + kMostLinks + 2;
using Words = std::array<uint32_t, kMostWords>;

}  // namespace

Explorer::Explorer(Model& model, Limits limits)
    : model_(model),
      judge_(model),
      limits_(std::move(limits)),
      store_(model.packing().words()),
      begin_(std::chrono::steady_clock::now()) {
  const auto& ticks = model.budget().ticks;
  // One second more for a clock that is ahead.
  report_.rest_is_judged =
      !ticks || int64_t{*ticks} * kSecondUs >= home_bound_us(model.topology()) + kSecondUs;
}

void Explorer::count() {
  report_.states = store_.size();
  report_.expanded = expanded_;
  report_.local_states = model_.local_states();
  report_.reactions = model_.reactions();
  report_.bytes = store_.bytes() + model_.bytes();
  report_.seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
}

bool Explorer::within_limits(size_t more_bytes) {
  count();
  if (limits_.progress && report_.seconds >= last_progress_s_ + 1) {
    last_progress_s_ = report_.seconds;
    limits_.progress(report_);
  }
  if (limits_.stop != nullptr && limits_.stop->load()) {
    report_.ending = Ending::kStopped;
  } else if (report_.seconds > limits_.seconds) {
    report_.ending = Ending::kTimeLimit;
  } else if (report_.bytes + more_bytes > limits_.memory_bytes || store_.is_full()) {
    report_.ending = Ending::kMemoryLimit;
  } else {
    return true;
  }
  return false;
}

StateIndex Explorer::index_of(const NetworkState& state) const {
  Words words{};
  model_.packing().pack(state, words.data());
  return store_.find(words.data());
}

Step Explorer::step_between(StateIndex from, StateIndex to) {
  const NetworkState before = state_at(from);
  std::vector<Model::Next> next;
  model_.steps_from(before, next);
  model_.faults_from(before, next);
  const auto found = std::find_if(next.begin(), next.end(), [&](const Model::Next& candidate) {
    return index_of(candidate.state) == to;
  });
  return found->step;
}

Trouble Explorer::way_to(StateIndex index, const std::string& what) {
  Trouble trouble;
  trouble.what = what;
  for (StateIndex from = store_.from(index); from != kNoState; from = store_.from(index)) {
    trouble.steps.push_back(step_between(from, index));
    index = from;
  }
  std::reverse(trouble.steps.begin(), trouble.steps.end());
  trouble.start = state_at(index);
  return trouble;
}

bool Explorer::note(const Verdict& verdict, const std::function<Trouble()>& trouble) {
  if (verdict.what.empty()) {
    return false;
  }
  if (verdict.surprise.empty()) {
    report_.violation = trouble();
    report_.ending = Ending::kTrouble;
    return true;
  }
  const auto [found, is_new] = report_.surprises.try_emplace(verdict.surprise);
  if (is_new) {
    found->second.first = trouble();
  }
  ++found->second.states;
  return false;
}

bool Explorer::judge(StateIndex index, const NetworkState& state) {
  report_.split += model_.has_partition(state) ? 1 : 0;
  if (!model_.has_loop(state)) {
    return true;
  }
  const Verdict verdict = judge_.at_once(state);
  return !note(verdict, [&] { return way_to(index, verdict.what); });
}

// With a budget of ticks nothing lasts: what is wrong when time is up counts as wrong for good.
bool Explorer::judge_end(StateIndex index, const NetworkState& state) {
  if (!report_.rest_is_judged || !model_.is_out_of_time(state) || !model_.is_quiet(state) ||
      !judge_.is_wrong_for_long(state)) {
    return true;
  }
  const Verdict verdict = judge_.for_long(state);
  return !note(verdict, [&] { return way_to(index, verdict.what); });
}

bool Explorer::expand(StateIndex index, const NetworkState& state) {
  next_.clear();
  model_.steps_from(state, next_);
  model_.faults_from(state, next_);
  report_.transitions += next_.size();
  Words words{};
  for (const Model::Next& next : next_) {
    if (next.violation != nullptr) {
      Trouble trouble = way_to(index, *next.violation);
      trouble.steps.push_back(next.step);
      report_.violation = std::move(trouble);
      report_.ending = Ending::kTrouble;
      return false;
    }
    model_.packing().pack(next.state, words.data());
    store_.insert(words.data(), index);
  }
  return true;
}

const Report& Explorer::run() {
  Words words{};
  for (const NetworkState& state : model_.initial_states()) {
    model_.packing().pack(state, words.data());
    store_.insert(words.data(), kNoState);
  }
  size_t level_end = store_.size();
  for (; expanded_ < store_.size(); ++expanded_) {
    if (expanded_ == level_end) {
      level_end = store_.size();
      ++report_.depth;
    }
    const auto index = static_cast<StateIndex>(expanded_);
    const NetworkState state = state_at(index);
    if ((expanded_ % kLookEvery == 0 && !within_limits(store_.bytes_to_grow())) ||
        !judge(index, state) || !judge_end(index, state) || !expand(index, state)) {
      count();
      return report_;
    }
  }
  if (!model_.budget().ticks) {
    LastingCheck(*this).run();
  }
  count();
  return report_;
}

}  // namespace erps::sim::explore
