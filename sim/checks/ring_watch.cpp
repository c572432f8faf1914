#include "sim/checks/ring_watch.h"

#include <algorithm>
#include <utility>

namespace erps::sim {

namespace {

const RingSnapshot* find_ring(const std::vector<RingSnapshot>& rings, uint32_t ring) {
  const auto found = std::find_if(rings.begin(), rings.end(),
                                  [=](const RingSnapshot& at) { return at.ring == ring; });
  return found != rings.end() ? &*found : nullptr;
}

// By the type of the module's events.
std::optional<Step::Cause> cause_of(uint32_t event_type) {
  switch (event_type) {
    case 1:
      return Step::Cause::kLink;
    case 2:
      return Step::Cause::kFrame;
    case 3:
      return Step::Cause::kTimer;
    case 4:
      return Step::Cause::kCommand;
    case 7:
      return Step::Cause::kTopologyChange;
    case 10:
      return Step::Cause::kIndication;
    default:
      return std::nullopt;
  }
}

}  // namespace

RingWatch::RingWatch(Simulation& simulation)
    : simulation_(simulation), nodes_(simulation.topology().nodes.size()) {}

const RingSnapshot* RingWatch::ring(NodeIndex node, uint32_t ring) const {
  return find_ring(nodes_[node].rings, ring);
}

bool RingWatch::link_is_up(const LinkEnd& end) const {
  const auto& rings = nodes_[end.node].rings;
  return std::any_of(rings.begin(), rings.end(), [&](const RingSnapshot& ring) {
    return std::any_of(ring.ports.begin(), ring.ports.end(), [&](const PortSnapshot& port) {
      return port.present && port.port == end.port && port.link_up;
    });
  });
}

void RingWatch::on_record(const Record& record) {
  if (record.node >= nodes_.size()) {
    return;
  }
  Watched& watched = nodes_[record.node];
  switch (record.kind) {
    case RecordKind::kEvent:
      take_event(watched, record);
      break;
    case RecordKind::kFrameReceived:
      watched.step.port = record.port;
      watched.step.message = {record.a, record.b};
      break;
    case RecordKind::kCommand:
      watched.command = record.a;
      watched.argument = record.b;
      break;
    case RecordKind::kBoot:
    case RecordKind::kCrash:
    case RecordKind::kStopped:
      watched = Watched{};
      break;
    default:
      break;
  }
}

void RingWatch::take_event(Watched& watched, const Record& record) {
  const auto cause = cause_of(record.a);
  watched.in_event = cause.has_value();
  const bool is_current = std::exchange(watched.is_current, false);
  if (!cause) {
    return;
  }
  // The timer task may have been here since the last event.
  if (!is_current || simulation_.handovers(record.node) != watched.handovers) {
    simulation_.records(record.node).read_rings(watched.rings);
  }
  watched.step = Step{};
  watched.step.node = record.node;
  watched.step.from_us = record.time_us;
  watched.step.cause = *cause;
  if (*cause == Step::Cause::kLink) {
    watched.step.port = record.port;
    watched.step.up = record.b == 1;
  } else if (*cause == Step::Cause::kCommand) {
    watched.step.command = watched.command;
    watched.step.argument = watched.argument;
  }
}

void RingWatch::on_event_done(int64_t time_us, NodeIndex node) {
  Watched& watched = nodes_[node];
  if (!watched.in_event) {
    return;
  }
  watched.in_event = false;
  simulation_.records(node).read_rings(watched.next);
  watched.step.to_us = time_us;
  for (const RingSnapshot& before : watched.rings) {
    watched.step.before = &before;
    watched.step.after = find_ring(watched.next, before.ring);
    tell(watched.step);
  }
  for (const RingSnapshot& after : watched.next) {
    if (find_ring(watched.rings, after.ring) == nullptr) {
      watched.step.before = nullptr;
      watched.step.after = &after;
      tell(watched.step);
    }
  }
  watched.rings.swap(watched.next);
  watched.is_current = true;
  watched.handovers = simulation_.handovers(node);
}

void RingWatch::tell(const Step& step) {
  for (StepListener* listener : listeners_) {
    listener->on_step(step);
  }
}

}  // namespace erps::sim
