#include "sim/checks/mishaps.h"

#include <algorithm>

#include "sim/checks/ring_questions.h"
#include "sim/checks/surprises.h"

namespace erps::sim {

namespace {

uint32_t id_end(const MacAddress& address) {
  return uint32_t{address[4]} << 8U | address[5];
}

uint32_t words_of(const RapsMessage& message) {
  return message.request() << 1U | (message.rb() ? 1U : 0U);
}

uint32_t words_of(const RingSnapshot& ring) {
  return uint32_t{ring.tx_request} << 1U | (ring.tx_rb ? 1U : 0U);
}

bool has_ring(const NodePlan& node, uint32_t ring) {
  return std::any_of(node.rings.begin(), node.rings.end(),
                     [=](const RingConfig& at) { return at.ring == ring; }) ||
         std::any_of(node.sub_rings.begin(), node.sub_rings.end(),
                     [=](const SubRingConfig& at) { return at.ring == ring; });
}

RingRequest request_in(const RapsMessage& message) {
  return request_of(message.request(), message.rb());
}

// What it repeats.
RapsMessage message_of(const RingSnapshot& ring) {
  return {uint32_t{ring.tx_request} << 12U | (ring.tx_rb ? 0x80U : 0U), 0};
}

// Whether the ring would do something on account of the message.
bool matters(const RingSnapshot& ring, const RapsMessage& message) {
  const auto changes = [&](bool from_lower_node) {
    RingModel model(ring);
    model.offer(request_in(message), {0, from_lower_node});
    return model.now.state != ring.state ||
           model.now.ports[0].forwarding != ring.ports[0].forwarding ||
           model.now.ports[1].forwarding != ring.ports[1].forwarding;
  };
  return changes(false) || changes(true);
}

}  // namespace

Mishaps::Mishaps(Simulation& simulation, const RingWatch& watch, int64_t repeat_us)
    : simulation_(simulation),
      topology_(simulation.topology()),
      watch_(watch),
      repeat_us_(repeat_us),
      members_(topology_.nodes.size()),
      failed_us_(topology_.nodes.size(), -1) {}

void Mishaps::forget_before(int64_t time_us) {
  while (!mishaps_.empty() && mishaps_.front().time_us < time_us) {
    mishaps_.pop_front();
  }
}

std::set<std::string> Mishaps::names_since(int64_t time_us) const {
  std::set<std::string> names;
  for (const Mishap& mishap : mishaps_) {
    if (mishap.time_us >= time_us) {
      names.insert(mishap.surprise);
    }
  }
  return names;
}

void Mishaps::add(const Record& record, const char* surprise, int64_t lasts_us) {
  mishaps_.push_back({record.time_us, surprise, record.node, lasts_us});
}

// How long WTR or WTB goes on at most, and what ends it takes to be heard; 0 for other requests.
int64_t Mishaps::wait_us(NodeIndex node, uint32_t local_priority) const {
  const NodePlan& plan = topology_.nodes[node];
  const int64_t tick_and_transit_us = repeat_us_ - 5 * kSecondUs;
  if (local_priority == static_cast<uint32_t>(RingRequest::kWtr)) {
    return int64_t{plan.wtr_ms} * kMillisecondUs + tick_and_transit_us;
  }
  if (local_priority == static_cast<uint32_t>(RingRequest::kWtb)) {
    return int64_t{plan.guard_ms} * kMillisecondUs + 5 * kSecondUs + tick_and_transit_us;
  }
  return 0;
}

void Mishaps::on_record(const Record& record) {
  if (record.node >= members_.size()) {
    return;
  }
  Member& member = members_[record.node];
  switch (record.kind) {
    case RecordKind::kEvent:
      member.sent_through.clear();
      member.event_us = record.time_us;
      break;
    case RecordKind::kFrameSent: {
      // A repetition comes seconds after the event.
      constexpr int64_t kEventLastsUs = 2 * kSecondUs;
      if (record.b == id_end(topology_.nodes[record.node].address) &&
          record.time_us - member.event_us < kEventLastsUs) {
        member.sent_through.push_back(record.port);
      }
      break;
    }
    case RecordKind::kFrameReceived:
      on_received(record);
      break;
    case RecordKind::kFrameLost:
      on_lost(record);
      break;
    case RecordKind::kCrash:
    case RecordKind::kKilled:
    case RecordKind::kStopped:
      member = Member{};
      member.dead = record.kind != RecordKind::kCrash;
      break;
    case RecordKind::kCarrier:
      if (record.a == 1) {
        on_connection(record);
      }
      break;
    case RecordKind::kPortApplied: {
      constexpr uint32_t kOpen = 4;
      if (record.a == kOpen) {
        on_connection(record);
      }
      break;
    }
    case RecordKind::kRunning:
      member.running = true;
      member.dead = false;
      on_connection(record);
      break;
    case RecordKind::kCallFailed:
      failed_us_[record.node] = record.time_us;
      add(record, surprise::kCallFailed);
      break;
    case RecordKind::kStalled:
      mishaps_.push_back(
          {record.time_us, surprise::kStalled, record.node, int64_t{record.a} * kMillisecondUs});
      break;
    default:
      break;
  }
}

// What a node without its module does not pass on is missed by whom it concerns.
void Mishaps::on_reception(int64_t time_us, NodeIndex node, uint32_t /*port*/,
                           const std::vector<uint8_t>& bytes) {
  constexpr size_t kRingOctet = 5;
  constexpr size_t kRequestOctet = 22;
  constexpr size_t kNodeIdEndOctet = 28;
  if (!members_[node].dead || bytes.size() <= kNodeIdEndOctet + 1) {
    return;
  }
  const RapsMessage message{uint32_t{bytes[kRingOctet]} << 16U |
                                uint32_t{bytes[kRequestOctet]} << 8U | bytes[kRequestOctet + 1],
                            uint32_t{bytes[kNodeIdEndOctet]} << 8U | bytes[kNodeIdEndOctet + 1]};
  for (NodeIndex listener = 0; listener < members_.size(); ++listener) {
    for (const RingSnapshot& ring : watch_.rings(listener)) {
      if ((ring.ring & 0xFFU) == message.ring() && matters(ring, message)) {
        mishaps_.push_back({time_us, surprise::kNoModule, listener, repeat_us_});
      }
    }
  }
}

void Mishaps::on_forwarding(int64_t /*time_us*/, const Forwarding& forwarding) {
  strands_.resize(forwarding.arcs.size());
  for (size_t i = 0; i < strands_.size(); ++i) {
    strands_[i] = forwarding.arcs[i].works;
  }
}

// What is lost with its link is no mishap: it comes late when the link comes back. Unless the other
// end sees no failure, and nothing comes back.
void Mishaps::on_lost(const Record& record) {
  const LinkEnd from{record.node, record.port};
  for (LinkIndex link = 0; link < topology_.links.size(); ++link) {
    const LinkPlan& plan = topology_.links[link];
    for (size_t end = 0; end < 2; ++end) {
      if (plan.ends[end] != from || 2 * link + end >= strands_.size()) {
        continue;
      }
      if (strands_[2 * link + end]) {
        add(record, plan.raps.lost != 0 ? surprise::kLost : surprise::kTooEarly);
      } else if (watch_.link_is_up(plan.ends[1 - end])) {
        add(record, surprise::kSilentFailure);
      }
    }
  }
}

void Mishaps::on_received(const Record& record) {
  const RapsMessage message{record.a, record.b};
  const std::vector<RingSnapshot>& rings = watch_.rings(record.node);
  const auto at = std::find_if(rings.begin(), rings.end(), [&](const RingSnapshot& ring) {
    return (ring.ring & 0xFFU) == message.ring();
  });
  if (at == rings.end() || message.request() == kEventCode) {
    return;
  }
  auto& heard = members_[record.node].heard;
  auto entry = std::find_if(heard.begin(), heard.end(), [&](const Heard& one) {
    return one.ring == at->ring && one.from == message.node;
  });
  if (at->guard_running) {
    const bool is_news = entry == heard.end() || entry->words != words_of(message);
    if (is_news || matters(*at, message)) {
      add(record, surprise::kGuarded);
    }
    return;
  }
  // A delay that runs outranks what would have opened a port.
  const int64_t wait = wait_us(record.node, at->local_priority);
  if (wait != 0 && at->local_priority >= static_cast<uint32_t>(request_in(message))) {
    RingSnapshot without = *at;
    without.local_priority = 0;
    if (matters(without, message)) {
      add(record, surprise::kOutranked, wait);
    }
  }
  if (entry == heard.end()) {
    entry = heard.insert(heard.end(), {at->ring, message.node, 0, 0});
  }
  entry->words = words_of(message);
  entry->at_us = record.time_us;
}

void Mishaps::on_step(const Step& step) {
  if (step.after == nullptr) {
    return;
  }
  on_new_message(step);
  // Who came while it was said may have missed it.
  if (step.after->sending && connected_us_ >= step.from_us) {
    add_who_did_not_hear(connected_us_, step.node, *step.after);
  }
  if (step.before == nullptr) {
    return;
  }
  on_other_way(step);
  const RingSnapshot& after = *step.after;
  if (step.before->local_priority > after.local_priority) {
    on_ended_request(step);
  }
  // Nor does a switch yield to what was said before it was given.
  if (step.cause == Step::Cause::kCommand && has_local(after, RingRequest::kMs) &&
      !has_local(*step.before, RingRequest::kMs) && waits_to_hear(step.node, after)) {
    mishaps_.push_back({step.from_us, surprise::kManualSplit, step.node, repeat_us_});
  }
  add_who_has_to_hear_twice(step);
}

void Mishaps::add_who_has_to_hear_twice(const Step& step) {
  const RingSnapshot& before = *step.before;
  const RingSnapshot& after = *step.after;
  constexpr auto kManual = static_cast<uint32_t>(RingState::kManual);
  const auto add_here = [&](const char* surprise, int64_t lasts_us) {
    mishaps_.push_back({step.from_us, surprise, step.node, lasts_us});
  };
  // What was heard while its link was down did not open the port, and nobody is told of the return.
  if (step.cause == Step::Cause::kLink && step.up && after.local_priority == 0 && !after.sending &&
      has_block(after)) {
    add_here(surprise::kHeardTwice, (after.state == kManual ? 2 : 1) * repeat_us_);
  }
  // Nor is that of who repeats a forced switch that was cleared.
  if (step.cause == Step::Cause::kLink && step.up && after.local_priority == 0 &&
      sends(after, kFsCode) && has_block(after)) {
    add_here(surprise::kForcedStuck, repeat_us_);
  }
  if (step.cause != Step::Cause::kFrame || (after.ring & 0xFFU) != step.message.ring() ||
      before.state == after.state) {
    return;
  }
  const RingRequest request = request_in(step.message);
  // What is repeated by others did not open the port either, in the state that R-APS(NR) ends.
  if (request == RingRequest::kRapsNr &&
      (matters(after, step.message) || (has_block(after) && waits_to_hear(step.node, after)))) {
    add_here(surprise::kHeardTwice, repeat_us_);
    return;
  }
  if (request == RingRequest::kRapsMs && before.state == kManual && matters(after, step.message)) {
    const bool has_own = before.local_priority == static_cast<uint32_t>(RingRequest::kMs);
    add_here(has_own ? surprise::kManualCollision : surprise::kHeardTwice, repeat_us_);
  }
}

// Whether somebody repeats what the node would heed now, and has yet to hear again.
bool Mishaps::waits_to_hear(NodeIndex node, const RingSnapshot& ring) const {
  for (NodeIndex speaker = 0; speaker < members_.size(); ++speaker) {
    const RingSnapshot* said = watch_.ring(speaker, ring.ring);
    if (speaker != node && said != nullptr && said->sending && matters(ring, message_of(*said))) {
      return true;
    }
  }
  return false;
}

// What was refused while a local request stood is not heard again before it is repeated.
void Mishaps::on_ended_request(const Step& step) {
  const RingSnapshot& after = *step.after;
  const Member& member = members_[step.node];
  if (waits_to_hear(step.node, after)) {
    mishaps_.push_back({step.from_us, surprise::kOutranked, step.node, repeat_us_});
  }
  // A switch that is cleared before anybody has heard of it leaves the others where they were.
  if (member.held_back_us >= 0 && step.from_us - member.held_back_us < repeat_us_) {
    mishaps_.push_back({step.from_us, surprise::kHeldBack, step.node,
                        std::max(repeat_us_, wait_us(step.node, after.local_priority))});
  }
}

void Mishaps::on_new_message(const Step& step) {
  const RingSnapshot& after = *step.after;
  auto& said = members_[step.node].said;
  auto entry = std::find_if(said.begin(), said.end(),
                            [&](const Said& one) { return one.ring == after.ring; });
  if (entry == said.end()) {
    entry = said.insert(said.end(), {after.ring, 0, 0, false});
  }
  const uint32_t words = words_of(after);
  const bool is_new = after.sending && (!entry->repeated || entry->words != words);
  if (is_new) {
    entry->since_us = step.from_us;
  }
  entry->words = words;
  entry->repeated = after.sending;
  if (!is_new) {
    return;
  }
  const auto& through = members_[step.node].sent_through;
  for (const PortSnapshot& port : after.ports) {
    if (port.present && port.link_up && port.forwarding &&
        std::find(through.begin(), through.end(), port.port) == through.end()) {
      mishaps_.push_back({step.from_us, surprise::kHeldBack, step.node, repeat_us_});
      members_[step.node].held_back_us = step.from_us;
    }
  }
}

// Whether it has not, since the speaker says so.
bool Mishaps::has_not_heard(NodeIndex listener, NodeIndex speaker, const RingSnapshot& ring) const {
  const uint32_t id = id_end(topology_.nodes[speaker].address);
  const uint32_t words = words_of(ring);
  int64_t since_us = 0;
  for (const Said& said : members_[speaker].said) {
    since_us = said.ring == ring.ring && said.words == words ? said.since_us : since_us;
  }
  const Member& member = members_[listener];
  const bool heard_it =
      std::any_of(member.heard.begin(), member.heard.end(), [&](const Heard& one) {
        return one.ring == ring.ring && one.from == id && one.words == words &&
               one.at_us >= since_us;
      });
  return listener != speaker && member.running && !heard_it &&
         has_ring(topology_.nodes[listener], ring.ring);
}

// Whether the listener has missed a repetition that it would heed now, although it has heard the
// same before.
bool Mishaps::has_to_hear_again(int64_t time_us, NodeIndex listener, NodeIndex speaker,
                                const RingSnapshot& ring) const {
  constexpr int64_t kRepetitionUs = 5 * kSecondUs;
  const uint32_t id = id_end(topology_.nodes[speaker].address);
  const auto& heard = members_[listener].heard;
  const RingSnapshot* at = watch_.ring(listener, ring.ring);
  return listener != speaker && at != nullptr && matters(*at, message_of(ring)) &&
         std::none_of(heard.begin(), heard.end(), [&](const Heard& one) {
           return one.ring == ring.ring && one.from == id && one.at_us >= time_us - kRepetitionUs;
         });
}

void Mishaps::add_who_did_not_hear(int64_t time_us, NodeIndex speaker, const RingSnapshot& ring) {
  for (NodeIndex listener = 0; listener < members_.size(); ++listener) {
    if (has_not_heard(listener, speaker, ring) ||
        has_to_hear_again(time_us, listener, speaker, ring)) {
      mishaps_.push_back({time_us, surprise::kCameLate, listener, repeat_us_});
    }
  }
}

// What the end of a sub-ring says or passes on goes through the first open port of its major ring:
// when that fails it is another one, and others hear it.
void Mishaps::on_other_way(const Step& step) {
  const auto way = [](const RingSnapshot& major) {
    const auto first = std::find_if(
        major.ports.begin(), major.ports.end(),
        [](const PortSnapshot& port) { return port.present && port.link_up && port.forwarding; });
    return first - major.ports.begin();
  };
  for (const SubRingConfig& config : topology_.nodes[step.node].sub_rings) {
    if (config.major_ring != step.ring() || way(*step.before) == way(*step.after)) {
      continue;
    }
    for (NodeIndex speaker = 0; speaker < members_.size(); ++speaker) {
      const RingSnapshot* said = watch_.ring(speaker, config.ring);
      if (said != nullptr && said->sending) {
        add_who_did_not_hear(step.to_us, speaker, *said);
      }
    }
  }
}

// Somebody repeats what somebody else has not heard. Asked of the modules as they are now: the
// watch is a little late.
void Mishaps::on_connection(const Record& record) {
  connected_us_ = record.time_us;
  for (NodeIndex speaker = 0; speaker < members_.size(); ++speaker) {
    simulation_.records(speaker).read_rings(rings_);
    for (const RingSnapshot& ring : rings_) {
      if (ring.sending) {
        add_who_did_not_hear(record.time_us, speaker, ring);
      }
    }
  }
}

}  // namespace erps::sim
