// What a node was seen doing, one line a piece:
//
//   block 1, open 1, state 1 7     adp_set_port_erps_state
//   ask 1                          adp_get_port_erps_state
//   flush 1                        adp_del_mac_addr_by_intf, learnt entries
//   link? 1                        adp_get_phy_port_attr, link state
//   nic                            get_nic_address of eth0
//   send 2: SF DNF                 adp_transmit_frame of a well-formed R-APS message, by default of
//                                  ring 1, VLAN 100, this node; otherwise it says "ring 2",
//                                  "vlan 7", "untagged", "by low", "by high", "source high", "sub
//                                  10"; any other frame in hexadecimal
//   3x send 2: SF                  the same effect three times in a row
//   capture 0119a7000000           the seven calls that install the rule, uncapture its removal
//   post topology to ring 1, post cut to ring 2, post whole to ring 2, post expiry of WTR Timer
//   reply -3                       the answer to a request: return code, then "data" and its bytes,
//                                  or "conf" and the words of a ring's configuration
//   stderr TEXT                    a line on standard error
//   log, error, notice TEXT        a log line; "[function] " in front when it names its place
//   task TEXT                      a line of a task's begin or end
// and any other call as it is.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/unit/recording_platform.h"

namespace erps::test {

struct Effect {
  std::string text;
  bool debug = false;  // a line that only tells what is done
};

// A client of the management server: what it asked, and what it knows of the reply buffer, which
// the server never clears.
struct ManagementClient {
  long type = 5;
  bool names_type = false;  // show the type of the replies
  uint8_t cmd = 0;
  std::vector<uint8_t> reply_buffer = std::vector<uint8_t>(1024, 0);
};

// The effects of the calls in the journal. Updates the client's view of the reply buffer.
std::vector<Effect> effects_of(const std::vector<Call>& journal, const std::vector<LogLine>& log,
                               ManagementClient* client);

// Joins equal neighbours: "3x ...".
std::vector<Effect> joined(const std::vector<Effect>& effects);

// A node by the name that scenarios use (own, low, high), or a MAC address of twelve digits.
MacAddress node_by_name(const std::string& name);

std::string hex_of(const uint8_t* bytes, size_t length);

}  // namespace erps::test
