#include "sim/network.h"

#include <algorithm>

#include "sim/sim_error.h"

namespace erps::sim {

namespace {
constexpr size_t other(size_t end) {
  return 1 - end;
}
}  // namespace

Network::Network(World& world, const Topology& topology)
    : world_(world),
      plans_(topology.links),
      strands_(2 * plans_.size()),
      ports_(2 * plans_.size()),
      ports_of_node_(topology.nodes.size()) {
  for (LinkIndex link = 0; link < plans_.size(); ++link) {
    for (size_t end = 0; end < 2; ++end) {
      const LinkEnd& at = end_of(link, end);
      Port& port = port_at(link, end);
      port.network = this;
      port.link = link;
      port.end = end;
      auto& ports = ports_of_node_.at(at.node);
      ports.resize(std::max<size_t>(ports.size(), at.port + 1));
      if (at.port == 0 || ports[at.port] != nullptr) {
        throw SimError("port " + std::to_string(at.port) + " of " + topology.nodes[at.node].name +
                       " is 0 or has two links");
      }
      ports[at.port] = &port;
      forwarding_.arcs.push_back({link, at.node, end_of(link, other(end)).node});
    }
  }
  forwarding_.powered.resize(topology.nodes.size());
}

Network::Port* Network::find_port(NodeIndex node, uint32_t port) {
  const auto& ports = ports_of_node_[node];
  return port < ports.size() ? ports[port] : nullptr;
}

const Network::Port* Network::find_port(NodeIndex node, uint32_t port) const {
  const auto& ports = ports_of_node_[node];
  return port < ports.size() ? ports[port] : nullptr;
}

bool Network::carrier(NodeIndex node, uint32_t port) const {
  const Port* found = find_port(node, port);
  return found != nullptr && found->carrier;
}

void Network::fail(LinkIndex link, size_t end, bool silent) {
  Strand& failing = strand(link, end);
  failing.works = false;
  failing.silent = silent;
  ++failing.failures;
  check_signal(link, other(end));
  world_.touch_forwarding();
}

void Network::repair(LinkIndex link, size_t end) {
  Strand& repaired = strand(link, end);
  repaired.works = true;
  repaired.silent = false;
  check_signal(link, other(end));
  world_.touch_forwarding();
}

void Network::power_changed(NodeIndex node) {
  for (const Port* port : ports_of_node_[node]) {
    if (port != nullptr) {
      ++strand(port->link, 0).failures;
      ++strand(port->link, 1).failures;
      check_signal(port->link, 0);
      check_signal(port->link, 1);
    }
  }
  world_.touch_forwarding();
}

void Network::check_signal(LinkIndex link, size_t end) {
  const Strand& inward = strand(link, other(end));
  const bool powered = stations_[end_of(link, end).node]->powered();
  const bool signal = (inward.works || inward.silent) &&
                      stations_[end_of(link, other(end)).node]->powered() && powered;
  Port& port = port_at(link, end);
  port.carrier = port.carrier && powered;  // else nobody is there to detect anything
  if (port.signal == signal) {
    return;
  }
  port.signal = signal;
  world_.record(end_of(link, end).node, RecordKind::kSignal, end_of(link, end).port,
                signal ? 1 : 0);
  ++port.generation;
  if (!powered) {
    return;
  }
  const int64_t delay =
      world_.links_chance.in(signal ? world_.timing.carrier_up_us : world_.timing.carrier_down_us);
  world_.scheduler.set_after(delay, port, port.generation);
}

void Network::Port::on_alarm(uint64_t token) {
  if (token != generation || carrier == signal) {
    return;
  }
  carrier = signal;
  const LinkEnd& at = network->end_of(link, end);
  network->world_.record(at.node, RecordKind::kCarrier, at.port, carrier ? 1 : 0);
  network->world_.touch_forwarding();
  network->stations_[at.node]->on_carrier(at.port, carrier);
}

void Network::send(NodeIndex node, uint32_t port_number, const Frame& frame) {
  const Port* port = find_port(node, port_number);
  if (port == nullptr || !port->carrier) {
    return;
  }
  const RapsFaults faults = frame.is_raps() ? plans_[port->link].raps : RapsFaults{};
  if (!strand(port->link, port->end).works || world_.links_chance.per_million(faults.lost)) {
    if (frame.is_raps()) {
      world_.record(node, RecordKind::kFrameLost, port_number, frame.raps_summary(),
                    frame.raps_node());
    }
    return;
  }
  launch(port->link, port->end, frame);
  if (world_.links_chance.per_million(faults.duplicated)) {
    launch(port->link, port->end, frame);
  }
}

void Network::launch(LinkIndex link, size_t end, const Frame& frame) {
  const LinkPlan& plan = plans_[link];
  Strand& along = strand(link, end);
  int64_t arrival = world_.now_us();
  if (!frame.is_raps()) {
    // As fast as the link can be, so that data draws nothing and holds nothing up: R-APS arrives at
    // the same time with traffic and without.
    arrival = std::max(arrival + plan.delay_us.low, along.last_arrival_us);
  } else if (arrival += world_.links_chance.in(plan.delay_us);
             world_.links_chance.per_million(plan.raps.overtaken)) {
    arrival += 3 * plan.delay_us.high;
  } else {
    arrival = std::max(arrival, along.last_arrival_us);
    along.last_arrival_us = arrival;
  }
  if (idle_flights_.empty()) {
    flights_.emplace_back().network = this;
    idle_flights_.push_back(&flights_.back());
  }
  Flight& flight = *idle_flights_.back();
  idle_flights_.pop_back();
  flight.link = link;
  flight.end = end;
  flight.failures = along.failures;
  flight.frame = frame;
  world_.scheduler.set(arrival, flight, 0);
}

void Network::Flight::on_alarm(uint64_t /*token*/) {
  network->land(*this);
}

void Network::land(Flight& flight) {
  Frame frame = std::move(flight.frame);
  const size_t arrival_end = other(flight.end);
  const bool arrives = strand(flight.link, flight.end).failures == flight.failures &&
                       port_at(flight.link, arrival_end).carrier;
  const LinkEnd from = end_of(flight.link, flight.end);
  const LinkEnd to = end_of(flight.link, arrival_end);
  idle_flights_.push_back(&flight);
  if (arrives) {
    stations_[to.node]->on_frame(to.port, std::move(frame));
  } else if (frame.is_raps()) {
    world_.record(from.node, RecordKind::kFrameLost, from.port, frame.raps_summary(),
                  frame.raps_node());
  }
}

const Forwarding& Network::forwarding() {
  for (NodeIndex node = 0; node < stations_.size(); ++node) {
    forwarding_.powered[node] = stations_[node]->powered();
  }
  for (LinkIndex link = 0; link < plans_.size(); ++link) {
    const bool powered =
        forwarding_.powered[end_of(link, 0).node] && forwarding_.powered[end_of(link, 1).node];
    bool open = powered;
    for (size_t end = 0; end < 2; ++end) {
      open = open && port_at(link, end).carrier &&
             stations_[end_of(link, end).node]->forwards(end_of(link, end).port);
    }
    for (size_t end = 0; end < 2; ++end) {
      Arc& arc = forwarding_.arcs[2 * link + end];
      arc.works = powered && strand(link, end).works;
      arc.forwards = arc.works && open;
    }
  }
  return forwarding_;
}

}  // namespace erps::sim
