#include "sim/checks/address_checker.h"

#include <algorithm>
#include <set>

#include "erps/mgmt/message.h"
#include "sim/checks/flush_model.h"
#include "sim/checks/graph.h"
#include "sim/checks/reception.h"
#include "sim/checks/ring_questions.h"
#include "sim/checks/surprises.h"

namespace erps::sim {

namespace {

bool is_nr(const RapsMessage& message) {
  return message.request() == kNrCode && !message.rb();
}

bool opens_a_port(const Step& step) {
  for (size_t place = 0; place < step.after->ports.size(); ++place) {
    if (!step.before->ports[place].forwarding && step.after->ports[place].forwarding) {
      return true;
    }
  }
  return false;
}

// Whether the message of the step is news that asks for no flush, because both ports knew the same.
bool flushes_neither_port(const Step& step) {
  const RingSnapshot& ring = *step.before;
  return !is_nr(step.message) && known_sender(ring.ports[0]) == known_sender(ring.ports[1]) &&
         takes_message(step) && step.after != nullptr && ports_to_flush(step) == PortSet{};
}

}  // namespace

AddressChecker::AddressChecker(Simulation& simulation, const Mishaps& mishaps, int64_t settled_us)
    : simulation_(simulation),
      mishaps_(mishaps),
      settled_us_(settled_us),
      flushed_us_(simulation.topology().nodes.size()),
      left_rings_(simulation.topology().nodes.size()),
      cleared_us_(simulation.topology().nodes.size()) {
  for (NodeIndex node = 0; node < simulation.topology().nodes.size(); ++node) {
    stations_.emplace(simulation.topology().nodes[node].address, node);
  }
  for (const LinkPlan& link : simulation.topology().links) {
    transit_us_ += link.delay_us.high;
  }
}

void AddressChecker::on_record(const Record& record) {
  switch (record.kind) {
    case RecordKind::kFlush:
      flushed_us_[record.node][record.port] = record.time_us;
      break;
    case RecordKind::kBoot:
      left_rings_[record.node].clear();
      break;
    case RecordKind::kCrash:
    case RecordKind::kKilled:
    case RecordKind::kStopped:
      left_rings_[record.node] = simulation_.records(record.node).rings();
      break;
    default:
      break;
  }
}

void AddressChecker::on_step(const Step& step) {
  if (step.before == nullptr) {
    return;
  }
  if (step.cause == Step::Cause::kFrame) {
    on_message(step);
  } else if (step.cause == Step::Cause::kCommand) {
    on_clear(step);
  }
  if (step.after != nullptr && opens_a_port(step)) {
    on_opening(step);
  }
}

// What does not go out with the opening, and is ended before it is repeated, flushes nothing.
void AddressChecker::on_opening(const Step& step) {
  const auto& mishaps = mishaps_.all();
  const bool is_held_back =
      std::any_of(mishaps.rbegin(), mishaps.rend(), [&](const Mishap& mishap) {
        return mishap.node == step.node && mishap.time_us == step.from_us &&
               mishap.surprise == surprise::kHeldBack;
      });
  if (is_held_back) {
    openings_[step.ring()].push_back({step.from_us, step.to_us, surprise::kHeldBack});
  } else if (step.cause == Step::Cause::kFrame && is_nr(step.message)) {
    openings_[step.ring()].push_back({step.from_us, step.to_us, surprise::kNrFlushesNothing});
  }
}

// The same node ID and blocked port reference as the last time, or the word not to flush.
void AddressChecker::on_message(const Step& step) {
  const RingSnapshot& ring = *step.before;
  if ((ring.ring & 0xFFU) != step.message.ring()) {
    return;
  }
  for (const PortSnapshot& port : ring.ports) {
    const bool came_in = port.present && port.port == step.port;
    const bool same = came_in && known_sender(port).node == step.message.node &&
                      known_sender(port).bpr == reference_of(step.message);
    if (same || step.message.dnf()) {
      known_us_[{step.node, ring.ring}] = step.from_us;
    } else if (came_in && flushes_neither_port(step)) {
      alike_us_[{step.node, ring.ring}] = step.from_us;
    }
  }
}

// In pending, that of the owner, which blocks the RPL.
void AddressChecker::on_clear(const Step& step) {
  if (step.command != mgmt::kClear || step.after == nullptr || !is_owner(*step.before) ||
      !is(*step.before, RingState::kPending) || !is(*step.after, RingState::kIdle)) {
    return;
  }
  for (size_t place = 0; place < step.after->ports.size(); ++place) {
    const PortSnapshot& port = step.after->ports[place];
    if (port.present && step.before->ports[place].forwarding && !port.forwarding) {
      cleared_us_[step.node][port.port] = step.to_us;
    }
  }
}

// What is learnt once the network forwards as it does now is nobody's flush to forget. Before: a
// node flushes the port where a message came in, and only when it is news and the ports differ; of
// two failed ports it reports and flushes the first; an owner that a clear takes from pending to
// idle flushes none; and nobody does for an opening by R-APS(NR) or one that is not told. Only what
// happened at the ring of the port counts.
const char* AddressChecker::surprise_of(NodeIndex node, uint32_t port, int64_t seen_us) const {
  if (seen_us > since_us_ + transit_us_) {
    return "";
  }
  std::vector<RingSnapshot> rings = simulation_.records(node).rings();
  if (rings.empty()) {
    rings = left_rings_[node];
  }
  for (const RingSnapshot& ring : rings) {
    const auto stale =
        std::find_if(ring.ports.begin(), ring.ports.end(),
                     [=](const PortSnapshot& at) { return at.present && at.port == port; });
    if (stale == ring.ports.end()) {
      continue;
    }
    for (const PortSnapshot& other : ring.ports) {
      const auto flushed = flushed_us_[node].find(other.port);
      if (other.present && other.port != port && flushed != flushed_us_[node].end() &&
          flushed->second >= seen_us) {
        return surprise::kOnePortFlushed;
      }
    }
    const auto known = known_us_.find({node, ring.ring});
    if (known != known_us_.end() && known->second >= seen_us) {
      return surprise::kKnownSender;
    }
    if (!stale->link_up && stale->forwarding) {
      return surprise::kSecondFailure;
    }
    const auto alike = alike_us_.find({node, ring.ring});
    if (alike != alike_us_.end() && alike->second >= seen_us) {
      return surprise::kAlikeAtBothPorts;
    }
    const auto openings = openings_.find(ring.ring);
    if (openings != openings_.end()) {
      for (const Opening& opening : openings->second) {
        if (opening.from_us <= since_us_ && since_us_ <= opening.to_us) {
          return opening.surprise;
        }
      }
    }
  }
  const auto cleared = cleared_us_[node].find(port);
  const bool kept = cleared != cleared_us_[node].end() && cleared->second >= seen_us;
  return kept ? surprise::kClearFlushesNothing : "";
}

void AddressChecker::on_forwarding(int64_t time_us, const Forwarding& forwarding) {
  if (forwarding == before_) {
    return;  // a link that was whole is restored, say
  }
  if (!before_.arcs.empty() && time_us - since_us_ >= settled_us_) {
    look(time_us, findings_);
  }
  before_ = forwarding;
  since_us_ = time_us;
  for (auto& [ring, openings] : openings_) {
    std::erase_if(openings, [=](const Opening& opening) { return opening.to_us < time_us; });
  }
}

std::vector<bool> AddressChecker::beyond(NodeIndex node, size_t arc) const {
  std::vector<bool> reached(before_.powered.size());
  std::vector<NodeIndex> waiting;
  const auto reach = [&](NodeIndex next) {
    if (next != node && !reached[next]) {
      reached[next] = true;
      waiting.push_back(next);
    }
  };
  reach(before_.arcs[arc].to);
  while (!waiting.empty()) {
    const NodeIndex at = waiting.back();
    waiting.pop_back();
    for (const Arc& next : before_.arcs) {
      if (next.from == at && next.forwards) {
        reach(next.to);
      }
    }
  }
  return reached;
}

void AddressChecker::look(int64_t now_us, FindingList& into) const {
  if (has_loop(before_)) {
    return;
  }
  const Topology& topology = simulation_.topology();
  const int64_t age_us = simulation_.timing().address_age_us;
  for (NodeIndex node = 0; node < topology.nodes.size(); ++node) {
    if (!simulation_.fabric(node).has_learnt()) {
      continue;
    }
    std::set<std::string> told;
    std::map<uint32_t, std::vector<bool>> reached;  // by port
    for (size_t arc = 0; arc < before_.arcs.size(); ++arc) {
      const Arc& out = before_.arcs[arc];
      if (out.from == node && out.forwards) {
        const LinkPlan& link = topology.links[out.link];
        reached[link.ends[arc % 2].port] = beyond(node, arc);
      }
    }
    simulation_.fabric(node).for_each_learnt(
        [&](const MacAddress& address, uint32_t port, int64_t seen_us) {
          const auto station = stations_.find(address);
          if (port == kHostPort || station == stations_.end() || now_us - seen_us >= age_us) {
            return;
          }
          const NodeIndex target = station->second;
          const auto through = reached.find(port);
          const bool right = through != reached.end() && through->second[target];
          for (const auto& [other, nodes] : reached) {
            if (!right && nodes[target] && told.insert(surprise_of(node, port, seen_us)).second) {
              into.add({"learnt address", since_us_, now_us, node,
                        topology.nodes[target].name + " was learnt at port " +
                            std::to_string(port) + " and is behind port " + std::to_string(other),
                        surprise_of(node, port, seen_us)});
            }
          }
        });
  }
}

void AddressChecker::collect(int64_t now_us, std::vector<Finding>& findings) {
  FindingList late = findings_;
  if (now_us - since_us_ >= settled_us_) {
    look(now_us, late);
  }
  late.append_to(findings);
}

}  // namespace erps::sim
