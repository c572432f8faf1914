#include "sim/checks/suppositions.h"

namespace erps::sim {

// An Event in its place is what is repeated.
bool suppose_no_event_repeated(Supposition& suppose) {
  return suppose.change_rings([](RingSnapshot& ring) {
    if (sends(ring, kEventCode)) {
      ring.tx_request = has_local(ring, RingRequest::kFs)   ? kFsCode
                        : has_local(ring, RingRequest::kSf) ? kSfCode
                        : has_local(ring, RingRequest::kMs) ? kMsCode
                                                            : kNrCode;
      ring.tx_rb = is(ring, RingState::kIdle) && is_owner(ring);
    }
  });
}

// Who is in a state that nobody asks for any more.
bool suppose_nr_heard(Supposition& suppose) {
  const auto anybody_sends = [&](uint32_t id, uint8_t code) {
    return suppose.any_ring(
        [=](const RingSnapshot& ring) { return ring.ring == id && sends(ring, code); });
  };
  return suppose.change_rings([&](RingSnapshot& ring) {
    const bool is_stale = (is(ring, RingState::kProtection) && !has_failed_link(ring) &&
                           !anybody_sends(ring.ring, kSfCode)) ||
                          (is(ring, RingState::kManual) && !anybody_sends(ring.ring, kMsCode)) ||
                          (is(ring, RingState::kForced) && !anybody_sends(ring.ring, kFsCode));
    if (is_stale && ring.local_priority == 0) {
      offer(ring, RingRequest::kRapsNr);
    }
  });
}

// A revertive owner in pending that does not even wait.
bool suppose_owner_waits(Supposition& suppose) {
  return suppose.change_rings([](RingSnapshot& ring) {
    if (is_owner(ring) && ring.revertive && is(ring, RingState::kPending) &&
        ring.local_priority == 0) {
      offer(ring, RingRequest::kWtrExpires);
    }
  });
}

bool suppose_revertive(Supposition& suppose) {
  return suppose.change_rings([](RingSnapshot& ring) {
    if (!ring.revertive) {
      ring.revertive = true;
      if (is_owner(ring) && is(ring, RingState::kPending) && ring.local_priority == 0) {
        offer(ring, RingRequest::kWtrExpires);
      }
    }
  });
}

bool suppose_nobody_waits(Supposition& suppose) {
  suppose.nobody_waits = true;
  return true;
}

}  // namespace erps::sim
