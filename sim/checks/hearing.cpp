#include "sim/checks/hearing.h"

#include <algorithm>

#include "sim/checks/ring_questions.h"

namespace erps::sim {

namespace {

bool is_open(const PortSnapshot& port) {
  return port.present && port.link_up && port.forwarding;
}

// Failures that two nodes tell of are counted again with every repetition.
bool agree(const Hearing::Rings& one, const Hearing::Rings& other) {
  const auto same_ring = [](const RingSnapshot& first, const RingSnapshot& second) {
    if (first == second) {
      return true;
    }
    RingSnapshot counted = first;
    for (size_t i = 0; i < first.ports.size(); ++i) {
      if (first.ports[i].fail_count != 0 && second.ports[i].fail_count != 0) {
        counted.ports[i].fail_count = second.ports[i].fail_count;
      }
    }
    return counted == second;
  };
  return std::equal(one.begin(), one.end(), other.begin(),
                    [&](const auto& first, const auto& second) {
                      return std::equal(first.begin(), first.end(), second.begin(), same_ring);
                    });
}

}  // namespace

void Hearing::begin(const Rings& at_first) {
  rings = at_first;
  concerned_.assign(rings.size(), false);
  tells_marks_apart_ = false;
}

std::set<NodeIndex> Hearing::concerned() const {
  std::set<NodeIndex> nodes;
  for (NodeIndex node = 0; node < concerned_.size(); ++node) {
    if (concerned_[node]) {
      nodes.insert(node);
    }
  }
  return nodes;
}

RingSnapshot* Hearing::ring(NodeIndex node, uint32_t ring) {
  for (RingSnapshot& at : rings[node]) {
    if (at.ring == ring) {
      return &at;
    }
  }
  return nullptr;
}

const SubRingConfig* Hearing::sub_ring_of(NodeIndex node, uint32_t major_ring) const {
  for (const SubRingConfig& sub_ring : topology_.nodes[node].sub_rings) {
    if (sub_ring.major_ring == major_ring) {
      return &sub_ring;
    }
  }
  return nullptr;
}

void Hearing::settle() {
  // Every round takes a message further by one node at least; two that never agree go on for ever.
  for (size_t round = 0; round < 2 * rings.size() + 8; ++round) {
    before_ = rings;
    for (NodeIndex node = 0; node < rings.size(); ++node) {
      for (const RingSnapshot& ring : rings[node]) {
        if (ring.enabled && ring.sending) {
          speak(node, RingSnapshot(ring));
        }
      }
    }
    if (agree(rings, before_)) {
      return;
    }
  }
}

void Hearing::settle_without_waiting() {
  constexpr int kMostWaits = 4;  // each owner has one that may start another one
  settle();
  for (int round = 0; round < kMostWaits; ++round) {
    bool waited = false;
    for (auto& at : rings) {
      for (RingSnapshot& ring : at) {
        if (waits(ring)) {
          RingModel model(ring);
          model.offer(has_local(ring, RingRequest::kWtr) ? RingRequest::kWtrExpires
                                                         : RingRequest::kWtbExpires,
                      {});
          ring = model.now;
          waited = true;
        }
      }
    }
    if (!waited) {
      return;
    }
    settle();
  }
}

void Hearing::fail(const LinkEnd& end) {
  for (RingSnapshot& ring : rings[end.node]) {
    for (size_t i = 0; i < ring.ports.size(); ++i) {
      if (!ring.ports[i].present || ring.ports[i].port != end.port || !ring.ports[i].link_up) {
        continue;
      }
      const PortSnapshot& out = ring.ports[1 - i];
      const SubRingConfig* sub_ring = sub_ring_of(end.node, ring.ring);
      if (sub_ring != nullptr && sub_ring->interconnection_role == 1 &&
          ring.ports[i].fail_count == 0 && (out.fail_count != 0 || !out.link_up)) {
        indicate(end.node, sub_ring->ring, kCut);
      }
      RingModel model(ring);
      model.now.ports[i].link_up = false;
      if (model.offer(RingRequest::kSf, {})) {
        model.now.tx_bpr = i == 1;
      }
      ring = model.now;
    }
  }
}

void Hearing::speak(NodeIndex node, const RingSnapshot& ring) {
  way_.clear();
  ++messages_;
  Message message{node, ring.ring,          ring.tx_request, ring.tx_rb,
                  {},   ring.local_node_id, ring.tx_bpr};
  if (ring.ring_role == kSubRingRole) {
    send_to_major_ring(node, ring, message);
    if (ring.ports[0].link_up) {
      send({node, ring.ports[0].port}, message);
    }
    return;
  }
  const SubRingConfig* sub_ring = sub_ring_of(node, ring.ring);
  const bool marks = sub_ring != nullptr && sub_ring->interconnection_role != 1;
  for (const PortSnapshot& port : ring.ports) {
    if (marks && static_cast<int32_t>(port.port) != ring.inter_fault_port) {
      message.marks = {sub_ring->ring};  // what is marked for one port stays so for the next
    }
    if (port.link_up && (ring.ring_role == 1 || port.forwarding)) {
      send({node, port.port}, message);
    }
  }
}

void Hearing::send(const LinkEnd& from, const Message& message) {
  const Strand* strand = strands_.from(from);
  if (strand == nullptr || rings[strand->to->node].empty() ||
      last_message_[strand->index] == messages_) {
    return;
  }
  last_message_[strand->index] = messages_;
  way_.push_back(strand->to);
  hear(*strand->to, message);
}

// Over the first port of the major ring that is open.
void Hearing::send_to_major_ring(NodeIndex node, const RingSnapshot& sub_ring,
                                 const Message& message) {
  for (const SubRingConfig& plan : topology_.nodes[node].sub_rings) {
    const RingSnapshot* major = plan.ring == sub_ring.ring ? ring(node, plan.major_ring) : nullptr;
    if (major == nullptr || !major->enabled) {
      continue;
    }
    for (const PortSnapshot& port : major->ports) {
      if (is_open(port)) {
        return send({node, port.port}, message);
      }
    }
  }
}

void Hearing::hear(const LinkEnd& at, const Message& message) {
  RingSnapshot* known = ring(at.node, message.ring);
  if (known == nullptr) {
    return relay(at, message);
  }
  if (!known->enabled || at.node == message.speaker) {
    return;
  }
  if (known->ring_role == kSubRingRole) {
    return hear_on_sub_ring(at, *known, message);
  }
  const SubRingConfig* sub_ring = sub_ring_of(at.node, known->ring);
  if (sub_ring == nullptr) {
    return hear_on_major_ring(at, *known, message);
  }
  const size_t in = known->ports[0].port == at.port ? 0 : 1;
  if (known->ports[in].port == at.port) {
    Message marked = message;
    watch_major_ring(at.node, known->ports[in], known->ports[1 - in], *sub_ring, marked);
    hear_on_major_ring(at, *known, marked);
  }
}

void Hearing::hear_on_major_ring(const LinkEnd& at, RingSnapshot& ring, const Message& message) {
  const size_t in = ring.ports[0].port == at.port ? 0 : 1;
  PortSnapshot& arrival = ring.ports[in];
  if (arrival.port != at.port) {
    return;
  }
  const bool clears = message.code == kNrCode && !message.rb;
  arrival.rx_node_id = clears ? MacAddress{} : message.node_id;
  arrival.rx_bpr = !clears && message.bpr ? 1 : 0;
  take(at.node, ring, message);
  const PortSnapshot& other = ring.ports[1 - in];
  if (other.link_up && (ring.ring_role == 1 || (arrival.forwarding && other.forwarding))) {
    send({at.node, other.port}, message);
  }
}

void Hearing::hear_on_sub_ring(const LinkEnd& at, RingSnapshot& ring, const Message& message) {
  take(at.node, ring, message);
  if (at.port != ring.ports[0].port) {
    send({at.node, ring.ports[0].port}, message);
  } else if (ring.ports[0].link_up) {
    send_to_major_ring(at.node, ring, message);
  }
}

// A node that does not have the ring passes its messages on as data.
void Hearing::relay(const LinkEnd& at, const Message& message) {
  for (const RingSnapshot& ring : rings[at.node]) {
    for (size_t in = 0; in < ring.ports.size(); ++in) {
      if (ring.ports[in].present && ring.ports[in].port == at.port) {
        const PortSnapshot& other = ring.ports[1 - in];
        if (ring.ports[in].forwarding && is_open(other)) {
          send({at.node, other.port}, message);
        }
        return;
      }
    }
  }
}

void Hearing::take(NodeIndex node, RingSnapshot& ring, const Message& message) {
  const RingRequest request = request_of(message.code, message.rb);
  constexpr auto kManual = static_cast<uint32_t>(RingState::kManual);
  constexpr auto kRapsMs = static_cast<uint32_t>(RingRequest::kRapsMs);
  const bool is_repetition =
      request == RingRequest::kRapsMs && ring.state == kManual && ring.current_priority == kRapsMs;
  if (request == RingRequest::kNothing || is_repetition) {
    return;
  }
  RingModel model(ring);
  if (!model.offer(request, {0, message.node_id < ring.local_node_id})) {
    return;
  }
  if (model.now != ring) {
    concern(message.speaker);
    concerned_[node] = true;
  }
  ring = model.now;
  ring.current_priority = static_cast<uint32_t>(request);
}

void Hearing::concern(NodeIndex speaker) {
  concerned_[speaker] = true;
  for (const LinkEnd* at : way_) {
    concerned_[at->node] = true;
  }
}

bool Hearing::is_marked(const Message& message, uint32_t sub_ring) const {
  return tells_marks_apart_ ? std::find(message.marks.begin(), message.marks.end(), sub_ring) !=
                                  message.marks.end()
                            : !message.marks.empty();
}

// The watching node counts failures on either side of it, by who tells them.
void Hearing::watch_major_ring(NodeIndex node, PortSnapshot& in, const PortSnapshot& out,
                               const SubRingConfig& sub_ring, Message& message) {
  if (sub_ring.interconnection_role != 1) {
    message.marks.push_back(sub_ring.ring);
    return;
  }
  const bool other_is_sound = out.fail_count == 0 && out.link_up;
  const auto on_sound = [&] {
    if (!other_is_sound) {
      concern(message.speaker);
      indicate(node, sub_ring.ring, kWhole);
    }
  };
  if (is_marked(message, sub_ring.ring)) {
    if (in.fail_count != 0) {
      in.fail_count = 0;
      on_sound();
    }
  } else if (message.code == kNrCode) {
    const bool is_cleared = in.rx_node_id == MacAddress{};
    if (is_cleared && (!message.rb || in.fail_count == 0)) {
      return;
    }
    in.fail_count = is_cleared || in.fail_count == 0 ? 0 : in.fail_count - 1;
    if (in.fail_count == 0) {
      on_sound();
    }
  } else if (message.code == kSfCode &&
             (in.rx_node_id != message.node_id || (in.rx_bpr != 0) != message.bpr)) {
    if (in.fail_count == 0 && !other_is_sound) {
      concern(message.speaker);
      indicate(node, sub_ring.ring, kCut);
    }
    ++in.fail_count;
  }
}

void Hearing::indicate(NodeIndex node, uint32_t sub_ring, uint32_t indication) {
  if (RingSnapshot* at = ring(node, sub_ring); at != nullptr) {
    RingModel model(*at);
    model.indicate(indication);
    if (model.now.ports[0].forwarding != at->ports[0].forwarding) {
      concerned_[node] = true;
    }
    *at = model.now;
  }
}

}  // namespace erps::sim
