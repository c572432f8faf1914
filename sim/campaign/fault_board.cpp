#include "sim/campaign/fault_board.h"

namespace erps::sim {

namespace {

// Counts a fault in or out; whether that was the first to come or the last to go.
bool turns(size_t& count, bool begins) {
  return begins ? count++ == 0 : --count == 0;
}

}  // namespace

FaultBoard::FaultBoard(Simulation& simulation, const Topology& topology)
    : simulation_(simulation),
      strands_(topology.links.size()),
      disturbances_(topology.links.size()),
      crashes_(topology.nodes.size()),
      kills_(topology.nodes.size()),
      slow_(topology.nodes.size()) {
  for (const LinkPlan& link : topology.links) {
    usual_.push_back(link.raps);
  }
}

void FaultBoard::change(const Fault& fault, bool begins) {
  switch (fault.kind) {
    case FaultKind::kCut:
      turns(strands_[fault.link][0].cuts, begins);
      turns(strands_[fault.link][1].cuts, begins);
      set_strand(fault.link, 0);
      set_strand(fault.link, 1);
      break;
    case FaultKind::kOneWay:
      turns(strands_[fault.link][fault.end].cuts, begins);
      set_strand(fault.link, fault.end);
      break;
    case FaultKind::kSilentOneWay:
      turns(strands_[fault.link][fault.end].silent, begins);
      set_strand(fault.link, fault.end);
      break;
    case FaultKind::kDisturbance:
      if (turns(disturbances_[fault.link], begins)) {
        simulation_.set_raps_faults(fault.link, begins ? fault.raps : usual_[fault.link]);
      }
      break;
    case FaultKind::kCrash:
      if (turns(crashes_[fault.node], begins)) {
        begins ? simulation_.crash(fault.node) : simulation_.restart(fault.node);
      }
      break;
    case FaultKind::kKill:
      if (turns(kills_[fault.node], begins)) {
        begins ? simulation_.kill_module(fault.node) : simulation_.start_module(fault.node);
      }
      break;
    case FaultKind::kSlow:
      if (turns(slow_[fault.node], begins)) {
        simulation_.slow_down(fault.node, begins ? fault.factor : 1);
      }
      break;
    case FaultKind::kStall:
      if (begins) {
        simulation_.stall(fault.node, fault.lasts_us);
      }
      break;
    case FaultKind::kFailingCalls:
      if (begins) {
        simulation_.fail_call(fault.node, fault.call, 1, fault.times);
      }
      if (turns(failing_, begins) && !begins) {
        simulation_.fail_calls(0);
      }
      break;
    case FaultKind::kForcedSwitch:
    case FaultKind::kManualSwitch:
      command(fault, begins);
      break;
  }
}

void FaultBoard::set_strand(LinkIndex link, size_t end) {
  Strand& strand = strands_[link][end];
  const bool down = strand.cuts > 0 || strand.silent > 0;
  const bool silently = down && strand.cuts == 0;
  if (down == strand.down && silently == strand.down_silently) {
    return;
  }
  strand.down = down;
  strand.down_silently = silently;
  if (down) {
    simulation_.fail_strand(link, end, silently);
  } else {
    simulation_.repair_strand(link, end);
  }
}

void FaultBoard::command(const Fault& fault, bool begins) {
  const mgmt::Command code = !begins                                  ? mgmt::kClear
                             : fault.kind == FaultKind::kForcedSwitch ? mgmt::kForcedSwitch
                                                                      : mgmt::kManualSwitch;
  simulation_.ask(fault.node, make_request(code, {fault.ring, begins ? fault.port : 0}));
}

}  // namespace erps::sim
