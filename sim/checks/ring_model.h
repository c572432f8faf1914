// What a ring at a node does with a request, after ITU-T G.8032 clause 10 as this system follows
// it: a second account of it, by which the module is judged.
//
// A model is a ring as the module holds it (RingSnapshot); a request changes state, local request,
// ports, and what is sent.
#pragma once

#include <array>
#include <cstdint>

#include "sim/module_records.h"

namespace erps::sim {

// By rank, the higher before the lower; kWtr and kWtb run, the expiries end them.
enum class RingRequest : uint32_t {
  kNothing = 0,
  kRapsNr = 1,
  kRapsNrRb = 2,
  kWtb = 3,
  kWtbExpires = 4,
  kWtr = 5,
  kWtrExpires = 6,
  kMs = 7,
  kRapsMs = 8,
  kRapsSf = 9,
  kClearSf = 10,
  kSf = 11,
  kRapsFs = 12,
  kFs = 13,
  kClear = 14,
};

enum class RingState : uint32_t { kInit, kIdle, kProtection, kManual, kForced, kPending };

// What else the request is about.
struct RequestDetails {
  uint32_t port = 0;             // that FS or MS name
  bool from_lower_node = false;  // R-APS from a node ID below the own one
};

// The request of a received message; nothing for Events and unknown ones.
RingRequest request_of(uint32_t raps_request, bool rb);

class RingModel {
 public:
  explicit RingModel(const RingSnapshot& ring) : now(ring) {}

  // The ring is enabled, with its links as they are found: from now on it is pending, and in
  // protection where one is down. Each is looked at twice, at the beginning (links_were_up) and
  // when its turn comes, and both looks need not see the same.
  void start(const std::array<bool, 2>& links_were_up);

  // False when the request has not the rank to change anything.
  bool offer(RingRequest request, const RequestDetails& details);

  // The major ring's word to its sub-ring: 1 cut on both sides, 2 whole.
  void indicate(uint32_t indication);

  RingSnapshot now;
  bool guard_started = false;

 private:
  RingState state() const { return static_cast<RingState>(now.state); }
  void enter(RingState state) { now.state = static_cast<uint32_t>(state); }
  bool owner() const { return (now.node_role & 1U) != 0; }
  bool plain() const { return (now.node_role & 4U) != 0; }
  bool sub_ring() const { return now.ring_role == 2; }

  template <typename Change>
  void for_ports(Change change) {
    change(now.ports[0]);
    if (!sub_ring()) {
      change(now.ports[1]);
    }
  }
  bool any_blocked() const;
  void block_rpl();
  void unblock_non_rpl();
  void unblock_up();
  void block_failed();
  void select(uint32_t blocked_port);
  void send(uint32_t request, bool rb);
  void stop_sending() { now.sending = false; }
  void withdraw(RingRequest running);
  void stop_waiting();
  void wait_to_restore();
  void wait_to_block();

  void act(RingRequest request, const RequestDetails& details);
  void clear();
  void forced_switch(const RequestDetails& details);
  void raps_forced_switch();
  void signal_fail();
  void clear_signal_fail();
  void raps_signal_fail();
  void raps_manual_switch();
  void manual_switch(const RequestDetails& details);
  void restore_block();
  void raps_no_request_blocked();
  void raps_no_request(const RequestDetails& details);
  void replay_indication();
};

}  // namespace erps::sim
