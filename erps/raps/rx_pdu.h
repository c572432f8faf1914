// The descriptor of one received frame.
#pragma once

#include <stdint.h>

// Lives on the stack of the call that receives the frame. frame points at kRxFrameCapacity readable
// bytes, zero behind `length`.
struct ERPS_RX_PDU_T {
  uint8_t* frame;
  uint32_t ring_id;  // last byte of the destination address
  uint32_t vlan_id;  // from the tag's place, 12 bits
  uint8_t* pdu;      // CFM common header of a tagged frame
  uint32_t length;   // as received
  uint32_t in_port;
};

inline constexpr uint32_t kRxFrameCapacity = 2048;
