#include "lab/ring_control.h"

#include <sched.h>

#include "client/client.h"
#include "client/error.h"
#include "client/words.h"
#include "lab/lab_error.h"

namespace erps::lab {

void RingControl::enter(NodeIndex node) const {
  if (setns(network_.node(node).ipc_fd(), CLONE_NEWIPC) != 0) {
    throw system_error("the IPC namespace of " + network_.node(node).name() + " cannot be entered");
  }
}

NodeReport RingControl::ask(NodeIndex node) const {
  enter(node);
  NodeReport report;
  try {
    client::Client client;
    for (const RingIndex ring : topology_.rings_at(node)) {
      const auto status = client.read_ring(topology_.rings[ring].id);
      if (!status) {
        report.problem = "does not know ring " + std::to_string(topology_.rings[ring].id);
        return report;
      }
      RingReport of_ring{ring, static_cast<NodeState>(status->state), {}};
      for (const uint32_t port : status->blocked_ports()) {
        if (const auto link = topology_.link_at_port(node, port)) {
          of_ring.blocked.push_back({node, *link});
        }
      }
      report.rings.push_back(std::move(of_ring));
    }
    report.answered = true;
  } catch (const client::ClientError& error) {
    report.problem = error.what();
  }
  return report;
}

void RingControl::command(const Step& step) const {
  enter(step.node);
  const uint32_t ring = topology_.rings[step.ring].id;
  try {
    client::Client client;
    if (step.action == Action::kClear) {
      client.clear(ring);
      return;
    }
    const uint32_t port = topology_.links[step.port.link].end_at(step.port.node).port;
    if (step.action == Action::kForcedSwitch) {
      client.forced_switch(ring, port);
    } else {
      client.manual_switch(ring, port);
    }
  } catch (const std::exception& error) {
    throw LabError(topology_.step_text(step) + ": " + error.what());
  }
}

}  // namespace erps::lab
