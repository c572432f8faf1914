// A frame on its way.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "erps/raps/frame.h"
#include "sim/topology.h"

namespace erps::sim {

struct Frame {
  std::vector<uint8_t> bytes;
  uint32_t probe = 0;     // number of the probe that it is, or 0
  uint32_t switched = 0;  // times that a switch has passed it on

  MacAddress address_at(size_t offset) const {
    MacAddress address{};
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), address.size(),
                address.begin());
    return address;
  }

  // A tagged R-APS frame, which is what rings with a control VLAN send.
  bool is_raps() const {
    return bytes.size() >= raps::kTaggedLength &&
           std::equal(std::begin(raps::kDestinationPrefix), std::end(raps::kDestinationPrefix),
                      bytes.begin()) &&
           bytes[raps::kTaggedPdu - 2] == raps::kEtherTypeCfm >> 8U &&
           bytes[raps::kTaggedPdu - 1] == (raps::kEtherTypeCfm & 0xFFU);
  }

  // For the trace: ring, request byte and status in one number, the node ID's end in another.
  uint32_t raps_summary() const {
    const raps::PduView pdu(bytes.data() + raps::kTaggedPdu);
    return uint32_t{bytes[raps::kRingIdOffset]} << 16U | uint32_t{pdu.request_byte()} << 8U |
           pdu.status();
  }
  uint32_t raps_node() const {
    const uint8_t* id = raps::PduView(bytes.data() + raps::kTaggedPdu).node_id();
    return uint32_t{id[4]} << 8U | id[5];
  }
};

}  // namespace erps::sim
