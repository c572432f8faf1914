// The erpsd configuration of one node of a topology.
#pragma once

#include <string>

#include "lab/topology.h"

namespace erps::lab {

// Name of the bridge of every node, and of the interface behind a port: "p1".
inline constexpr const char* kBridgeName = "br0";
std::string port_interface(uint32_t port);

// The text of the file; a node that is part of no ring has none and gets an empty text.
std::string node_config(const Topology& topology, NodeIndex node);

}  // namespace erps::lab
