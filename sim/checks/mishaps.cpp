#include "sim/checks/mishaps.h"

#include <algorithm>

#include "sim/checks/message_questions.h"
#include "sim/checks/surprises.h"

namespace erps::sim {

Mishaps::Mishaps(Simulation& simulation, const RingWatch& watch, int64_t repeat_us)
    : simulation_(simulation),
      topology_(simulation.topology()),
      watch_(watch),
      repeat_us_(repeat_us),
      members_(topology_.nodes.size()),
      failed_us_(topology_.nodes.size(), -1),
      came_late_us_(topology_.nodes.size(), -1) {}

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
      break;
    case RecordKind::kFrameSent:
      // What is repeated meanwhile is not new.
      if (record.b == id_end(topology_.nodes[record.node].address) &&
          simulation_.handles_event(record.node)) {
        member.sent_through.push_back(record.port);
      }
      break;
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
                           std::span<const uint8_t> bytes) {
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
  const Heard now{at->ring, message.node, words_of(message), record.time_us};
  const auto entry = std::lower_bound(heard.begin(), heard.end(), now);
  const bool is_first = entry == heard.end() || now < *entry;
  if (at->guard_running) {
    const bool is_news = is_first || entry->words != now.words;
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
  if (is_first) {
    heard.insert(entry, now);
  } else {
    *entry = now;
  }
}

}  // namespace erps::sim
