// What the nodes of a simulation do, in the words of the daemon's journal.
//
// Threading: the simulation's. Errors: none.
#pragma once

#include <vector>

#include "lab/journal.h"
#include "lab/topology.h"
#include "sim/observer.h"

namespace erps::lab {

class NodeHistory final : public sim::Observer {
 public:
  explicit NodeHistory(const Topology& topology)
      : topology_(topology), events_(topology.nodes.size()) {}

  void on_record(const sim::Record& record) override;

  // What happened since the last call, by NodeIndex; times are those of the simulation.
  std::vector<std::vector<NodeEvent>> take();

  uint64_t sent() const { return sent_; }
  uint64_t received() const { return received_; }
  uint64_t lost() const { return lost_; }

 private:
  NodeEvent message(const sim::Record& record, EventKind kind) const;

  const Topology& topology_;
  std::vector<std::vector<NodeEvent>> events_;
  uint64_t sent_ = 0;
  uint64_t received_ = 0;
  uint64_t lost_ = 0;
};

}  // namespace erps::lab
