// When to forget learnt addresses, and forgetting them (ITU-T G.8032 clause 10.1.10). Protocol task
// only.
#pragma once

#include <stdint.h>

#include "erps/ring/ring.h"

inline constexpr uint32_t kFlushCompareOtherPort = 0;
inline constexpr uint32_t kFlushOwnPortOnly = 2;

// 1 if the received message calls for a flush. Remembers its (node ID, BPR) pair in `port`;
// other_port may be null with mode kFlushOwnPortOnly. pdu is the CFM common header.
uint32_t ERPS_flush_logic(ERPS_PORT_T* port, const ERPS_PORT_T* other_port, const uint8_t* pdu,
                          uint32_t mode);

// 1 if an NR,RB message received in pending calls for a flush of all ring ports. The third argument
// is not used.
uint32_t ERPS_flush_logic_ex(const ERPSM_T* ring, const ERPS_PORT_T* port, uint32_t unused,
                             const uint8_t* pdu, uint32_t suppress);

// Flushes the port that flush_port names, or a sub-ring's own port. Always 0.
uint32_t ERPS_flush_FDB(ERPSM_T* ring);

// Flushes every ring port. Always 0.
uint32_t ERPS_flush_FDB_ring_port(ERPSM_T* ring);
