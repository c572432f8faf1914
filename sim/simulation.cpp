#include "sim/simulation.h"

#include <algorithm>

#include "sim/crash_cleanup.h"

namespace erps::sim {

Simulation::Simulation(const Topology& topology, const Options& options)
    : topology_(topology), world_(options), network_(world_, topology_) {
  set_crash_seed(options.seed);
  std::vector<uint32_t> ports(topology_.nodes.size());
  for (const LinkPlan& link : topology_.links) {
    for (const LinkEnd& end : link.ends) {
      ports.at(end.node) = std::max(ports.at(end.node), end.port);
    }
  }
  std::vector<Station*> stations;
  for (NodeIndex i = 0; i < topology_.nodes.size(); ++i) {
    nodes_.push_back(std::make_unique<Node>(world_, network_, i, topology_.nodes[i], ports[i]));
    stations.push_back(nodes_.back().get());
  }
  network_.connect(std::move(stations));
  for (auto& node : nodes_) {
    node->power_on();
  }
}

Simulation::~Simulation() = default;

void Simulation::finish_instant() {
  world_.raise_violation();
  if (world_.take_forwarding_touched()) {
    const Forwarding& forwarding = network_.forwarding();
    for (Observer* observer : world_.observers) {
      observer->on_forwarding(now_us(), forwarding);
    }
  }
}

void Simulation::run_until(int64_t time_us) {
  Scheduler& scheduler = world_.scheduler;
  world_.set_horizon(time_us);
  for (;;) {
    if (scheduler.empty() || scheduler.next_us() > now_us()) {
      finish_instant();
      if (scheduler.empty() || scheduler.next_us() > time_us) {
        break;
      }
    }
    scheduler.ring_next();
  }
  if (time_us > now_us()) {
    scheduler.skip_to(time_us);
  }
}

void Simulation::at(int64_t time_us, std::function<void()> call) {
  if (idle_callbacks_.empty()) {
    callbacks_.emplace_back().simulation = this;
    idle_callbacks_.push_back(&callbacks_.back());
  }
  Callback& callback = *idle_callbacks_.back();
  idle_callbacks_.pop_back();
  callback.call = std::move(call);
  world_.scheduler.set(time_us, callback, 0);
}

void Simulation::Callback::on_alarm(uint64_t /*token*/) {
  const std::function<void()> called = std::move(call);
  simulation->idle_callbacks_.push_back(this);
  called();
}

void Simulation::cut(LinkIndex link) {
  network_.fail(link, 0);
  network_.fail(link, 1);
}

void Simulation::restore(LinkIndex link) {
  network_.repair(link, 0);
  network_.repair(link, 1);
}

void Simulation::slow_down(NodeIndex node, uint32_t factor) {
  if (factor < 1) {
    throw SimError("a node is slower by a factor of at least 1, not 0");
  }
  nodes_.at(node)->set_pace(factor);
}

void Simulation::set_clock_drift(NodeIndex node, int64_t ppm) {
  if (ppm < -500'000 || ppm > 1'000'000) {
    throw SimError("a clock drifts by -500000 to 1000000 parts in a million, not by " +
                   std::to_string(ppm));
  }
  nodes_.at(node)->set_clock_drift(ppm);
}

void Simulation::fail_call(NodeIndex node, std::string_view name, uint64_t nth, uint64_t times) {
  const auto call = platform_call(name);
  if (!call) {
    throw SimError("no call of the module that can fail is named \"" + std::string(name) + "\"");
  }
  if (nth == 0 || times == 0) {
    throw SimError("calls are counted from 1, and at least one of them fails");
  }
  nodes_.at(node)->failures.fail(*call, nth, times);
}

void Simulation::fail_calls(uint32_t per_million) {
  world_.failing_per_million = per_million;
  for (auto& node : nodes_) {
    if (per_million == 0) {
      node->failures.forget();
    }
  }
}

Reply Simulation::execute(NodeIndex node, const Request& request) {
  const auto reply = ask(node, request);
  while (!reply->done) {
    run_for(kMillisecondUs);
  }
  return *reply;
}

std::optional<RingStatus> Simulation::ring_status(NodeIndex node, uint32_t ring) {
  const Reply reply = execute(node, make_request(mgmt::kGetRing, {ring}));
  return reply.accepted() ? std::optional(parse_ring(reply.data)) : std::nullopt;
}

void Simulation::inject(const LinkEnd& port, std::span<const uint8_t> bytes) {
  Frame frame;
  frame.bytes.assign(bytes.begin(), bytes.end());
  if (powered(port.node)) {
    nodes_[port.node]->on_frame(port.port, std::move(frame));
  }
}

uint32_t Simulation::send_probe(NodeIndex from, std::optional<NodeIndex> to) {
  constexpr MacAddress kEverybody{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  const uint32_t probe = next_probe_++;
  nodes_.at(from)->send_probe(probe, to ? topology_.nodes.at(*to).address : kEverybody);
  return probe;
}

}  // namespace erps::sim
