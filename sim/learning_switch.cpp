#include "sim/learning_switch.h"

namespace erps::sim {

LearningSwitch::LearningSwitch(World& world, NodeIndex node, uint32_t ports)
    : world_(world), node_(node), ports_(ports + 1) {}

void LearningSwitch::power_on() {
  ports_.assign(ports_.size(), {});
  openings_ = false;
  learnt_.clear();
}

bool LearningSwitch::ask(uint32_t port, uint32_t state, bool in_event) {
  if (!has(port) || (state != kForwarding && state != kDiscarding)) {
    return false;
  }
  if (ports_[port].asked != state) {
    ports_[port].asked = state;
    world_.record(node_, RecordKind::kPortAsked, port, state);
  }
  if (state == kForwarding && in_event) {
    openings_ = true;
  } else {
    apply(port);
  }
  return true;
}

void LearningSwitch::apply(uint32_t port) {
  Port& at = ports_[port];
  if (at.applied != at.asked) {
    at.applied = at.asked;
    world_.record(node_, RecordKind::kPortApplied, port, at.applied);
    world_.touch_forwarding();
  }
}

void LearningSwitch::finish_event() {
  if (!openings_) {
    return;
  }
  openings_ = false;
  for (uint32_t port = 1; port < ports_.size(); ++port) {
    apply(port);
  }
}

void LearningSwitch::abandon_openings() {
  openings_ = false;
  for (Port& port : ports_) {
    port.asked = port.applied;
  }
}

bool LearningSwitch::flush(uint32_t port) {
  if (!has(port)) {
    return false;
  }
  const auto forgotten =
      std::erase_if(learnt_, [=](const auto& entry) { return entry.second.port == port; });
  world_.record(node_, RecordKind::kFlush, port, static_cast<uint32_t>(forgotten));
  return true;
}

std::vector<uint32_t> LearningSwitch::switch_frame(uint32_t in_port, const Frame& frame) {
  if (!forwards(in_port)) {
    return {};
  }
  learnt_[frame.address_at(raps::kSourceOffset)] = {in_port, world_.now_us()};
  const MacAddress destination = frame.address_at(raps::kDestinationOffset);
  const auto known = learnt_.find(destination);
  const bool fresh = known != learnt_.end() &&
                     world_.now_us() - known->second.seen_us < world_.timing.address_age_us;
  if (fresh) {
    const uint32_t out = known->second.port;
    return out != in_port && forwards(out) ? std::vector<uint32_t>{out} : std::vector<uint32_t>{};
  }
  std::vector<uint32_t> out;
  for (uint32_t port = 0; port < ports_.size(); ++port) {
    if (port != in_port && forwards(port)) {
      out.push_back(port);
    }
  }
  return out;
}

}  // namespace erps::sim
