#include "sim/explore/model.h"

#include <algorithm>

#include "sim/sim_error.h"

namespace erps::sim::explore {

namespace {

constexpr size_t kMostOnTheirWay = 24;  // frames on one strand

Request request_of(const NodePlan& plan, SwitchCommand command, uint32_t port) {
  uint32_t ring = 0;
  for (const RingConfig& config : plan.rings) {
    ring = config.port0 == port || config.port1 == port ? config.ring : ring;
  }
  for (const SubRingConfig& config : plan.sub_rings) {
    ring = config.port == port ? config.ring : ring;
  }
  if (command == SwitchCommand::kClear) {
    return make_request(mgmt::kClear, {ring});
  }
  return make_request(command == SwitchCommand::kForced ? mgmt::kForcedSwitch : mgmt::kManualSwitch,
                      {ring, port});
}

}  // namespace

Model::Model(const Topology& topology, const std::string& module_path, const Budget& budget)
    : topology_(topology),
      budget_(budget),
      packing_(topology.nodes.size(), topology.links.size()),
      ports_(topology.nodes.size()),
      machine_((check_size(), module_path), topology.nodes),
      locals_(topology_.nodes),
      verdicts_(size_t{1} << (kMostNodes + 4 * kMostLinks)) {
  for (size_t link = 0; link < topology_.links.size(); ++link) {
    for (size_t end = 0; end < 2; ++end) {
      const LinkEnd& at = topology_.links[link].ends[end];
      ports_.at(at.node).at(at.port) = {true, static_cast<uint8_t>(link),
                                        static_cast<uint8_t>(end)};
      forwarding_.arcs.push_back({link, at.node, topology_.links[link].ends[1 - end].node});
    }
  }
  forwarding_.powered.resize(topology_.nodes.size());
}

void Model::check_size() const {
  const size_t nodes = topology_.nodes.size();
  if (nodes < 2 || nodes > kMostNodes || topology_.links.size() > kMostLinks) {
    throw SimError("a network of " + std::to_string(nodes) + " nodes and " +
                   std::to_string(topology_.links.size()) +
                   " links cannot be explored: it may have 2 to 4 nodes and up to 4 links");
  }
  for (const LinkPlan& link : topology_.links) {
    for (const LinkEnd& end : link.ends) {
      if (end.port == 0 || end.port >= kMostPorts) {
        throw SimError("port " + std::to_string(end.port) + " of " +
                       topology_.nodes[end.node].name + " cannot be explored: ports 1 to 7 can");
      }
    }
  }
  for (const auto& [text, value] : {std::pair{"cuts", budget_.cuts},
                                    {"strand failures", budget_.strand_failures},
                                    {"crashes", budget_.crashes},
                                    {"commands", budget_.commands}}) {
    if (value > kMostFaults) {
      throw SimError(std::to_string(value) + " " + text + " cannot be explored: 0 to 15 can");
    }
  }
  constexpr uint32_t kMostTicks = 2000;
  if (budget_.ticks && (*budget_.ticks == 0 || *budget_.ticks > kMostTicks)) {
    throw SimError(std::to_string(*budget_.ticks) + " ticks cannot be explored: 1 to 2000 can");
  }
}

Outcome Model::perform(NodeIndex node, Event event, Half half, uint32_t port, uint32_t what,
                       bool& refused) {
  switch (event) {
    case Event::kFrame:
      return machine_.frame(port, channels_.frame(static_cast<FrameId>(what)), half);
    case Event::kCarrier:
      return machine_.carrier(port, what != 0, half);
    case Event::kOwnEvent:
      return machine_.own_event(half);
    case Event::kTick:
      return machine_.tick();
    case Event::kCommand:
      return machine_.command(
          request_of(topology_.nodes[node], static_cast<SwitchCommand>(what), port), half, refused);
    case Event::kBoot:
      return machine_.boot(node, what);
  }
  return {};
}

const Model::Reaction& Model::reaction(LocalId local, NodeIndex node, Event event, Half half,
                                       uint32_t port, uint32_t what) {
  const uint64_t key = uint64_t{local} << 32U | uint64_t{what} << 16U |
                       uint64_t{static_cast<uint8_t>(event)} << 8U | uint64_t{port} << 4U |
                       uint64_t{node} << 1U | static_cast<uint64_t>(half);
  if (const uint32_t* known = reaction_ids_.find(key)) {
    return reactions_[*known];
  }
  Reaction made;
  if (event != Event::kBoot) {
    locals_.put_back(local, machine_);
  }
  const Outcome outcome = perform(node, event, half, port, what, made.refused);
  made.local = locals_.keep(machine_);
  for (const SentFrame& sent : outcome.sent) {
    made.sent.emplace_back(sent.port, channels_.keep_frame(sent.bytes));
  }
  if (!outcome.violation.empty()) {
    made.violation = static_cast<int32_t>(violations_.size());
    violations_.push_back(topology_.nodes[node].name + ": " + outcome.violation);
  }
  reaction_ids_.set(key, static_cast<uint32_t>(reactions_.size()));
  reactions_.push_back(std::move(made));
  return reactions_.back();
}

const std::string* Model::react(NetworkState& state, NodeIndex node, Event event, uint32_t port,
                                uint32_t what, bool* refused, uint32_t passed) {
  static const std::string kPileUp = "frames pile up on a link";
  const Reaction& made = reaction(state.local[node], node, event, half_of(state, node), port, what);
  const bool own_events_waited = event != Event::kBoot && event != Event::kOwnEvent &&
                                 locals_.at(state.local[node]).own_events != 0;
  state.local[node] = made.local;
  const uint32_t waiting = locals_.at(made.local).own_events;
  if (waiting == 0 || (!own_events_waited && event != Event::kOwnEvent)) {
    state.own_passed[node] = 0;
  }
  if (refused != nullptr) {
    *refused = made.refused;
  }
  const std::string* violation =
      made.violation >= 0 ? &violations_[static_cast<size_t>(made.violation)] : nullptr;
  for (const auto& [out_port, frame] : made.sent) {
    const Port& at = ports_[node][out_port];
    if (!at.linked || !works(state, at.out()) || !powered(state, destination(at.out()).node)) {
      continue;
    }
    ChannelId& channel = state.channel[at.out()];
    if (channels_.frames(channel) == kMostOnTheirWay) {
      violation = &kPileUp;
      continue;
    }
    // A message that is passed on is as old as it was.
    const bool passed_on = event == Event::kFrame && frame == what;
    channel = channels_.with_frame(channel, frame, passed_on ? passed : 0);
  }
  return violation;
}

uint32_t Model::linked_ports(NodeIndex node) const {
  uint32_t ports = 0;
  for (size_t port = 1; port < kMostPorts; ++port) {
    ports |= ports_[node][port].linked ? 1U << port : 0;
  }
  return ports;
}

std::vector<NetworkState> Model::initial_states() {
  NetworkState state;
  for (size_t strand = 0; strand < 2 * topology_.links.size(); ++strand) {
    state.working |= bit(strand);
  }
  // All have power before the first of them sends, so that nothing of it is lost.
  for (NodeIndex node = 0; node < topology_.nodes.size(); ++node) {
    const uint32_t carriers = linked_ports(node);
    state.local[node] = reaction(kNoPower, node, Event::kBoot, Half::kFirst, 0, carriers).local;
  }
  for (NodeIndex node = 0; node < topology_.nodes.size(); ++node) {
    react(state, node, Event::kBoot, 0, linked_ports(node));
  }
  // One life of many: what comes first is handled first, and the clocks step in turn. Twice the
  // time in which any ring comes home.
  uint32_t longest_wait_s = 0;
  for (const NodePlan& plan : topology_.nodes) {
    longest_wait_s = std::max(
        {longest_wait_s, plan.wtr_ms / 1000, plan.guard_ms / 1000, plan.holdoff_ms / 1000});
  }
  const uint32_t rounds = 4 * (longest_wait_s + 20);
  std::vector<Next> next;
  for (uint32_t round = 0; round < rounds * topology_.nodes.size();) {
    next.clear();
    steps_from(state, next);
    const auto event = std::find_if(next.begin(), next.end(), [](const Next& candidate) {
      return candidate.step.kind != StepKind::kHalf && candidate.step.kind != StepKind::kTick;
    });
    if (event == next.end()) {
      ++round;
    }
    const Next& chosen = event != next.end() ? *event : next.front();
    if (chosen.violation != nullptr) {
      throw SimError("while the network starts, " + *chosen.violation);
    }
    state = chosen.state;
  }
  state.second_half = 0;
  state.ahead = 0;
  std::vector<NetworkState> states;
  for (uint32_t positions = 0; positions < 1U << topology_.nodes.size(); ++positions) {
    state.second_half = static_cast<uint8_t>(positions);
    states.push_back(state);
  }
  return states;
}

bool Model::may_step(const NetworkState& state, NodeIndex node) const {
  if ((state.ahead & bit(node)) != 0 || is_out_of_time(state)) {
    return false;
  }
  uint32_t passed = 0;
  for (const ChannelId channel : state.channel) {
    passed |= channels_.passed(channel);
  }
  for (const uint8_t own : state.own_passed) {
    passed |= own;
  }
  return (passed & bit(node)) == 0;
}

bool Model::finish_round(NetworkState& state) const {
  uint8_t all = 0;
  for (NodeIndex node = 0; node < topology_.nodes.size(); ++node) {
    all |= powered(state, node) ? bit(node) : uint8_t{0};
  }
  if ((state.ahead & all) != all) {
    return false;
  }
  state.ahead = 0;
  if (budget_.ticks && state.cuts + state.strand_failures + state.crashes + state.commands != 0) {
    ++state.halves;
  }
  return true;
}

// Before the node ticks: what it sends then has not been passed by this step.
bool Model::step_clock(NetworkState& state, NodeIndex node) {
  for (size_t strand = 0; strand < 2 * topology_.links.size(); ++strand) {
    if (state.channel[strand] != kEmptyChannel) {
      state.channel[strand] = channels_.with_step(state.channel[strand], node);
    }
  }
  for (NodeIndex other = 0; other < topology_.nodes.size(); ++other) {
    if (locals_.at(state.local[other]).own_events != 0) {
      state.own_passed[other] |= bit(node);
    }
  }
  state.ahead |= bit(node);
  state.second_half ^= bit(node);
  return finish_round(state);
}

void Model::add_clock_step(const NetworkState& state, NodeIndex node, std::vector<Next>& next) {
  if (!may_step(state, node)) {
    return;
  }
  Next& made = next.emplace_back();
  made.state = state;
  made.step.node = static_cast<uint8_t>(node);
  const bool ticks = half_of(state, node) == Half::kSecond;
  made.second_half_done = step_clock(made.state, node);
  made.step.kind = ticks ? StepKind::kTick : StepKind::kHalf;
  if (ticks) {
    made.violation = react(made.state, node, Event::kTick, 0, 0);
  }
}

void Model::add_events(const NetworkState& state, NodeIndex node, std::vector<Next>& next) {
  const auto add = [&](StepKind kind, size_t port) -> Next& {
    Next& made = next.emplace_back();
    made.step.kind = kind;
    made.step.node = static_cast<uint8_t>(node);
    made.step.port = static_cast<uint8_t>(port);
    made.state = state;
    return made;
  };
  const bool own_event = locals_.at(state.local[node]).own_events != 0;
  if (own_event) {
    Next& made = add(StepKind::kOwnEvent, 0);
    made.violation = react(made.state, node, Event::kOwnEvent, 0, 0);
  }
  for (size_t port = 1; port < kMostPorts; ++port) {
    if (!ports_[node][port].linked) {
      continue;
    }
    const size_t strand = ports_[node][port].in();
    const ChannelId channel = state.channel[strand];
    if (channels_.has_news(channel)) {
      Next& made = add(StepKind::kCarrier, port);
      made.state.channel[strand] = channels_.without_first_news(channel);
      made.violation = react(made.state, node, Event::kCarrier, static_cast<uint32_t>(port),
                             channels_.first_news(channel) ? 1 : 0);
    }
    if (channels_.has_frame(channel) && !own_event) {
      Next& made = add(StepKind::kFrame, port);
      made.state.channel[strand] = channels_.without_first_frame(channel);
      made.violation =
          react(made.state, node, Event::kFrame, static_cast<uint32_t>(port),
                channels_.first_frame(channel), nullptr, channels_.first_frame_passed(channel));
    }
  }
}

void Model::steps_from(const NetworkState& state, std::vector<Next>& next) {
  for (NodeIndex node = 0; node < topology_.nodes.size(); ++node) {
    if (powered(state, node)) {
      add_events(state, node, next);
      add_clock_step(state, node, next);
    }
  }
}

}  // namespace erps::sim::explore
