#include "sim/checks/timer_checker.h"

#include <algorithm>
#include <utility>

#include "sim/checks/bounds.h"
#include "sim/checks/ring_questions.h"
#include "sim/checks/surprises.h"
#include "sim/checks/time_text.h"

namespace erps::sim {

namespace {

// What ticks and tasks are late, at the usual pace.
constexpr int64_t kLateUs = 100 * kMillisecondUs;
constexpr std::array<const char*, 4> kNames{"WTR", "WTB", "guard", "hold-off"};

bool is_in(uint32_t state, RingState expected) {
  return state == static_cast<uint32_t>(expected);
}

// The guard starts where a node's own reason to block has gone. A clear that finds no block leaves
// alone the one that runs.
bool starts_guard(const Step& step) {
  const uint32_t from = step.before->state;
  if (step.cause == Step::Cause::kCommand && !has_block(*step.before)) {
    return false;
  }
  return is_in(step.after->state, RingState::kPending) && step.after->guard_running &&
         (is_in(from, RingState::kProtection) || is_in(from, RingState::kManual) ||
          is_in(from, RingState::kForced));
}

}  // namespace

TimerChecker::TimerChecker(const Topology& topology, const RingWatch& watch, const Mishaps& mishaps)
    : topology_(topology),
      watch_(watch),
      mishaps_(mishaps),
      slowness_(topology.nodes.size(), 1),
      late_until_us_(topology.nodes.size(), kNone) {}

int64_t TimerChecker::tolerance_us(NodeIndex node) const {
  return slowness_[node] * kLateUs;
}

// The first in the list holds up the others: for a tick where they are due in the same second, and
// for its whole time where it was started again, which does not move it.
int64_t TimerChecker::lateness_us(NodeIndex node) const {
  return 2 * kTickUs + int64_t{topology_.nodes[node].guard_ms} * kMillisecondUs +
         tolerance_us(node);
}

TimerChecker::Limits TimerChecker::limits(NodeIndex node, Kind kind) const {
  const NodePlan& plan = topology_.nodes[node];
  const int64_t late_us = lateness_us(node);
  const int64_t guard_us = int64_t{plan.guard_ms} * kMillisecondUs;
  switch (kind) {
    case kWtr: {
      const int64_t whole_us = int64_t{plan.wtr_ms} / 1000 * kSecondUs;
      return {whole_us - kSecondUs, whole_us + late_us};
    }
    case kWtb:
      return {guard_us + 5 * kSecondUs, guard_us + 5 * kSecondUs + late_us};
    case kGuard:
      return {guard_us, guard_us + late_us};
    default: {
      const int64_t holdoff_us = int64_t{plan.holdoff_ms} * kMillisecondUs;
      return {holdoff_us, holdoff_us + late_us};
    }
  }
}

void TimerChecker::expect_not_early(const Step& step, const Timers& timers, Kind kind) {
  const int64_t since_us = timers.since_us[kind];
  const Limits allowed = limits(step.node, kind);
  // What is measured is between the beginning of one event and the beginning of the other.
  const int64_t took_us = step.from_us - since_us + tolerance_us(step.node);
  // The expiry of the one before may have waited beside what started it anew.
  const bool was_late = since_us <= late_until_us_[step.node];
  if (since_us != kNone && !was_late && took_us < allowed.least_us) {
    findings_.add({"timer",
                   since_us,
                   step.from_us,
                   step.node,
                   std::string(kNames[kind]) + " of ring " + std::to_string(step.ring()) +
                       " ended after " + in_seconds(step.from_us - since_us) + ", before " +
                       in_seconds(allowed.least_us),
                   {}});
  }
}

void TimerChecker::expect_not_overdue(NodeIndex node, uint32_t ring, const Timers& timers,
                                      int64_t now_us, FindingList& into) const {
  const std::string of_ring = " of ring " + std::to_string(ring);
  for (size_t kind = 0; kind < kKinds; ++kind) {
    const int64_t since_us = timers.since_us[kind];
    const int64_t most_us = limits(node, static_cast<Kind>(kind)).most_us;
    if (since_us != kNone && now_us - since_us > most_us) {
      into.add({"timer",
                since_us,
                now_us,
                node,
                kNames[kind] + of_ring + " runs for more than " + in_seconds(most_us),
                {}});
    }
  }
  expect_repeated(node, ring, timers, now_us, into);
}

void TimerChecker::expect_repeated(NodeIndex node, uint32_t ring, const Timers& timers,
                                   int64_t now_us, FindingList& into) const {
  int64_t quiet_since_us = timers.has_to_send_since_us;
  for (const auto& [port, sent] : timers.sent) {
    quiet_since_us = quiet_since_us == kNone ? kNone : std::max(quiet_since_us, sent.at_us);
  }
  const int64_t most_us = kRepetitionUs + lateness_us(node);
  if (quiet_since_us != kNone && now_us - quiet_since_us > most_us) {
    into.add({"timer", quiet_since_us, now_us, node,
              "R-APS of ring " + std::to_string(ring) + " was not repeated for more than " +
                  in_seconds(most_us),
              mishaps_.call_failed(node, quiet_since_us) ? surprise::kCallFailed : ""});
  }
}

void TimerChecker::on_step(const Step& step) {
  if (step.before == nullptr || step.after == nullptr || !step.after->enabled) {
    timers_.erase({step.node, step.ring()});
    return;
  }
  const RingSnapshot& before = *step.before;
  const RingSnapshot& after = *step.after;
  Timers& timers = timers_[{step.node, step.ring()}];
  if (!before.guard_running) {
    expect_not_early(step, timers, kGuard);
    end(timers, kGuard);
  }
  expect_not_overdue(step.node, step.ring(), timers, step.from_us, findings_);

  // The end of a hold-off stops what waits, too.
  const bool expired =
      step.cause == Step::Cause::kTimer && !is_in(after.state, RingState::kProtection);
  const auto follow = [&](Kind kind, bool ran, bool runs_now) {
    if (ran && !runs_now) {
      if (expired || (kind == kHoldoff && step.cause == Step::Cause::kTimer)) {
        expect_not_early(step, timers, kind);
      }
      end(timers, kind);
    } else if (!ran && runs_now) {
      start(timers, kind, step.from_us);
    }
  };
  follow(kWtr, has_local(before, RingRequest::kWtr), has_local(after, RingRequest::kWtr));
  follow(kWtb, has_local(before, RingRequest::kWtb), has_local(after, RingRequest::kWtb));
  follow(kHoldoff, before.holdoff_running, after.holdoff_running);
  if (starts_guard(step)) {
    start(timers, kGuard, step.from_us);
  }
  watch_sending(step, timers);
}

// Since when there is something to repeat, and a port to do it through.
void TimerChecker::watch_sending(const Step& step, Timers& timers) {
  const RingSnapshot& after = *step.after;
  const bool passes_blocks = after.ring_role != 0;
  const bool can =
      std::any_of(after.ports.begin(), after.ports.end(), [&](const PortSnapshot& port) {
        return port.present && port.link_up && (passes_blocks || port.forwarding);
      });
  if (!after.sending || !can) {
    timers.has_to_send_since_us = kNone;
  } else if (timers.has_to_send_since_us == kNone || after.tx_request != step.before->tx_request ||
             after.tx_rb != step.before->tx_rb) {
    timers.has_to_send_since_us = step.to_us;
  }
}

void TimerChecker::on_sent(const Record& record) {
  const MacAddress& own = topology_.nodes[record.node].address;
  // An Event that is sent by itself does not start the five seconds again.
  const bool is_single =
      watch_.in_event(record.node) && RapsMessage{record.a, record.b}.request() == kEventCode;
  if (is_single || record.b != (uint32_t{own[4]} << 8U | own[5])) {
    return;
  }
  for (auto at = timers_.lower_bound({record.node, 0});
       at != timers_.end() && at->first.first == record.node; ++at) {
    auto& [where, timers] = *at;
    if ((where.second & 0xFFU) != RapsMessage{record.a, 0}.ring()) {
      continue;
    }
    expect_repeated(where.first, where.second, timers, record.time_us, findings_);
    expect_due(record, timers.sent[record.port]);
  }
}

void TimerChecker::expect_due(const Record& record, Sent& sent) {
  const int64_t now_us = record.time_us;
  const int64_t last_us = std::exchange(sent.at_us, now_us);
  const int64_t late_us = lateness_us(record.node);
  if (last_us == kNone || last_us <= late_until_us_[record.node]) {
    sent.due_us = now_us + kRepetitionUs - late_us;  // this one may be late
    return;
  }
  const bool may_be_new = watch_.in_event(record.node);
  const bool is_due = now_us + tolerance_us(record.node) >= sent.due_us;
  if (!is_due && !may_be_new) {
    findings_.add({"timer",
                   last_us,
                   now_us,
                   record.node,
                   "R-APS was repeated after " + in_seconds(now_us - last_us) + ", " +
                       in_seconds(sent.due_us - now_us) + " before it was due",
                   {}});
  }
  // In an event it may be either when it is due.
  if (!is_due && may_be_new) {
    sent.due_us = now_us + kRepetitionUs;
    return;
  }
  do {
    sent.due_us += kRepetitionUs;
  } while (sent.due_us + late_us < now_us);
}

// A message that is said anew, with the same words, is repeated from then on.
void TimerChecker::on_timer(const Record& record) {
  const auto timers = timers_.find({record.node, record.a >> 8U});
  const bool is_repetition = (record.a & 0xFFU) == static_cast<uint32_t>(TimerKind::kRepeat);
  if (is_repetition && record.b != kTimerStopped && watch_.in_event(record.node) &&
      timers != timers_.end() && timers->second.has_to_send_since_us != kNone) {
    timers->second.has_to_send_since_us = record.time_us;
  }
}

void TimerChecker::forget(NodeIndex node) {
  timers_.erase(timers_.lower_bound({node, 0}), timers_.lower_bound({node + 1, 0}));
}

void TimerChecker::on_record(const Record& record) {
  switch (record.kind) {
    case RecordKind::kFrameSent:
      on_sent(record);
      break;
    case RecordKind::kTimer:
      on_timer(record);
      break;
    case RecordKind::kSlowed:
      slowness_[record.node] = std::max<int64_t>(1, record.a);
      forget(record.node);
      break;
    case RecordKind::kStalled:
      late_until_us_[record.node] =
          record.time_us + int64_t{record.a} * kMillisecondUs + kTickUs + tolerance_us(record.node);
      [[fallthrough]];
    case RecordKind::kClockStep:
    case RecordKind::kCrash:
    case RecordKind::kKilled:
    case RecordKind::kStopped:
      forget(record.node);
      break;
    default:
      break;
  }
}

void TimerChecker::collect(int64_t now_us, std::vector<Finding>& findings) {
  FindingList late = findings_;
  for (const auto& [where, timers] : timers_) {
    Timers seen = timers;
    // Whether the guard is over shows at the next event only.
    seen.since_us[kGuard] = kNone;
    expect_not_overdue(where.first, where.second, seen, now_us, late);
  }
  late.append_to(findings);
}

}  // namespace erps::sim
