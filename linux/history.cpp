#include "linux/history.h"

#include <algorithm>

#include "erps/raps/frame.h"
#include "linux/clock.h"

namespace erps::linux_platform {

Cause& current_cause() {
  static thread_local Cause cause;
  return cause;
}

HistoryRecord History::make(HistoryKind kind, uint32_t port) {
  return make(kind, port, current_cause());
}

HistoryRecord History::make(HistoryKind kind, uint32_t port, const Cause& cause) {
  HistoryRecord record{};
  record.mono_ns = mono_now_ns();
  record.wall_ns = wall_now_ns();
  record.kind = kind;
  record.port = static_cast<uint8_t>(port);
  record.cause = cause.kind;
  record.cause_port = cause.port;
  record.cause_value = cause.value;
  record.cause_node_id = cause.node_id;
  return record;
}

bool History::describe_raps(const uint8_t* frame, size_t length, HistoryRecord& record) {
  if (length < raps::kUntaggedPdu) {
    return false;
  }
  record.length = static_cast<uint16_t>(std::min<size_t>(length, UINT16_MAX));
  record.ring = frame[raps::kRingIdOffset];
  std::copy_n(frame + raps::kSourceOffset, raps::kMacLength, record.source.begin());
  const auto ether_type = [&](size_t pdu) {
    return static_cast<uint16_t>(frame[pdu - 2] << 8 | frame[pdu - 1]);
  };
  size_t pdu = raps::kUntaggedPdu;
  if (ether_type(pdu) != raps::kEtherTypeCfm && length >= raps::kTaggedPdu) {
    pdu = raps::kTaggedPdu;
    record.vlan = static_cast<uint16_t>(
        (frame[raps::kTciOffset] << 8 | frame[raps::kTciOffset + 1]) & 0x0FFF);
  }
  if (ether_type(pdu) != raps::kEtherTypeCfm || length < pdu + raps::kNodeIdOffset + 6) {
    return false;
  }
  const raps::PduView view(frame + pdu);
  record.request = view.request();
  record.sub_code = view.sub_code();
  record.status = view.status();
  std::copy_n(view.node_id(), raps::kMacLength, record.node_id.begin());
  return true;
}

std::vector<HistoryRecord> History::latest(size_t limit) const {
  std::vector<HistoryRecord> records;
  const uint64_t end = ring_.next();
  const uint64_t count = std::min<uint64_t>({end, limit, kCapacity});
  records.reserve(count);
  HistoryRecord record;
  for (uint64_t sequence = end - count; sequence < end; ++sequence) {
    if (ring_.read(sequence, record) == Ring::Read::kDone) {
      record.sequence = sequence;
      records.push_back(record);
    }
  }
  return records;
}

}  // namespace erps::linux_platform
