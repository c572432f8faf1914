// The strands of a network that carry something, found by the port that they leave.
//
// Threading: any; never changed. Errors: none.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include "sim/topology.h"

namespace erps::sim {

struct Strand {
  const LinkEnd* to = nullptr;  // the port that it leads to
  size_t index = 0;             // 2 * link + the end that it leads away from
};

class Strands {
 public:
  // The topology outlives this. carry: whether strands do, by 2 * link + the end that they lead
  // away from.
  Strands(const Topology& topology, const std::vector<bool>& carry)
      : leaving_(topology.nodes.size()) {
    for (size_t i = 0; i < carry.size(); ++i) {
      const LinkPlan& link = topology.links[i / 2];
      const LinkEnd& from = link.ends[i % 2];
      if (carry[i]) {
        auto& ports = leaving_[from.node];
        ports.resize(std::max<size_t>(ports.size(), from.port + 1));
        ports[from.port] = {&link.ends[1 - i % 2], i};
      }
    }
  }

  // Null for a port that no such strand leaves.
  const Strand* from(const LinkEnd& end) const {
    const auto& ports = leaving_[end.node];
    return end.port < ports.size() && ports[end.port].to != nullptr ? &ports[end.port] : nullptr;
  }

 private:
  std::vector<std::vector<Strand>> leaving_;  // by node and port
};

}  // namespace erps::sim
