// Asks the daemons for the state of their rings and gives them operator commands, through the
// management queue of each node.
//
// Threading: one thread at a time; it moves the calling thread into the IPC namespaces of the
// nodes, one after the other. Errors: LabError. Logs nothing.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lab/network.h"
#include "lab/topology.h"

namespace erps::lab {

// What a node says of one of its rings.
struct RingReport {
  RingIndex ring = 0;
  NodeState state = NodeState::kInit;
  std::vector<PortRef> blocked;
};

struct NodeReport {
  bool answered = false;
  std::string problem;  // why it did not answer
  std::vector<RingReport> rings;
};

class RingControl {
 public:
  RingControl(const Topology& topology, const Network& network)
      : topology_(topology), network_(network) {}

  NodeReport ask(NodeIndex node) const;
  // Forced switch, manual switch or clear. Throws when the daemon refuses or does not answer.
  void command(const Step& step) const;

 private:
  void enter(NodeIndex node) const;

  const Topology& topology_;
  const Network& network_;
};

}  // namespace erps::lab
