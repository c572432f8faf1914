#include "lab/node_config.h"

#include <sstream>

#include "lab/node_setup.h"

namespace erps::lab {

namespace {

void write_ring(std::ostringstream& out, const Ring& ring, const RingSetup& setup) {
  out << "\n[[ring]]\n"
      << "id = " << ring.id << "\n"
      << "ports = [" << setup.port0 << ", " << setup.port1 << "]\n"
      << "control_vlan = " << ring.control_vlan << "\n"
      << "node_role = \"" << client::node_role_name(setup.node_role) << "\"\n";
  if (setup.at_rpl()) {
    out << "rpl_port = " << setup.port1 << "\n";
  }
  out << "ring_role = \"" << (ring.role == RingRole::kMajor ? "major" : "sub-ring") << "\"\n"
      << "revertive = " << (ring.revertive ? "true" : "false") << "\n"
      << "enable = true\n";
}

void write_sub_ring(std::ostringstream& out, const Topology& topology, const SubRingSetup& setup) {
  const Ring& ring = topology.rings[setup.ring];
  out << "\n[[sub_ring]]\n"
      << "id = " << ring.id << "\n"
      << "major_ring = " << topology.rings[*ring.major_ring].id << "\n"
      << "port = " << setup.port << "\n"
      << "node_role = \"" << client::node_role_name(setup.node_role) << "\"\n"
      << "interconnection = \"" << client::interconnection_role_name(setup.interconnection_role)
      << "\"\n"
      << "enable = true\n";
}

}  // namespace

std::string port_interface(uint32_t port) {
  return "p" + std::to_string(port);
}

std::string node_config(const Topology& topology, NodeIndex node) {
  const NodeSetup setup = node_setup(topology, node);
  if (setup.ring_ports.empty()) {
    return {};
  }
  std::ostringstream out;
  out << "# Node " << topology.nodes[node].name << " of " << topology.name << ".\n"
      << "bridge = \"" << kBridgeName << "\"\n"
      << "node_address = \"" << to_text(topology.nodes[node].address) << "\"\n"
      << "\n[log]\nlevel = \"notice\"\n"
      << "\n[platform]\ncarrier_poll_ms = 5\n"
      << "\n[timers]\n"
      << "guard_ms = " << setup.timers.guard_ms << "\n"
      << "wtr_ms = " << setup.timers.wtr_ms << "\n"
      << "holdoff_ms = " << setup.timers.holdoff_ms << "\n";
  for (const uint32_t port : setup.ring_ports) {
    out << "\n[[port]]\nid = " << port << "\ninterface = \"" << port_interface(port) << "\"\n";
  }
  for (const RingSetup& ring : setup.rings) {
    write_ring(out, topology.rings[ring.ring], ring);
  }
  for (const SubRingSetup& sub_ring : setup.sub_rings) {
    write_sub_ring(out, topology, sub_ring);
  }
  return out.str();
}

}  // namespace erps::lab
