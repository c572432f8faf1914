// The switch of a node: port states, learnt addresses, and what becomes of a data frame.
//
// Port 0 is the node's own host; it is always forwarding. Ring ports are discarding from power on
// until the module says otherwise. As on a real bridge, a port is blocked at once, but one that is
// opened while an event is handled opens when the event is finished, unless it is blocked again.
//
// Threading: one thread. Errors: false for a port that the switch does not have.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "sim/frame.h"
#include "sim/world.h"

namespace erps::sim {

inline constexpr uint32_t kHostPort = 0;
inline constexpr uint32_t kForwarding = 4;
inline constexpr uint32_t kDiscarding = 1;

class LearningSwitch {
 public:
  // Ports 1 to ports.
  LearningSwitch(World& world, NodeIndex node, uint32_t ports);

  void power_on();

  [[nodiscard]] bool ask(uint32_t port, uint32_t state, bool in_event);
  void finish_event();
  // The event will never be finished: what it would have opened stays blocked.
  void abandon_openings();
  // What was last asked for; 0 for a port that the switch does not have.
  uint32_t asked(uint32_t port) const { return has(port) ? ports_[port].asked : 0; }
  bool forwards(uint32_t port) const {
    return port == kHostPort || (has(port) && ports_[port].applied == kForwarding);
  }
  [[nodiscard]] bool flush(uint32_t port);

  // The ports that a data frame leaves through, having come in through one.
  std::vector<uint32_t> switch_frame(uint32_t in_port, const Frame& frame);
  // visit(address, port, when it was last seen); old ones, which are not used any more, included.
  template <typename Visit>
  void for_each_learnt(Visit visit) const {
    for (const auto& [address, learnt] : learnt_) {
      visit(address, learnt.port, learnt.seen_us);
    }
  }
  bool has_learnt() const { return !learnt_.empty(); }
  uint32_t ports() const { return static_cast<uint32_t>(ports_.size() - 1); }

 private:
  struct Port {
    uint32_t asked = kDiscarding;
    uint32_t applied = kDiscarding;
  };
  struct Learnt {
    uint32_t port = 0;
    int64_t seen_us = 0;
  };

  bool has(uint32_t port) const { return port != kHostPort && port < ports_.size(); }
  void apply(uint32_t port);

  World& world_;
  const NodeIndex node_;
  std::vector<Port> ports_;  // [0] is unused
  bool openings_ = false;
  std::map<MacAddress, Learnt> learnt_;
};

}  // namespace erps::sim
