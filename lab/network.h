// The network of a topology: a namespace and a bridge for each node, a pair of interfaces for each
// link, a namespace for each host.
//
// Every interface has an index of its own: where both ends of a pair have the same, the kernel
// tells a lost carrier up to a second late. A link is up when both of its ends are. Cutting it
// takes down the end at the node that `between` names first; the other end loses its carrier in the
// same call of the kernel, so both nodes see the link go.
//
// Threading: one thread at a time. Errors: LabError. Logs nothing.
#pragma once

#include <memory>
#include <vector>

#include "lab/link_control.h"
#include "lab/node_namespace.h"
#include "lab/topology.h"

namespace erps::lab {

class Network {
 public:
  // Builds everything; links of rings are left without carrier, so that no loop can exist before
  // the daemons guard their ports. All other links are up.
  explicit Network(const Topology& topology);

  // Gives every link of a ring its carrier.
  void raise_ring_links();

  // Return the moment just before the kernel was asked, CLOCK_MONOTONIC in ns.
  int64_t cut(LinkIndex link);
  int64_t restore(LinkIndex link);

  const NodeNamespace& node(NodeIndex node) const { return *nodes_[node].space; }
  const NodeNamespace& host(HostIndex host) const { return *hosts_[host].space; }
  MacAddress host_address(HostIndex host) const;
  // The interface of a host in its namespace.
  uint32_t host_interface(HostIndex host) const { return hosts_[host].interface; }
  // The interface of a link's end in the namespace of its node.
  uint32_t link_interface(LinkIndex link, size_t end) const { return links_[link][end]; }

 private:
  struct Member {
    std::unique_ptr<NodeNamespace> space;
    std::unique_ptr<LinkControl> control;
    uint32_t interface = 0;  // the bridge, or a host's only interface
  };

  Member make_member(const std::string& name) const;
  void build_node(NodeIndex node);
  void build_link(LinkIndex link);
  void build_host(HostIndex host);

  const Topology& topology_;
  std::vector<Member> nodes_, hosts_;
  std::vector<std::array<uint32_t, 2>> links_;
  uint32_t next_index_;
};

}  // namespace erps::lab
