#include "lab/simulate/raps_capture.h"

#include <fcntl.h>

#include "lab/lab_error.h"
#include "lab/node_config.h"

namespace erps::lab {

RapsCapture::RapsCapture(const Topology& topology, int directory) : nodes_(topology.nodes.size()) {
  for (NodeIndex node = 0; node < topology.nodes.size(); ++node) {
    std::vector<std::string> names;
    for (LinkIndex link = 0; link < topology.links.size(); ++link) {
      for (const LinkEnd& end : topology.links[link].ends) {
        if (end.node == node && topology.ring_of_link(link)) {
          nodes_[node].interfaces[end.port] = static_cast<uint32_t>(names.size());
          names.push_back(port_interface(end.port));
        }
      }
    }
    if (names.empty()) {
      continue;
    }
    const std::string path = topology.nodes[node].name + ".pcapng";
    UniqueFd file(openat(directory, path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!file.is_open()) {
      throw system_error(path);
    }
    nodes_[node].file = std::make_unique<PcapngFile>(
        std::move(file), "erpslab, simulated node " + topology.nodes[node].name, names);
  }
}

void RapsCapture::write(const Passing& frame, NodeIndex node, uint32_t port) {
  constexpr int64_t kNsPerUs = 1000;
  const auto interface = nodes_[node].interfaces.find(port);
  if (interface != nodes_[node].interfaces.end()) {
    nodes_[node].file->write({interface->second,
                              frame.time_us * kNsPerUs,
                              frame.outgoing,
                              {frame.bytes.begin(), frame.bytes.end()}});
  }
}

}  // namespace erps::lab
