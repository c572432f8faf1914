// The ports where an event makes a node forget learnt addresses, after ITU-T G.8032 clause 10.1.10
// as this system follows it: a second account of it, by which the module is judged.
//
// Only what must be forgotten: a flush more costs some flooding and harms nobody.
//
// Threading: any. Errors: none.
#pragma once

#include <array>
#include <cstdint>

#include "sim/checks/ring_watch.h"

namespace erps::sim {

// By place in RingSnapshot::ports.
using PortSet = std::array<bool, 2>;

// Of a ring that was enabled before the event and is afterwards.
PortSet ports_to_flush(const Step& step);

// The node ID and blocked port reference that a port keeps of the last message, by which it knows
// the next one; nothing is kept of R-APS(NR).
struct KnownSender {
  uint32_t node = 0;  // end of the node ID
  bool bpr = false;

  friend bool operator==(const KnownSender&, const KnownSender&) = default;
};
bool reference_of(const RapsMessage& message);
KnownSender known_sender(const PortSnapshot& port);
KnownSender sender_of(const RapsMessage& message);

// Whether the message of the step, which its ring takes, asks for a flush where it comes in.
bool asks_for_flush(const Step& step);

// The place of the port where the ring takes messages that come in there; those that reach a
// sub-ring through its major ring count for its own one.
size_t place_of(const RingSnapshot& ring, uint32_t port);

}  // namespace erps::sim
