#include "lab/network.h"

#include "lab/clock.h"
#include "lab/node_config.h"

namespace erps::lab {

namespace {

constexpr uint32_t kFirstIndex = 101;
constexpr const char* kHostInterface = "eth0";

}  // namespace

Network::Network(const Topology& topology) : topology_(topology), next_index_(kFirstIndex) {
  for (NodeIndex node = 0; node < topology.nodes.size(); ++node) {
    build_node(node);
  }
  for (LinkIndex link = 0; link < topology.links.size(); ++link) {
    build_link(link);
  }
  for (HostIndex host = 0; host < topology.hosts.size(); ++host) {
    build_host(host);
  }
}

Network::Member Network::make_member(const std::string& name) const {
  Member member;
  member.space = std::make_unique<NodeNamespace>(name);
  member.space->run([&] { member.control = std::make_unique<LinkControl>(); });
  return member;
}

void Network::build_node(NodeIndex node) {
  Member member = make_member("node " + topology_.nodes[node].name);
  member.interface = next_index_++;
  member.control->create_bridge({kBridgeName, member.interface, topology_.nodes[node].address});
  member.control->silence_ipv6(member.interface);
  member.control->set_up(member.interface, true);
  nodes_.push_back(std::move(member));
}

void Network::build_link(LinkIndex link) {
  const auto& ends = topology_.links[link].ends;
  const std::array<uint32_t, 2> indices = {next_index_, next_index_ + 1};
  next_index_ += 2;
  nodes_[ends[0].node].control->create_pair({port_interface(ends[0].port), indices[0], {}},
                                            {port_interface(ends[1].port), indices[1], {}},
                                            nodes_[ends[1].node].space->network_fd());
  const bool in_ring = topology_.ring_of_link(link).has_value();
  for (size_t end = 0; end < 2; ++end) {
    Member& member = nodes_[ends[end].node];
    member.control->silence_ipv6(indices[end]);
    member.control->enslave(indices[end], member.interface);
    if (!in_ring || end == 1) {
      member.control->set_up(indices[end], true);
    }
  }
  links_.push_back(indices);
}

void Network::build_host(HostIndex host) {
  Member member = make_member("host " + topology_.hosts[host].name);
  Member& node = nodes_[topology_.hosts[host].node];
  member.interface = next_index_++;
  const uint32_t at_node = next_index_++;
  member.control->create_pair({kHostInterface, member.interface, host_address(host)},
                              {"h" + std::to_string(host + 1), at_node, {}},
                              node.space->network_fd());
  member.control->silence_ipv6(member.interface);
  node.control->silence_ipv6(at_node);
  node.control->enslave(at_node, node.interface);
  member.control->set_up(member.interface, true);
  node.control->set_up(at_node, true);
  hosts_.push_back(std::move(member));
}

void Network::raise_ring_links() {
  for (LinkIndex link = 0; link < topology_.links.size(); ++link) {
    if (topology_.ring_of_link(link)) {
      restore(link);
    }
  }
}

int64_t Network::cut(LinkIndex link) {
  const int64_t at_ns = mono_ns();
  nodes_[topology_.links[link].ends[0].node].control->set_up(links_[link][0], false);
  return at_ns;
}

int64_t Network::restore(LinkIndex link) {
  const int64_t at_ns = mono_ns();
  nodes_[topology_.links[link].ends[0].node].control->set_up(links_[link][0], true);
  return at_ns;
}

MacAddress Network::host_address(HostIndex host) const {
  const auto number = static_cast<uint16_t>(host + 1);
  return MacAddress{
      {0x02, 0x00, 0x00, 0x01, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)}};
}

}  // namespace erps::lab
