// The model of a network as a topology file describes it. Plain data: who reads it decides whether
// to check, to simulate or to build the network. Everything refers to everything else by its index
// in the lists of Topology.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "lab/mac_address.h"

namespace erps::lab {

using NodeIndex = size_t;
using LinkIndex = size_t;
using HostIndex = size_t;
using RingIndex = size_t;

struct Node {
  std::string name;
  MacAddress address;  // the node ID of every ring at this node, and its source address
  uint32_t line = 0;
};

struct LinkEnd {
  NodeIndex node = 0;
  uint32_t port = 0;  // number of the port at this node, from 1
};

// Inclusive, in microseconds.
struct DelayRange {
  int64_t shortest = 50;
  int64_t longest = 100;
};

// What a link is like in a simulation. A network that is built has its own delays.
struct SimulatedLink {
  DelayRange delay_us;
  // R-APS frames in a million.
  uint32_t lost_per_million = 0;
  uint32_t duplicated_per_million = 0;
  uint32_t overtaken_per_million = 0;
};

struct Link {
  std::string name;
  std::array<LinkEnd, 2> ends;
  SimulatedLink simulated;
  uint32_t line = 0;

  bool touches(NodeIndex node) const { return ends[0].node == node || ends[1].node == node; }
  // The end at `node`, which must be one of the two.
  const LinkEnd& end_at(NodeIndex node) const { return ends[ends[0].node == node ? 0 : 1]; }
  NodeIndex other_end(NodeIndex node) const { return ends[ends[0].node == node ? 1 : 0].node; }
};

struct Host {
  std::string name;
  NodeIndex node = 0;
  uint32_t line = 0;
};

enum class RingRole { kMajor, kSubRing };

struct Timers {
  uint32_t wtr_ms = 300000;
  uint32_t guard_ms = 500;
  uint32_t holdoff_ms = 0;

  friend bool operator==(const Timers&, const Timers&) = default;
};

struct Ring {
  uint32_t id = 0;
  uint32_t control_vlan = 0;
  std::vector<NodeIndex> nodes;  // in ring order
  std::vector<LinkIndex> links;  // links[i] joins nodes[i] and its successor
  NodeIndex owner = 0;
  LinkIndex rpl = 0;
  std::optional<NodeIndex> neighbour;
  RingRole role = RingRole::kMajor;
  bool revertive = true;
  Timers timers;
  // Set at a sub-ring that hangs between two interconnection nodes, the first and last of `nodes`.
  std::optional<RingIndex> major_ring;
  NodeIndex watching = 0;  // the interconnection node that watches; the other one marks
  uint32_t line = 0;

  bool is_open() const { return major_ring.has_value(); }
  bool has_node(NodeIndex node) const;
  bool has_link(LinkIndex link) const;
  bool is_interconnection_node(NodeIndex node) const {
    return is_open() && (nodes.front() == node || nodes.back() == node);
  }
  // The links of this ring at `node`, in ring order: two, or one at an interconnection node.
  std::vector<LinkIndex> links_at(const std::vector<Link>& links_of_all, NodeIndex node) const;
};

struct Stream {
  std::array<HostIndex, 2> hosts{};
  uint32_t frames_per_s = 10000;
  uint32_t line = 0;
};

// One end of a link, where a port is blocked or switched.
struct PortRef {
  NodeIndex node = 0;
  LinkIndex link = 0;

  friend bool operator==(const PortRef&, const PortRef&) = default;
  friend bool operator<(const PortRef& a, const PortRef& b) {
    return a.node != b.node ? a.node < b.node : a.link < b.link;
  }
};

// Bounds on what a fault may do to the traffic; what is empty is not judged.
struct TrafficBounds {
  std::optional<double> cut_outage_ms;
  std::optional<double> restore_outage_ms;
  std::optional<double> switch_outage_ms;  // forced switch, manual switch and clear
  std::optional<uint64_t> duplicates;
  std::optional<uint64_t> reordered;
  uint32_t line = 0;
};

// The states that a node's ring can be in, by their numbers on the management interface.
enum class NodeState : uint32_t {
  kInit = 0,
  kIdle = 1,
  kProtection = 2,
  kManual = 3,
  kForced = 4,
  kPending = 5,
};

enum class Action { kCut, kRestore, kForcedSwitch, kManualSwitch, kClear, kKill, kStart, kWait };

struct Step {
  Action action = Action::kWait;
  std::vector<LinkIndex> links;  // cut, restore
  PortRef port;                  // forced and manual switch
  NodeIndex node = 0;            // clear, kill, start
  RingIndex ring = 0;            // forced and manual switch, clear
  uint32_t wait_ms = 0;          // wait
  // What the file says of this step alone.
  std::optional<double> outage_ms;
  std::optional<uint64_t> duplicates;
  std::map<RingIndex, NodeState> state;
  std::optional<std::vector<PortRef>> blocked;  // every blocked ring port of the network
  uint32_t line = 0;
};

struct Topology {
  std::string name;
  std::vector<Node> nodes;
  std::vector<Link> links;
  std::vector<Host> hosts;
  std::vector<Ring> rings;
  std::vector<Stream> streams;
  TrafficBounds bounds;
  std::vector<Step> steps;

  std::optional<NodeIndex> find_node(const std::string& node_name) const;
  std::optional<LinkIndex> find_link(const std::string& link_name) const;
  std::optional<HostIndex> find_host(const std::string& host_name) const;
  std::optional<RingIndex> find_ring(uint32_t id) const;
  // The ring that a link belongs to; a link belongs to one at most.
  std::optional<RingIndex> ring_of_link(LinkIndex link) const;
  std::vector<RingIndex> rings_at(NodeIndex node) const;
  // The link behind a port of a node.
  std::optional<LinkIndex> link_at_port(NodeIndex node, uint32_t port) const;
  // "n1:n1-n2"
  std::string port_text(const PortRef& port) const;
  // "cut n1-n2", "forced switch n1:n1-n2 on ring 1", ...
  std::string step_text(const Step& step) const;
};

const char* state_name(NodeState state);
std::optional<NodeState> parse_state(const std::string& text);
// Whether the action takes something away, gives it back, or commands a switch.
bool is_switch(Action action);

}  // namespace erps::lab
