#include "lab/node_config.h"

#include <algorithm>
#include <sstream>

namespace erps::lab {

namespace {

const char* node_role(const Ring& ring, NodeIndex node) {
  if (ring.owner == node) {
    return "owner";
  }
  return ring.neighbour == node ? "neighbour" : "none";
}

void write_ring(std::ostringstream& out, const Topology& topology, const Ring& ring,
                NodeIndex node) {
  const auto links = ring.links_at(topology.links, node);
  const auto port_of = [&](LinkIndex link) { return topology.links[link].end_at(node).port; };
  out << "\n[[ring]]\n"
      << "id = " << ring.id << "\n"
      << "ports = [" << port_of(links[0]) << ", " << port_of(links[1]) << "]\n"
      << "control_vlan = " << ring.control_vlan << "\n"
      << "node_role = \"" << node_role(ring, node) << "\"\n";
  if (ring.owner == node || ring.neighbour == node) {
    out << "rpl_port = " << port_of(ring.rpl) << "\n";
  }
  out << "ring_role = \"" << (ring.role == RingRole::kMajor ? "major" : "sub-ring") << "\"\n"
      << "revertive = " << (ring.revertive ? "true" : "false") << "\n"
      << "enable = true\n";
}

void write_interconnected_ring(std::ostringstream& out, const Topology& topology, const Ring& ring,
                               NodeIndex node) {
  const LinkIndex link = ring.links_at(topology.links, node)[0];
  out << "\n[[sub_ring]]\n"
      << "id = " << ring.id << "\n"
      << "major_ring = " << topology.rings[*ring.major_ring].id << "\n"
      << "port = " << topology.links[link].end_at(node).port << "\n"
      << "node_role = \"" << node_role(ring, node) << "\"\n"
      << "interconnection = \"" << (ring.watching == node ? "watching" : "marking") << "\"\n"
      << "enable = true\n";
}

}  // namespace

std::string port_interface(uint32_t port) {
  return "p" + std::to_string(port);
}

std::string node_config(const Topology& topology, NodeIndex node) {
  const auto rings = topology.rings_at(node);
  if (rings.empty()) {
    return {};
  }
  std::vector<uint32_t> ports;
  for (const RingIndex ring : rings) {
    for (const LinkIndex link : topology.rings[ring].links_at(topology.links, node)) {
      ports.push_back(topology.links[link].end_at(node).port);
    }
  }
  std::sort(ports.begin(), ports.end());

  const Timers& timers = topology.rings[rings[0]].timers;
  std::ostringstream out;
  out << "# Node " << topology.nodes[node].name << " of " << topology.name << ".\n"
      << "bridge = \"" << kBridgeName << "\"\n"
      << "node_address = \"" << to_text(topology.nodes[node].address) << "\"\n"
      << "\n[log]\nlevel = \"notice\"\n"
      << "\n[platform]\ncarrier_poll_ms = 5\n"
      << "\n[timers]\n"
      << "guard_ms = " << timers.guard_ms << "\n"
      << "wtr_ms = " << timers.wtr_ms << "\n"
      << "holdoff_ms = " << timers.holdoff_ms << "\n";
  for (const uint32_t port : ports) {
    out << "\n[[port]]\nid = " << port << "\ninterface = \"" << port_interface(port) << "\"\n";
  }
  for (const RingIndex ring : rings) {
    if (!topology.rings[ring].is_interconnection_node(node)) {
      write_ring(out, topology, topology.rings[ring], node);
    }
  }
  for (const RingIndex ring : rings) {
    if (topology.rings[ring].is_interconnection_node(node)) {
      write_interconnected_ring(out, topology, topology.rings[ring], node);
    }
  }
  return out.str();
}

}  // namespace erps::lab
