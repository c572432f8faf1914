#include "sim/checks/flush_checker.h"

#include <algorithm>

#include "sim/checks/flush_model.h"
#include "sim/checks/reception.h"
#include "sim/checks/ring_questions.h"
#include "sim/checks/surprises.h"
#include "sim/management.h"
#include "sim/simulation.h"

namespace erps::sim {

namespace {

// Behind everything that waits at a node that is slow, or stands still for a while.
constexpr int64_t kToldUs = 10 * kSecondUs;

}  // namespace

void FlushChecker::on_record(const Record& record) {
  switch (record.kind) {
    case RecordKind::kEvent:
      events_[record.node].flushed.clear();
      events_[record.node].sent.clear();
      break;
    case RecordKind::kFlush:
      events_[record.node].flushed.push_back(record.port);
      break;
    case RecordKind::kFrameSent:
      // The timer task may repeat meanwhile what was said before.
      if (simulation_ == nullptr || simulation_->handles_event(record.node)) {
        events_[record.node].sent.push_back({record.a, record.b});
      }
      break;
    case RecordKind::kCrash:
    case RecordKind::kKilled:
    case RecordKind::kStopped:
      std::erase_if(news_, [&](const auto& entry) { return entry.first.first == record.node; });
      break;
    default:
      break;
  }
}

const char* FlushChecker::surprise_of(NodeIndex node, int64_t since_us) const {
  return mishaps_ != nullptr && mishaps_->call_failed(node, since_us) ? surprise::kCallFailed : "";
}

void FlushChecker::find(const Step& step, const std::string& text) {
  findings_.add({"flush", step.from_us, step.to_us, step.node,
                 "ring " + std::to_string(step.ring()) + ": " + text,
                 surprise_of(step.node, step.from_us)});
}

void FlushChecker::on_step(const Step& step) {
  const auto is_untagged = [](const RingConfig& ring) { return ring.control_vlan == 0; };
  const NodePlan& plan = topology_.nodes[step.node];
  if (step.before == nullptr || step.after == nullptr || !step.before->enabled ||
      !step.after->enabled || std::any_of(plan.rings.begin(), plan.rings.end(), is_untagged)) {
    return;
  }
  expect_flushed(step);
  if (step.cause == Step::Cause::kFrame && takes_message(step)) {
    expect_known_sender(step);
  }
  if (step.before->ring_role == kSubRingRole) {
    watch_sub_ring(step);
  } else {
    expect_reference(step);
  }
  if (step.cause == Step::Cause::kTopologyChange) {
    expect_told(step);
  }
}

void FlushChecker::expect_flushed(const Step& step) {
  const PortSet demanded = ports_to_flush(step);
  const std::vector<uint32_t>& flushed = events_[step.node].flushed;
  for (size_t place = 0; place < demanded.size(); ++place) {
    const uint32_t port = step.before->ports[place].port;
    if (demanded[place] && std::find(flushed.begin(), flushed.end(), port) == flushed.end()) {
      find(step, "port " + std::to_string(port) + " was not flushed, " +
                     state_name(step.before->state) + " before, " + state_name(step.after->state) +
                     " now");
    }
  }
}

void FlushChecker::expect_known_sender(const Step& step) {
  const PortSnapshot& port = step.after->ports[place_of(*step.after, step.port)];
  if (!(known_sender(port) == sender_of(step.message))) {
    find(step, "port " + std::to_string(port.port) +
                   " does not know the sender of the message that came in");
  }
}

// The port whose link has changed, or that a manual switch has blocked.
void FlushChecker::expect_reference(const Step& step) {
  const MacAddress& own = step.before->local_node_id;
  for (size_t place = 0; place < step.before->ports.size(); ++place) {
    const PortSnapshot& before = step.before->ports[place];
    const PortSnapshot& after = step.after->ports[place];
    uint32_t request = 0;
    if (step.cause == Step::Cause::kCommand && step.command == mgmt::kManualSwitch &&
        before.forwarding && !after.forwarding) {
      request = kMsCode;
    } else if (step.cause != Step::Cause::kCommand && before.link_up != after.link_up) {
      request = after.link_up ? kNrCode : kSfCode;
    } else {
      continue;
    }
    for (const RapsMessage& message : events_[step.node].sent) {
      const bool is_own = message.ring() == (step.ring() & 0xFFU) &&
                          message.node == (uint32_t{own[4]} << 8U | own[5]);
      if (is_own && message.request() == request && !message.rb() &&
          reference_of(message) != (place == 1)) {
        find(step, "a message names the other port than " + std::to_string(before.port));
      }
    }
  }
}

void FlushChecker::watch_sub_ring(const Step& step) {
  const RingSnapshot& before = *step.before;
  News& news = news_[{step.node, before.ring}];
  for (const int64_t since_us : news.untold_since_us) {
    if (step.from_us - since_us > kToldUs) {
      find(step, "the major ring was never told of a change");
    }
  }
  std::erase_if(news.untold_since_us,
                [&](int64_t since_us) { return step.from_us - since_us > kToldUs; });
  const bool is_held_off =
      !step.up && topology_.nodes[step.node].holdoff_ms != 0 && !before.holdoff_running;
  const bool link_changed =
      (step.cause == Step::Cause::kLink && has_port(before, step.port) && !is_held_off) ||
      (step.cause == Step::Cause::kTimer && before.ports[0].link_up &&
       !step.after->ports[0].link_up);
  bool has_news = link_changed;
  // A message that the platform did not hand over leaves no trace.
  const bool was_read = known_sender(step.after->ports[0]) == sender_of(step.message);
  if (step.cause == Step::Cause::kFrame && takes_message(step) && asks_for_flush(step) &&
      was_read && (step.message.request() == kNrCode || step.message.request() == kSfCode)) {
    const uint32_t status = step.message.summary & 0xFFFFU;
    has_news = status != news.status || step.message.node != news.node;
    news.status = status;
    news.node = step.message.node;
  }
  if (has_news) {
    news.untold_since_us.push_back(step.from_us);
  }
}

// The event that tells is handled: an Event goes out on the major ring.
void FlushChecker::expect_told(const Step& step) {
  const auto& sub_rings = topology_.nodes[step.node].sub_rings;
  for (const SubRingConfig& sub_ring : sub_rings) {
    if (sub_ring.major_ring != step.ring()) {
      continue;
    }
    std::vector<int64_t>& untold = news_[{step.node, sub_ring.ring}].untold_since_us;
    if (!untold.empty()) {
      untold.erase(untold.begin());
    }
  }
  if (sub_rings.size() == 1 && sub_rings.front().major_ring == step.ring() &&
      step.after->tx_request != kEventCode) {
    find(step, "no Event tells of a change in the sub-ring");
  }
}

void FlushChecker::collect(int64_t now_us, std::vector<Finding>& findings) {
  findings_.append_to(findings);
  for (const auto& [where, news] : news_) {
    for (const int64_t since_us : news.untold_since_us) {
      if (now_us - since_us > kToldUs) {
        findings.push_back(
            {"flush", since_us, now_us, where.first,
             "ring " + std::to_string(where.second) + ": the major ring was never told of a change",
             surprise_of(where.first, since_us)});
      }
    }
  }
}

}  // namespace erps::sim
