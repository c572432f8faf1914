#include "sim/explore/local_states.h"

#include <algorithm>

namespace erps::sim::explore {

namespace {

constexpr uint32_t kIdle = 1;
constexpr uint32_t kAtRpl = 1U | 2U;  // owner and neighbour

// The ports of rings at a node that are to forward when its network is at rest.
uint32_t ports_open_at_home(const NodePlan& plan) {
  uint32_t open = 0;
  for (const RingConfig& ring : plan.rings) {
    open |= 1U << ring.port0;
    open |= (ring.node_role & kAtRpl) != 0 ? 0 : 1U << ring.port1;
  }
  for (const SubRingConfig& ring : plan.sub_rings) {
    open |= (ring.node_role & kAtRpl) != 0 ? 0 : 1U << ring.port;
  }
  return open;
}

}  // namespace

LocalStates::LocalStates(const std::vector<NodePlan>& plans)
    : plans_(plans), extents_(1), states_(1) {}

LocalState LocalStates::describe(const Machine& machine) const {
  LocalState state;
  state.open_ports = machine.open_ports();
  state.own_events = machine.own_events();
  state.rings = machine.records().rings();
  const NodePlan& plan = plans_.at(machine.node());
  state.home = machine.forwarding_ports() == ports_open_at_home(plan) &&
               state.rings.size() == plan.rings.size() + plan.sub_rings.size() &&
               std::all_of(state.rings.begin(), state.rings.end(), [](const RingSnapshot& ring) {
                 return ring.enabled && ring.state == kIdle;
               });
  return state;
}

bool LocalStates::is_same(const Extent& kept) const {
  return std::equal(found_.begin(), found_.end(),
                    differences_.begin() + static_cast<std::ptrdiff_t>(kept.begin),
                    differences_.begin() + static_cast<std::ptrdiff_t>(kept.end),
                    [](const Difference& one, const Difference& other) {
                      return one.place == other.place && one.word == other.word;
                    });
}

LocalId LocalStates::keep(const Machine& machine) {
  machine.save(scratch_);
  if (reference_.empty()) {
    reference_ = scratch_;
  }
  found_.clear();
  uint64_t hash = 0;
  for (uint32_t place = 0; place < scratch_.size(); ++place) {
    if (scratch_[place] != reference_[place]) {
      found_.push_back({place, scratch_[place]});
      hash = (hash ^ place ^ scratch_[place]) * 0x9E3779B97F4A7C15U;
      hash ^= hash >> 29U;
    }
  }
  const auto [begin, end] = by_hash_.equal_range(hash);
  for (auto candidate = begin; candidate != end; ++candidate) {
    if (is_same(extents_[candidate->second])) {
      return candidate->second;
    }
  }
  const auto id = static_cast<LocalId>(states_.size());
  extents_.push_back({differences_.size(), differences_.size() + found_.size()});
  differences_.insert(differences_.end(), found_.begin(), found_.end());
  states_.push_back(describe(machine));
  by_hash_.emplace(hash, id);
  return id;
}

void LocalStates::put_back(LocalId id, Machine& machine) {
  scratch_ = reference_;
  for (size_t i = extents_[id].begin; i < extents_[id].end; ++i) {
    scratch_[differences_[i].place] = differences_[i].word;
  }
  machine.load(scratch_);
}

size_t LocalStates::bytes() const {
  return differences_.capacity() * sizeof(Difference) +
         states_.size() * (sizeof(LocalState) + sizeof(RingSnapshot) + sizeof(Extent) + 64);
}

}  // namespace erps::sim::explore
