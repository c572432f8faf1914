// A node's rings and running timers as its module holds them, read straight from its memory. The
// module notices nothing: no lock is taken, no message sent.
//
// Threading: that of the simulation, outside of all tasks or inside of any: a task that is in the
// middle of an event may have changed half of what it will change. Errors: SimError when the module
// was stripped (module_symbols.h).
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "sim/topology.h"

namespace erps::sim {

class ModuleCopy;

struct PortSnapshot {
  uint32_t port = 0;
  bool present = false;  // the second port of a sub-ring's instance is not
  bool rpl = false;      // the node's port at the RPL
  bool link_up = false;
  bool forwarding = false;
  uint32_t fail_count = 0;  // failure reports received here and not yet cleared
  MacAddress rx_node_id{};  // last node ID and blocked port reference received here
  uint8_t rx_bpr = 0;

  friend bool operator==(const PortSnapshot&, const PortSnapshot&) = default;
};

struct RingSnapshot {
  uint32_t ring = 0;
  uint32_t ring_role = 0;  // 0 major ring, 1 ring whose R-APS channel is open, 2 sub-ring
  uint32_t node_role = 0;  // 1 RPL owner, 2 RPL neighbour, 4 neither
  bool enabled = false;
  bool revertive = true;
  uint32_t state = 0;             // state_name() of management.h
  uint32_t local_priority = 0;    // the present local request
  uint32_t current_priority = 0;  // the request that holds the ring
  std::array<PortSnapshot, 2> ports;
  bool sending = false;  // R-APS messages are repeated
  uint8_t tx_request = 0;
  bool tx_rb = false;
  bool tx_dnf = false;
  bool tx_bpr = false;  // of a tagged message
  bool guard_running = false;
  bool holdoff_running = false;
  int32_t inter_fault_port = 0;
  uint32_t notify_state = 0;  // 1 major ring cut, 2 whole, as told to the sub-ring
  MacAddress local_node_id{};
  MacAddress remote_node_id{};

  friend bool operator==(const RingSnapshot&, const RingSnapshot&) = default;
};

enum class TimerKind : uint32_t { kWtr, kWtb, kGuard, kHoldoff, kRepeat };
const char* timer_name(TimerKind kind);

struct TimerSnapshot {
  uint32_t ring = 0;
  TimerKind kind{};
  int64_t left_ms = 0;  // negative once it is due, until the module's next tick finds it

  friend bool operator==(const TimerSnapshot&, const TimerSnapshot&) = default;
};

// Where a copy of the module keeps its records.
struct RecordAddresses {
  const void* rings = nullptr;  // the head of the ring list

  // Finds them; what was found in a module is remembered.
  static RecordAddresses of(const ModuleCopy& module);
};

// For who exchanges the memory of a module: rewrites what the records remember of time as if all of
// it had happened earlier by so many seconds. What is remembered but not looked at before it is
// written again becomes zero, so that it cannot tell two states apart: the times of timers that do
// not run and, unless an expiry waits to be handled, the requests that expiries made.
void settle_times(const RecordAddresses& addresses, uint32_t seconds, bool expiry_waits);

// What is compared to see that something has changed, cheap enough to be read after every event.
struct RingWords {
  struct Timer {
    bool active = false;
    int64_t expire_us = 0;  // on the node's clock

    friend bool operator==(const Timer&, const Timer&) = default;
  };
  uint32_t ring = 0;
  uint32_t state = 0;
  std::array<Timer, 5> timers;  // by TimerKind

  friend bool operator==(const RingWords&, const RingWords&) = default;
};

// Rings in the order of their making, newest first; timers of a ring in the order of TimerKind.
class ModuleRecords {
 public:
  // Of a node without power: no rings.
  ModuleRecords() = default;
  // clock_us: what the node's gettimeofday would say.
  ModuleRecords(const RecordAddresses& addresses, int64_t clock_us)
      : addresses_(addresses), clock_us_(clock_us) {}

  std::vector<RingSnapshot> rings() const;
  std::vector<TimerSnapshot> timers() const;
  // The same into a vector that is used again and again: nothing is allocated once it is large
  // enough.
  void read_rings(std::vector<RingSnapshot>& rings) const;
  void read_timers(std::vector<TimerSnapshot>& timers) const;
  void read_words(std::vector<RingWords>& words) const;

 private:
  RecordAddresses addresses_;
  int64_t clock_us_ = 0;
};

}  // namespace erps::sim
