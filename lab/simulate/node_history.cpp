#include "lab/simulate/node_history.h"

#include <string_view>
#include <utility>

#include "erps/raps/frame.h"
#include "lab/clock.h"
#include "sim/learning_switch.h"

namespace erps::lab {

namespace {

constexpr int64_t kNsPerUs = 1000;

// "SF", "NR,RB", "SF,DNF": as the daemon's journal has it.
std::string message_text(uint32_t record_word) {
  const uint32_t status = record_word & 0xFFU;
  const std::string name = raps::request_name(record_word >> 12U & 0xFU, 0);
  constexpr std::string_view kPrefix = "RAPS_";
  std::string text = name.rfind(kPrefix, 0) == 0 ? name.substr(kPrefix.size()) : name;
  text += (status & raps::kStatusRb) != 0 ? ",RB" : "";
  return text + ((status & raps::kStatusDnf) != 0 ? ",DNF" : "");
}

}  // namespace

NodeEvent NodeHistory::message(const sim::Record& record, EventKind kind) const {
  NodeEvent event;
  event.kind = kind;
  event.ring = record.a >> 16U;
  event.message = message_text(record.a);
  // The record has the end of the node ID, which tells the nodes of one file apart.
  for (const Node& node : topology_.nodes) {
    const auto& bytes = node.address.bytes;
    if ((uint32_t{bytes[4]} << 8U | bytes[5]) == record.b) {
      event.node_id = to_text(node.address);
    }
  }
  return event;
}

void NodeHistory::on_record(const sim::Record& record) {
  NodeEvent event;
  switch (record.kind) {
    case sim::RecordKind::kCarrier:
      event.kind = record.a != 0 ? EventKind::kLinkUp : EventKind::kLinkDown;
      break;
    case sim::RecordKind::kPortApplied:
      event.kind = record.a == sim::kForwarding ? EventKind::kOpened : EventKind::kBlocked;
      break;
    case sim::RecordKind::kFlush:
      event.kind = EventKind::kFlushed;
      break;
    case sim::RecordKind::kFrameSent:
      ++sent_;
      event = message(record, EventKind::kSent);
      break;
    case sim::RecordKind::kFrameReceived:
      ++received_;
      event = message(record, EventKind::kReceived);
      break;
    case sim::RecordKind::kFrameLost:
      ++lost_;
      return;
    default:
      return;
  }
  event.mono_ns = record.time_us * kNsPerUs;
  event.port = record.port;
  events_.at(record.node).push_back(std::move(event));
}

std::vector<std::vector<NodeEvent>> NodeHistory::take() {
  return std::exchange(events_, std::vector<std::vector<NodeEvent>>(topology_.nodes.size()));
}

}  // namespace erps::lab
