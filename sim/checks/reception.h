// What a ring makes of a received message before its state machine sees it.
//
// Threading: any. Errors: none.
#pragma once

#include "sim/checks/ring_model.h"
#include "sim/checks/ring_watch.h"

namespace erps::sim {

// Whether the port is one of the ring's, which is a single one at the end of a sub-ring.
bool has_port(const RingSnapshot& ring, uint32_t port);

// Whether the message of the step is for its ring, as it was before: of its ring ID, in through one
// of its ports, and of another node. The end of a sub-ring takes what comes through its major ring,
// too.
bool takes_message(const Step& step);

// The request that the message makes; nothing for Events and for repetitions of a manual switch
// that is followed already.
RingRequest request_made_by(const Step& step);

}  // namespace erps::sim
