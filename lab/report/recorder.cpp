#include "lab/report/recorder.h"

#include <algorithm>

#include "erps/mgmt/message.h"
#include "erps/raps/frame.h"
#include "sim/module_records.h"

namespace erps::lab {

namespace {

// A message is repeated every five seconds, on a tick of one second.
constexpr int64_t kRepeatedWithinUs = 7'000'000;
// What has not been taken by then never will be: its receiver's module was not there.
constexpr int64_t kLongestFlightUs = 1'000'000;

bool is_operators(uint32_t command) {
  return command == mgmt::kForcedSwitch || command == mgmt::kManualSwitch ||
         command == mgmt::kClear || command == mgmt::kSetEnable || command == mgmt::kDeleteRing;
}

TimerKind timer_kind(sim::TimerKind kind) {
  switch (kind) {
    case sim::TimerKind::kWtr:
      return TimerKind::kWtr;
    case sim::TimerKind::kWtb:
      return TimerKind::kWtb;
    case sim::TimerKind::kHoldoff:
      return TimerKind::kHoldOff;
    default:
      return TimerKind::kGuard;
  }
}

MessageText parse_text(uint32_t summary, uint32_t node_id) {
  const uint32_t request = summary >> 8U & 0xFFU;
  return {summary >> 16U, request >> 4U, summary & 0xFFU,
          (request & 0xFU) == raps::kInterconnectionMark, node_id};
}

}  // namespace

Recorder::Recorder(const Topology& topology, const RecorderLimits& limits)
    : limits_(limits), strands_(2 * topology.links.size()) {
  for (LinkIndex link = 0; link < topology.links.size(); ++link) {
    in_ring_.push_back(topology.ring_of_link(link).has_value());
    for (uint32_t end = 0; end < 2; ++end) {
      const LinkEnd& at = topology.links[link].ends[end];
      ends_[{static_cast<uint32_t>(at.node), at.port}] = static_cast<uint32_t>(2 * link) + end;
    }
  }
  for (RingIndex ring = 0; ring < topology.rings.size(); ++ring) {
    for (const NodeIndex node : topology.rings[ring].nodes) {
      places_[{topology.rings[ring].id, static_cast<uint32_t>(node)}] =
          static_cast<uint32_t>(recording_.places.size());
      recording_.places.push_back({ring, node});
    }
  }
}

void Recorder::on_record(const sim::Record& record) {
  switch (record.kind) {
    case sim::RecordKind::kBoot:
      return set_power(record, NodePower::kBooting);
    case sim::RecordKind::kRunning:
      return set_power(record, NodePower::kRunning);
    case sim::RecordKind::kCrash:
      return set_power(record, NodePower::kOff);
    case sim::RecordKind::kStopped:
    case sim::RecordKind::kKilled:
      return set_power(record, NodePower::kStopped);
    case sim::RecordKind::kState:
      return change(record.time_us, ChangeKind::kState, place_of(record.a >> 8U, record.node),
                    (record.a & 0xFFU) == sim::kRingGone ? 0 : record.a & 0xFFU);
    case sim::RecordKind::kTimer:
      return set_timer(record);
    case sim::RecordKind::kCarrier:
      return change(record.time_us, ChangeKind::kCarrier, end_at(record.node, record.port),
                    record.a);
    case sim::RecordKind::kPortApplied:
      return change(record.time_us, ChangeKind::kPort, end_at(record.node, record.port),
                    record.a == 4 ? 1 : 0);
    case sim::RecordKind::kFlush:
      return mark(record.time_us, MarkKind::kFlush, end_at(record.node, record.port), record.a);
    case sim::RecordKind::kCirculating:
      return mark(record.time_us, MarkKind::kCirculating, record.node, 0);
    case sim::RecordKind::kCallFailed:
      return mark(record.time_us, MarkKind::kCallFailed, record.node, record.a);
    case sim::RecordKind::kClockStep:
      return mark(record.time_us, MarkKind::kClockStep, record.node, record.a);
    case sim::RecordKind::kSlowed:
      return mark(record.time_us, MarkKind::kSlowed, record.node, record.a);
    case sim::RecordKind::kStalled:
      return mark(record.time_us, MarkKind::kStalled, record.node, record.a);
    case sim::RecordKind::kCommand:
    case sim::RecordKind::kReply:
      return command(record);
    case sim::RecordKind::kFrameSent:
      return send(record);
    case sim::RecordKind::kFrameReceived:
      return receive(record);
    case sim::RecordKind::kFrameLost:
      return lose(record);
    default:
      return;
  }
}

// A strand is known to work or not only while both of its nodes have power.
void Recorder::on_forwarding(int64_t time_us, const sim::Forwarding& forwarding) {
  for (uint32_t strand = 0; strand < forwarding.arcs.size(); ++strand) {
    const sim::Arc& arc = forwarding.arcs[strand];
    if (forwarding.powered[arc.from] && forwarding.powered[arc.to]) {
      change(time_us, ChangeKind::kStrand, strand, arc.works ? 1 : 0);
    }
  }
}

uint32_t Recorder::end_at(uint32_t node, uint32_t port) const {
  const auto found = ends_.find({node, port});
  return found == ends_.end() ? kNothing : found->second;
}

uint32_t Recorder::place_of(uint32_t ring, uint32_t node) const {
  const auto found = places_.find({ring, node});
  return found == places_.end() ? kNothing : found->second;
}

bool Recorder::changes_to(ChangeKind kind, uint32_t subject, uint32_t value) {
  const auto [present, is_first] = present_.try_emplace({kind, subject}, value);
  const bool is_new = is_first || present->second != value;
  present->second = value;
  return is_new;
}

void Recorder::change(int64_t time_us, ChangeKind kind, uint32_t subject, uint32_t value) {
  if (subject == kNothing || !changes_to(kind, subject, value)) {
    return;
  }
  if (recording_.changes.size() < limits_.changes) {
    recording_.changes.push_back({time_us, kind, subject, value});
  } else if (!recording_.changes_end_us) {
    recording_.changes_end_us = time_us;
  }
}

void Recorder::mark(int64_t time_us, MarkKind kind, uint32_t subject, uint32_t value) {
  if (subject == kNothing) {
    return;
  }
  if (recording_.marks.size() < limits_.marks) {
    recording_.marks.push_back({time_us, kind, subject, value});
  } else if (!recording_.marks_end_us) {
    recording_.marks_end_us = time_us;
  }
}

// Without power the module and its port states are gone; the switch comes back with the ports of
// rings blocked and the others open.
void Recorder::set_power(const sim::Record& record, NodePower power) {
  change(record.time_us, ChangeKind::kPower, record.node, static_cast<uint32_t>(power));
  if (power == NodePower::kOff || power == NodePower::kStopped) {
    end_module(record);
  }
  for (const auto& [where, end] : ends_) {
    if (where.first != record.node) {
      continue;
    }
    if (power == NodePower::kOff) {
      change(record.time_us, ChangeKind::kCarrier, end, 0);
      change(record.time_us, ChangeKind::kPort, end, 0);
    } else if (power == NodePower::kBooting && !in_ring_[end / 2]) {
      change(record.time_us, ChangeKind::kPort, end, 1);
    }
  }
}

void Recorder::end_module(const sim::Record& record) {
  for (const auto& [where, place] : places_) {
    if (where.second == record.node) {
      change(record.time_us, ChangeKind::kState, place, 0);
    }
  }
  std::erase_if(running_, [&](const auto& entry) {
    const bool here = recording_.places[entry.first.first].node == record.node;
    if (here) {
      recording_.timers[entry.second.run].to_us = record.time_us;
      recording_.timers[entry.second.run].end = TimerEnd::kStopped;
    }
    return here;
  });
}

// A timer that is started while it runs has been stopped; one that stops when it is due has
// expired.
void Recorder::set_timer(const sim::Record& record) {
  const auto kind = static_cast<sim::TimerKind>(record.a & 0xFFU);
  const uint32_t place = place_of(record.a >> 8U, record.node);
  if (place == kNothing || kind == sim::TimerKind::kRepeat) {
    return;
  }
  const auto key = std::pair(place, kind);
  if (const auto running = running_.find(key); running != running_.end()) {
    end_timer(running->second, record.time_us);
    running_.erase(running);
  }
  if (record.b == sim::kTimerStopped) {
    return;
  }
  if (recording_.timers.size() < limits_.timers) {
    running_[key] = {recording_.timers.size(), record.time_us + int64_t{record.b} * 1000};
    recording_.timers.push_back({place, timer_kind(kind), record.time_us, 0, TimerEnd::kRunning});
  } else if (!recording_.timers_end_us) {
    recording_.timers_end_us = record.time_us;
  }
}

void Recorder::end_timer(const RunningTimer& running, int64_t time_us) {
  // What is left was told in whole milliseconds.
  const bool due = time_us + 1000 >= running.due_us;
  recording_.timers[running.run].to_us = time_us;
  recording_.timers[running.run].end = due ? TimerEnd::kExpired : TimerEnd::kStopped;
}

// What configures a node at its start is no news: only what is asked of one that runs.
void Recorder::command(const sim::Record& record) {
  const auto power = present_.find({ChangeKind::kPower, record.node});
  if (!is_operators(record.a) || power == present_.end() ||
      power->second != static_cast<uint32_t>(NodePower::kRunning)) {
    return;
  }
  if (record.kind == sim::RecordKind::kCommand) {
    mark(record.time_us, MarkKind::kCommand, record.node, record.b << 8U | record.a);
  } else if (record.b != 0) {
    mark(record.time_us, MarkKind::kRefused, record.node, record.b << 8U | record.a);
  }
}

uint32_t Recorder::text_of(const sim::Record& record) {
  const auto next = static_cast<uint32_t>(recording_.texts.size());
  const auto [known, is_new] = texts_.try_emplace({record.a, record.b}, next);
  if (is_new) {
    recording_.texts.push_back(parse_text(record.a, record.b));
  }
  return known->second;
}

void Recorder::send(const sim::Record& record) {
  const uint32_t strand = end_at(record.node, record.port);
  if (strand == kNothing) {
    return;
  }
  Flight flight = depart(record.time_us, strand, text_of(record));
  const auto carrier = present_.find({ChangeKind::kCarrier, strand});
  if (carrier == present_.end() || carrier->second == 0) {
    return arrive(flight, record.time_us, Fate::kLost);  // its own port sees no link
  }
  auto& flights = strands_[strand].flights;
  while (!flights.empty() && record.time_us - flights.front().from_us > kLongestFlightUs) {
    arrive(flights.front(), flights.front().from_us, Fate::kLost);
    flights.pop_front();
  }
  flights.push_back(flight);
}

Recorder::Flight Recorder::depart(int64_t time_us, uint32_t strand, uint32_t text) {
  const auto [last, is_first] = strands_[strand].last_sent.try_emplace(text, time_us);
  const bool repeated = !is_first && time_us - last->second < kRepeatedWithinUs;
  last->second = time_us;
  const size_t present = repeated ? repeats_ : recording_.messages.size() - repeats_;
  if (present >= (repeated ? limits_.repeats : limits_.messages)) {
    auto& end = repeated ? recording_.repeats_end_us : recording_.messages_end_us;
    end = end.value_or(time_us);
    return {kUnrecorded, text, time_us};
  }
  repeats_ += repeated ? 1 : 0;
  recording_.messages.push_back({time_us, 0, strand, text, Fate::kUnderWay, repeated});
  return {static_cast<uint32_t>(recording_.messages.size() - 1), text, time_us};
}

void Recorder::arrive(const Flight& flight, int64_t time_us, Fate fate) {
  if (flight.message != kUnrecorded) {
    recording_.messages[flight.message].to_us = time_us;
    recording_.messages[flight.message].fate = fate;
  }
}

void Recorder::receive(const sim::Record& record) {
  // The strand leads away from the other end of the link.
  const uint32_t strand = end_at(record.node, record.port) ^ 1U;
  if (strand >= strands_.size()) {
    return;
  }
  const uint32_t text = text_of(record);
  auto& flights = strands_[strand].flights;
  const auto flight = std::find_if(flights.begin(), flights.end(), [&](const Flight& each) {
    return each.text == text && record.time_us - each.from_us <= kLongestFlightUs;
  });
  auto& arrived = strands_[strand].arrived;
  if (flight != flights.end()) {
    arrive(*flight, record.time_us, Fate::kArrived);
    arrived = *flight;
    flights.erase(flight);
  } else if (arrived && arrived->text == text) {  // the link doubled it
    arrive(depart(arrived->from_us, strand, text), record.time_us, Fate::kArrived);
  }
}

void Recorder::lose(const sim::Record& record) {
  const uint32_t strand = end_at(record.node, record.port);
  if (strand == kNothing) {
    return;
  }
  const uint32_t text = text_of(record);
  auto& flights = strands_[strand].flights;
  const auto flight = std::find_if(flights.begin(), flights.end(),
                                   [&](const Flight& each) { return each.text == text; });
  if (flight != flights.end()) {
    arrive(*flight, record.time_us, Fate::kLost);
    flights.erase(flight);
  }
}

}  // namespace erps::lab
