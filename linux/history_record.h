// One thing that happened in this node, as the history keeps it and the journal writes it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <type_traits>

namespace erps::linux_platform {

enum class HistoryKind : uint8_t {
  kRapsReceived,  // "raps-rx"
  kRapsSent,      // "raps-tx"
  kPortState,     // "port-state"
  kLink,          // "link"
  kFlush,         // "flush"
  kCommand,       // "command": a management announcement reached the protocol task
  kDoorDrop,      // "door-drop": an outside message was refused
  kCapture,       // "capture"
  kMalformed,     // "raps-malformed": a received R-APS was too short to be read here
  kFlood,         // "raps-flood": frames of a flood were refused, told once a second
};

// What was being handled when the module asked for something.
enum class CauseKind : uint8_t {
  kNone,      // no event of the protocol task: start, stop, or another task
  kLinkDown,  // a link went down on cause_port
  kLinkUp,    // a link came up on cause_port
  kRaps,      // an R-APS that came in at cause_port, cause_value is its request/state
  kTimer,     // a timer event
  kCommand,   // a management announcement
  kEvent,     // another in-process event, its type is cause_value
  kReapply,   // the kernel had undone what was wanted: carrier, enslavement or bridge came back
  kStart,     // the platform started
  kStop,      // the platform stopped
};

// Phases of a port state or flush record.
enum class Phase : uint8_t { kAsked, kApplied, kFailed };

// Plain data, copied into the ring as it stands.
struct HistoryRecord {
  uint64_t sequence;  // counts from 0 without gaps
  int64_t mono_ns;    // CLOCK_MONOTONIC when it happened (a frame: when it arrived)
  int64_t wall_ns;    // CLOCK_REALTIME of the same moment
  int64_t took_ns;    // frame: from its arrival until the task got it; port state, flush: the
                      // duration of the kernel call; 0 otherwise
  HistoryKind kind;
  CauseKind cause;
  Phase phase;
  uint8_t port;  // port number, 0 when the record is about none
  uint8_t cause_port;
  uint8_t cause_value;
  uint8_t state;                   // port state: 4 forwarding, 1 discarding; link: 1 up, 0 down
  uint8_t request;                 // R-APS: request/state
  uint8_t sub_code;                // R-APS: low half of the request byte
  uint8_t status;                  // R-APS: the status byte: RB 0x80, DNF 0x40, BPR 0x20
  uint8_t ring;                    // R-APS: last byte of the destination address
  uint8_t reason;                  // door drop: DoorVerdict
  uint16_t vlan;                   // R-APS: VLAN ID, 0 untagged
  uint16_t length;                 // frame or message length in bytes
  int32_t error;                   // errno of what failed, 0 otherwise
  std::array<uint8_t, 6> node_id;  // R-APS: the sender's node ID
  std::array<uint8_t, 6> source;   // R-APS, flood: source address
  std::array<uint8_t, 6> cause_node_id;  // node ID of the R-APS that is the cause
  // capture: mechanism; flood: how many frames; never longer than fits, always terminated
  char text[42];
};
static_assert(std::is_trivially_copyable_v<HistoryRecord>);

// One JSON object without a line end: {"mono_ns":..,"wall_ns":..,"kind":"raps-rx","port":1,...}.
std::string to_json_line(const HistoryRecord& record);

}  // namespace erps::linux_platform
