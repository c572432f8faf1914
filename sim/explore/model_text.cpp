// Steps and states in words.
#include <array>

#include "erps/raps/frame.h"
#include "sim/explore/model.h"
#include "sim/frame.h"

namespace erps::sim::explore {

namespace {

const char* request_name(const raps::PduView& pdu) {
  switch (pdu.request()) {
    case raps::kNr:
      return pdu.rb() != 0 ? "NR,RB" : "NR";
    case raps::kSf:
      return "SF";
    case raps::kFs:
      return "FS";
    case raps::kMs:
      return "MS";
    case raps::kEvent:
      return "event";
    default:
      return "message";
  }
}

constexpr std::array<const char*, 3> kCommandTexts{"forced switch", "manual switch", "clear"};

}  // namespace

std::string Model::port_text(NodeIndex node, uint32_t port) const {
  const Port& at = ports_.at(node).at(port);
  const std::string& name = topology_.nodes[node].name;
  if (!at.linked) {
    return name + " port " + std::to_string(port);
  }
  return name + " port " + std::to_string(port) + " (to " +
         topology_.nodes[source(at.in()).node].name + ")";
}

std::string Model::link_text(LinkIndex link) const {
  const auto& ends = topology_.links.at(link).ends;
  return topology_.nodes[ends[0].node].name + ":" + std::to_string(ends[0].port) + " - " +
         topology_.nodes[ends[1].node].name + ":" + std::to_string(ends[1].port);
}

std::string Model::frame_text(FrameId id) const {
  Frame frame;
  const auto& kept = channels_.frame(id);
  frame.bytes.assign(kept.begin(), kept.end());
  if (!frame.is_raps()) {
    return "a frame";
  }
  const size_t pdu =
      frame.bytes.size() >= raps::kTaggedLength ? raps::kTaggedPdu : raps::kUntaggedPdu;
  const raps::PduView view(frame.bytes.data() + pdu);
  std::string from = "an unknown node";
  for (const NodePlan& plan : topology_.nodes) {
    if (std::equal(plan.address.begin(), plan.address.end(), view.node_id())) {
      from = plan.name;
    }
  }
  std::string text = std::string("R-APS(") + request_name(view) + ")";
  if (view.dnf() != 0) {
    text += " without flush";
  }
  return text + " of " + from;
}

std::string Model::step_text(const NetworkState& before, const Step& step) const {
  const std::string node =
      step.node < topology_.nodes.size() ? topology_.nodes[step.node].name : "?";
  const auto lost = [&](size_t strand, uint8_t kept) {
    const size_t frames = channels_.frames(before.channel[strand]);
    return frames > kept ? std::to_string(frames - kept) + " of " + std::to_string(frames) +
                               " frames from " + topology_.nodes[source(strand).node].name + " lost"
                         : std::string();
  };
  const auto both_lost = [&](size_t one, size_t other) {
    const std::string first = lost(one, step.kept[0]);
    const std::string second = lost(other, step.kept[1]);
    const std::string joined = first + (first.empty() || second.empty() ? "" : ", ") + second;
    return joined.empty() ? joined : "; " + joined;
  };
  switch (step.kind) {
    case StepKind::kHalf:
      return node + ": half a second has gone by since its tick";
    case StepKind::kTick:
      return node + " ticks";
    case StepKind::kOwnEvent:
      return node + " handles what a timer or ring of its own has posted";
    case StepKind::kFrame: {
      const size_t strand = ports_.at(step.node).at(step.port).in();
      return node + " receives " + frame_text(channels_.first_frame(before.channel.at(strand))) +
             " on port " + std::to_string(step.port);
    }
    case StepKind::kCarrier: {
      const size_t strand = ports_.at(step.node).at(step.port).in();
      return node + " notices that the carrier of port " + std::to_string(step.port) +
             (channels_.first_news(before.channel.at(strand)) ? " is back" : " is gone");
    }
    case StepKind::kCommand:
      return std::string("operator: ") + kCommandTexts.at(static_cast<size_t>(step.command)) +
             " at " + port_text(step.node, step.port);
    case StepKind::kCut:
      return "cut " + link_text(step.link) +
             both_lost(2 * size_t{step.link}, 2 * size_t{step.link} + 1);
    case StepKind::kFail: {
      const size_t strand = 2U * step.link + step.end;
      const std::string loss = lost(strand, step.kept[0]);
      return "cut " + link_text(step.link) + " one way, away from " +
             topology_.nodes[source(strand).node].name + (loss.empty() ? "" : "; " + loss);
    }
    case StepKind::kRestore:
      return "restore " + link_text(step.link);
    case StepKind::kCrash:
      return node + " loses its power";
    case StepKind::kRestart:
      return node + " gets its power back";
  }
  return "?";
}

std::string Model::state_text(const NetworkState& state) const {
  std::string text;
  for (NodeIndex node = 0; node < topology_.nodes.size(); ++node) {
    text += (node == 0 ? "" : ", ") + topology_.nodes[node].name + " ";
    if (!powered(state, node)) {
      text += "down";
      continue;
    }
    const LocalState& at = local(state, node);
    std::string states;
    std::string blocked;
    for (const RingSnapshot& ring : at.rings) {
      states += (states.empty() ? "" : "/") + std::string(state_name(ring.state));
      for (const PortSnapshot& port : ring.ports) {
        if (port.present && !port.forwarding) {
          blocked += (blocked.empty() ? "" : " ") + std::to_string(port.port);
        }
      }
    }
    text += (states.empty() ? "without a ring" : states);
    text += blocked.empty() ? " open" : " blocks " + blocked;
  }
  return text;
}

}  // namespace erps::sim::explore
