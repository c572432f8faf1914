#include "lab/topology.h"

#include <algorithm>

namespace erps::lab {

namespace {

constexpr std::array<const char*, 6> kStateNames = {"init",   "idle",   "protection",
                                                    "manual", "forced", "pending"};

template <typename Item, typename Match>
std::optional<size_t> index_of(const std::vector<Item>& items, Match match) {
  const auto found = std::find_if(items.begin(), items.end(), match);
  if (found == items.end()) {
    return std::nullopt;
  }
  return static_cast<size_t>(found - items.begin());
}

}  // namespace

bool Ring::has_node(NodeIndex node) const {
  return std::find(nodes.begin(), nodes.end(), node) != nodes.end();
}

bool Ring::has_link(LinkIndex link) const {
  return std::find(links.begin(), links.end(), link) != links.end();
}

std::vector<LinkIndex> Ring::links_at(const std::vector<Link>& links_of_all, NodeIndex node) const {
  std::vector<LinkIndex> found;
  for (const LinkIndex link : links) {
    if (links_of_all[link].touches(node)) {
      found.push_back(link);
    }
  }
  return found;
}

std::optional<NodeIndex> Topology::find_node(const std::string& node_name) const {
  return index_of(nodes, [&](const Node& node) { return node.name == node_name; });
}

std::optional<LinkIndex> Topology::find_link(const std::string& link_name) const {
  return index_of(links, [&](const Link& link) { return link.name == link_name; });
}

std::optional<HostIndex> Topology::find_host(const std::string& host_name) const {
  return index_of(hosts, [&](const Host& host) { return host.name == host_name; });
}

std::optional<RingIndex> Topology::find_ring(uint32_t id) const {
  return index_of(rings, [&](const Ring& ring) { return ring.id == id; });
}

std::optional<RingIndex> Topology::ring_of_link(LinkIndex link) const {
  return index_of(rings, [&](const Ring& ring) { return ring.has_link(link); });
}

std::vector<RingIndex> Topology::rings_at(NodeIndex node) const {
  std::vector<RingIndex> found;
  for (RingIndex i = 0; i < rings.size(); ++i) {
    if (rings[i].has_node(node)) {
      found.push_back(i);
    }
  }
  return found;
}

std::optional<LinkIndex> Topology::link_at_port(NodeIndex node, uint32_t port) const {
  return index_of(links, [&](const Link& link) {
    return link.touches(node) && link.end_at(node).port == port;
  });
}

std::string Topology::port_text(const PortRef& port) const {
  return nodes[port.node].name + ":" + links[port.link].name;
}

std::string Topology::step_text(const Step& step) const {
  std::string link_names;
  for (const LinkIndex link : step.links) {
    link_names += " " + links[link].name;
  }
  const auto on_ring = [&] { return " on ring " + std::to_string(rings[step.ring].id); };
  switch (step.action) {
    case Action::kCut:
      return "cut" + link_names;
    case Action::kRestore:
      return "restore" + link_names;
    case Action::kForcedSwitch:
      return "forced switch at " + port_text(step.port) + on_ring();
    case Action::kManualSwitch:
      return "manual switch at " + port_text(step.port) + on_ring();
    case Action::kClear:
      return "clear at " + nodes[step.node].name + on_ring();
    case Action::kKill:
      return "kill the daemon of " + nodes[step.node].name;
    case Action::kStart:
      return "start the daemon of " + nodes[step.node].name;
    case Action::kWait:
      return "wait " + std::to_string(step.wait_ms) + " ms";
  }
  return {};
}

const char* state_name(NodeState state) {
  const auto number = static_cast<size_t>(state);
  return number < kStateNames.size() ? kStateNames[number] : "unknown";
}

std::optional<NodeState> parse_state(const std::string& text) {
  for (size_t i = 0; i < kStateNames.size(); ++i) {
    if (text == kStateNames[i]) {
      return static_cast<NodeState>(i);
    }
  }
  return std::nullopt;
}

bool is_switch(Action action) {
  return action == Action::kForcedSwitch || action == Action::kManualSwitch ||
         action == Action::kClear;
}

}  // namespace erps::lab
