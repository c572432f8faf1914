// What the operator does, and what breaks and is repaired.
#include "sim/explore/model.h"
#include "sim/sim_error.h"

namespace erps::sim::explore {

void Model::faults_from(const NetworkState& state, std::vector<Next>& next) {
  const size_t first = next.size();
  add_link_faults(state, next);
  add_node_faults(state, next);
  for (NodeIndex node = 0; node < topology_.nodes.size(); ++node) {
    if (powered(state, node)) {
      add_commands(state, node, next);
    }
  }
  for (size_t i = first; i < next.size(); ++i) {
    next[i].state.halves = 0;
  }
}

void Model::add_commands(const NetworkState& state, NodeIndex node, std::vector<Next>& next) {
  if (state.commands == budget_.commands) {
    return;
  }
  const auto add = [&](SwitchCommand command, uint32_t port) {
    Next made;
    made.step.kind = StepKind::kCommand;
    made.step.node = static_cast<uint8_t>(node);
    made.step.port = static_cast<uint8_t>(port);
    made.step.command = command;
    made.state = state;
    ++made.state.commands;
    bool refused = false;
    made.violation =
        react(made.state, node, Event::kCommand, port, static_cast<uint32_t>(command), &refused);
    if (refused) {
      return;
    }
    made.state.switched =
        static_cast<uint8_t>(command == SwitchCommand::kClear ? made.state.switched & ~bit(node)
                                                              : made.state.switched | bit(node));
    next.push_back(made);
  };
  for (const RingConfig& ring : topology_.nodes[node].rings) {
    for (const uint32_t port : {ring.port0, ring.port1}) {
      add(SwitchCommand::kForced, port);
      add(SwitchCommand::kManual, port);
    }
    if ((state.switched & bit(node)) != 0) {
      add(SwitchCommand::kClear, ring.port0);
    }
  }
}

void Model::news(NetworkState& state, size_t strand, bool up) {
  if (powered(state, destination(strand).node)) {
    state.channel[strand] = channels_.with_news(state.channel[strand], up);
  }
}

void Model::add_link_faults(const NetworkState& state, std::vector<Next>& next) {
  for (size_t link = 0; link < topology_.links.size(); ++link) {
    const std::array<size_t, 2> strands{2 * link, 2 * link + 1};
    const bool whole = works(state, strands[0]) && works(state, strands[1]);
    // What stood in the receiver's queue already is handled yet, what was on the line is lost.
    const auto lose = [&](NetworkState& made, size_t strand, size_t kept) {
      made.working &= static_cast<uint8_t>(~bit(strand));
      made.channel[strand] = channels_.with_first_frames_only(made.channel[strand], kept);
      if (powered(made, source(strand).node)) {
        news(made, strand, false);
      }
    };
    const auto add = [&](StepKind kind) -> Next& {
      Next& made = next.emplace_back();
      made.step.kind = kind;
      made.step.link = static_cast<uint8_t>(link);
      made.state = state;
      return made;
    };
    if (whole && state.cuts < budget_.cuts) {
      for (size_t a = 0; a <= channels_.frames(state.channel[strands[0]]); ++a) {
        for (size_t b = 0; b <= channels_.frames(state.channel[strands[1]]); ++b) {
          Next& made = add(StepKind::kCut);
          made.step.kept = {static_cast<uint8_t>(a), static_cast<uint8_t>(b)};
          ++made.state.cuts;
          lose(made.state, strands[0], a);
          lose(made.state, strands[1], b);
        }
      }
    }
    for (size_t end = 0; end < 2 && state.strand_failures < budget_.strand_failures; ++end) {
      for (size_t kept = 0;
           works(state, strands[end]) && kept <= channels_.frames(state.channel[strands[end]]);
           ++kept) {
        Next& made = add(StepKind::kFail);
        made.step.end = static_cast<uint8_t>(end);
        made.step.kept = {static_cast<uint8_t>(kept), 0};
        ++made.state.strand_failures;
        lose(made.state, strands[end], kept);
      }
    }
    if (!whole) {
      Next& made = add(StepKind::kRestore);
      for (const size_t strand : strands) {
        if (!works(state, strand)) {
          made.state.working |= bit(strand);
          if (powered(state, source(strand).node)) {
            news(made.state, strand, true);
          }
        }
      }
    }
  }
}

void Model::add_node_faults(const NetworkState& state, std::vector<Next>& next) {
  for (NodeIndex node = 0; node < topology_.nodes.size(); ++node) {
    if (!powered(state, node)) {
      restart(state, node, next);
    } else if (state.crashes < budget_.crashes) {
      crash(state, node, next);
    }
  }
}

void Model::crash(const NetworkState& state, NodeIndex node, std::vector<Next>& next) {
  std::array<size_t, 2> out{};
  size_t outs = 0;
  NetworkState down = state;
  ++down.crashes;
  down.local[node] = kNoPower;
  down.own_passed[node] = 0;
  for (const Port& port : ports_[node]) {
    if (!port.linked) {
      continue;
    }
    down.channel[port.in()] = kEmptyChannel;
    if (outs == out.size()) {
      throw SimError("a node with more than two links cannot crash in an exploration");
    }
    out[outs++] = port.out();
  }
  down.second_half &= static_cast<uint8_t>(~bit(node));
  down.ahead &= static_cast<uint8_t>(~bit(node));
  down.switched &= static_cast<uint8_t>(~bit(node));
  const auto waiting = [&](size_t index) {
    return index < outs ? channels_.frames(state.channel[out[index]]) : 0;
  };
  for (size_t a = 0; a <= waiting(0); ++a) {
    for (size_t b = 0; b <= waiting(1); ++b) {
      Next& made = next.emplace_back();
      made.step.kind = StepKind::kCrash;
      made.step.node = static_cast<uint8_t>(node);
      made.step.kept = {static_cast<uint8_t>(a), static_cast<uint8_t>(b)};
      made.state = down;
      for (size_t i = 0; i < outs; ++i) {
        ChannelId& channel = made.state.channel[out[i]];
        channel = channels_.with_first_frames_only(channel, made.step.kept[i]);
        if (works(state, out[i])) {
          news(made.state, out[i], false);
        }
      }
      made.second_half_done = finish_round(made.state);
    }
  }
}

void Model::restart(const NetworkState& state, NodeIndex node, std::vector<Next>& next) {
  Next& made = next.emplace_back();
  made.step.kind = StepKind::kRestart;
  made.step.node = static_cast<uint8_t>(node);
  made.state = state;
  uint32_t carriers = 0;
  for (size_t port = 1; port < kMostPorts; ++port) {
    const Port& at = ports_[node][port];
    if (!at.linked) {
      continue;
    }
    if (works(state, at.in()) && powered(state, source(at.in()).node)) {
      carriers |= 1U << port;
    }
    if (works(state, at.out())) {
      news(made.state, at.out(), true);
    }
  }
  made.violation = react(made.state, node, Event::kBoot, 0, carriers);
}

}  // namespace erps::sim::explore
