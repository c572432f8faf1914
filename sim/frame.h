// A frame on its way.
#pragma once

#include <algorithm>
#include <boost/container/small_vector.hpp>
#include <cstdint>
#include <span>

#include "erps/raps/frame.h"
#include "sim/topology.h"

namespace erps::sim {

// Moving it allocates nothing: what is longer than the room in place is handed over.
struct Frame {  // NOLINT(bugprone-exception-escape)
  // An R-APS frame finds room without an allocation.
  boost::container::small_vector<uint8_t, 64> bytes;
  uint32_t probe = 0;     // number of the probe that it is, or 0
  uint32_t switched = 0;  // times that a switch has passed it on

  std::span<const uint8_t> view() const { return {bytes.data(), bytes.size()}; }

  MacAddress address_at(size_t offset) const {
    MacAddress address{};
    std::copy_n(bytes.data() + offset, address.size(), address.begin());
    return address;
  }

  // An R-APS frame, with a VLAN tag or without.
  bool is_raps() const { return raps_pdu() != 0; }

  // For the trace, of an R-APS frame: ring, request byte and status in one number, the node ID's
  // end in another.
  uint32_t raps_summary() const {
    const raps::PduView pdu(bytes.data() + raps_pdu());
    return uint32_t{bytes[raps::kRingIdOffset]} << 16U | uint32_t{pdu.request_byte()} << 8U |
           pdu.status();
  }
  uint32_t raps_node() const {
    const uint8_t* id = raps::PduView(bytes.data() + raps_pdu()).node_id();
    return uint32_t{id[4]} << 8U | id[5];
  }

 private:
  bool has_ether_type(uint32_t pdu) const {
    return bytes.size() >= pdu + raps::kPduLength && bytes[pdu - 2] == raps::kEtherTypeCfm >> 8U &&
           bytes[pdu - 1] == (raps::kEtherTypeCfm & 0xFFU);
  }

  // Where the CFM PDU of an R-APS frame starts; 0 for other frames.
  uint32_t raps_pdu() const {
    if (bytes.size() < raps::kUntaggedLength ||
        !std::equal(std::begin(raps::kDestinationPrefix), std::end(raps::kDestinationPrefix),
                    bytes.data())) {
      return 0;
    }
    if (has_ether_type(raps::kTaggedPdu)) {
      return raps::kTaggedPdu;
    }
    return has_ether_type(raps::kUntaggedPdu) ? raps::kUntaggedPdu : 0;
  }
};

}  // namespace erps::sim
