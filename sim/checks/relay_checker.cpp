#include "sim/checks/relay_checker.h"

#include <algorithm>
#include <optional>

#include "sim/checks/reception.h"
#include "sim/checks/ring_questions.h"
#include "sim/checks/surprises.h"

namespace erps::sim {

namespace {

constexpr uint32_t kOpenChannelRole = 1;

bool carries(const PortSnapshot& port) {
  return port.link_up && port.forwarding;
}

// Nothing where no node has the ring, or only an end of it.
std::optional<uint32_t> control_vlan_of(const Topology& topology, uint32_t ring) {
  for (const NodePlan& node : topology.nodes) {
    for (const RingConfig& config : node.rings) {
      if ((config.ring & 0xFFU) == ring) {
        return config.control_vlan;
      }
    }
  }
  return std::nullopt;
}

bool has_ring_of_octet(const NodePlan& node, uint32_t ring) {
  const auto is_it = [=](const auto& config) { return (config.ring & 0xFFU) == ring; };
  return std::any_of(node.rings.begin(), node.rings.end(), is_it) ||
         std::any_of(node.sub_rings.begin(), node.sub_rings.end(), is_it);
}

}  // namespace

void RelayChecker::on_record(const Record& record) {
  if (record.kind == RecordKind::kEvent) {
    sent_[record.node].clear();
  } else if (record.kind == RecordKind::kFrameSent) {
    sent_[record.node].push_back({record.port, {record.a, record.b}});
  }
}

// A ring's own messages follow its traffic as the message has left it, or its links where its
// channel is open; those of others follow its traffic.
bool RelayChecker::has_to_pass(const Step& step, size_t in) const {
  const PortSnapshot& from = step.after->ports[in];
  const PortSnapshot& to = step.after->ports[1 - in];
  if (step.message.ring() != (step.ring() & 0xFFU)) {
    return from.forwarding && carries(to) && carries_strangers(step);
  }
  if (!takes_message(step) || step.before->guard_running) {
    return false;
  }
  return step.after->ring_role == kOpenChannelRole ? to.link_up : from.forwarding && carries(to);
}

bool RelayChecker::carries_strangers(const Step& step) const {
  const auto own = control_vlan_of(topology_, step.ring() & 0xFFU);
  return own && own == control_vlan_of(topology_, step.message.ring()) &&
         !has_ring_of_octet(topology_.nodes[step.node], step.message.ring());
}

void RelayChecker::on_step(const Step& step) {
  if (step.cause != Step::Cause::kFrame || step.before == nullptr || step.after == nullptr ||
      !step.before->enabled || !step.after->enabled || step.before->ring_role == kSubRingRole ||
      !has_port(*step.before, step.port) ||
      control_vlan_of(topology_, step.ring() & 0xFFU).value_or(0) == 0) {
    return;
  }
  const size_t in = step.before->ports[0].port == step.port ? 0 : 1;
  const uint32_t out_port = step.before->ports[1 - in].port;
  if (!has_to_pass(step, in)) {
    return;
  }
  const auto& sent = sent_[step.node];
  const bool is_passed = std::any_of(sent.begin(), sent.end(), [&](const Sent& frame) {
    return frame.port == out_port && frame.message.node == step.message.node &&
           frame.message.content() == step.message.content();
  });
  if (!is_passed) {
    const bool is_refused = mishaps_ != nullptr && mishaps_->call_failed(step.node, step.from_us);
    findings_.add({"relay", step.from_us, step.to_us, step.node,
                   "a message of ring " + std::to_string(step.message.ring()) +
                       " in through port " + std::to_string(step.port) +
                       " did not leave through port " + std::to_string(out_port),
                   is_refused ? surprise::kCallFailed : ""});
  }
}

void RelayChecker::collect(int64_t /*now_us*/, std::vector<Finding>& findings) {
  findings_.append_to(findings);
}

}  // namespace erps::sim
