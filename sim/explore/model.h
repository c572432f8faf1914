// A small network of real modules as a graph: its states and the steps between them.
//
// Steps are atomic: a node handles one event, or a node's clock moves, or something breaks. Between
// two steps anything else may happen first, with three limits, which every real network keeps whose
// messages reach every node in less than half a second:
//   - frames stay in order on their strand, and a node's own events in theirs, and the own events
//     that wait are handled before a frame is (the platform's promise);
//   - a node's second has two halves, and no message on its way round the network, no news of a
//     carrier and no own event lives while any one clock takes two steps;
//   - clocks are equally fast: none is two steps ahead of another.
//
// What a node does is found out once, by letting the module do it, and then remembered: it depends
// on the node's memory and the event alone.
//
// Threading: one thread, one model at a time. Errors: SimError for a network that is too large or
// cannot be configured.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "sim/explore/channels.h"
#include "sim/explore/flat_map.h"
#include "sim/explore/local_states.h"
#include "sim/explore/machine.h"
#include "sim/explore/state.h"
#include "sim/forwarding.h"
#include "sim/topology.h"

namespace erps::sim::explore {

// What may happen besides the network's own life. Repairs are free and may come at any time.
struct Budget {
  uint32_t cuts = 1;             // of both strands of a link at once
  uint32_t strand_failures = 0;  // of one strand
  uint32_t crashes = 0;          // of a node
  uint32_t commands = 0;         // forced switch, manual switch, clear
  // Seconds after the last fault; then time stands still. Without it time never ends.
  std::optional<uint32_t> ticks{};

  bool has_faults() const { return cuts + strand_failures + crashes + commands != 0; }
};

class Model {
 public:
  Model(const Topology& topology, const std::string& module_path, const Budget& budget);

  // The network at rest after its start, in every position of its clocks.
  std::vector<NetworkState> initial_states();

  struct Next {
    Step step;
    NetworkState state;
    bool second_half_done = false;           // the last of all clocks has taken its step
    const std::string* violation = nullptr;  // what the module did on the way
  };
  // Everything that can happen next: by itself, or as faults, repairs and commands.
  void steps_from(const NetworkState& state, std::vector<Next>& next);
  void faults_from(const NetworkState& state, std::vector<Next>& next);

  // The network as data frames see it.
  const Forwarding& forwarding(const NetworkState& state);
  bool has_loop(const NetworkState& state) { return (verdict(state) & kLoop) != 0; }
  bool has_partition(const NetworkState& state) { return (verdict(state) & kPartition) != 0; }
  // Every strand and node works, and no commanded switch is in force.
  bool is_whole(const NetworkState& state) const;
  bool is_home(const NetworkState& state) const;
  // Nothing is on its way and no own event waits.
  bool is_quiet(const NetworkState& state) const;
  // Time stands still: the budget of ticks is used up.
  bool is_out_of_time(const NetworkState& state) const;

  const Topology& topology() const { return topology_; }
  const Budget& budget() const { return budget_; }
  const Packing& packing() const { return packing_; }
  const LocalState& local(const NetworkState& state, NodeIndex node) const {
    return locals_.at(state.local.at(node));
  }
  Channels& channels() { return channels_; }
  size_t local_states() const { return locals_.size(); }
  size_t reactions() const { return reactions_.size(); }
  size_t bytes() const { return locals_.bytes() + reactions_.capacity() * 64; }

  // "n1 handles SF of n2 at port 1"
  std::string step_text(const NetworkState& before, const Step& step) const;
  // "n1 idle blocks 1, n2 idle open"
  std::string state_text(const NetworkState& state) const;
  // "n1:2 - n2:1"
  std::string link_text(LinkIndex link) const;

 private:
  static constexpr uint8_t kKnown = 1;
  static constexpr uint8_t kLoop = 2;
  static constexpr uint8_t kPartition = 4;

  // What a node made of an event.
  struct Reaction {
    LocalId local = kNoPower;
    bool refused = false;
    int32_t violation = -1;
    std::vector<std::pair<uint32_t, FrameId>> sent;  // port and frame
  };
  enum class Event : uint8_t { kFrame, kCarrier, kOwnEvent, kTick, kCommand, kBoot };

  // A port's strands; a port without a link has none.
  struct Port {
    bool linked = false;
    uint8_t link = 0;
    uint8_t end = 0;
    uint8_t out() const { return static_cast<uint8_t>(2 * link + end); }
    uint8_t in() const { return static_cast<uint8_t>(2 * link + 1 - end); }
  };

  bool powered(const NetworkState& state, NodeIndex node) const {
    return state.local[node] != kNoPower;
  }
  bool works(const NetworkState& state, size_t strand) const {
    return (state.working >> strand & 1U) != 0;
  }
  Half half_of(const NetworkState& state, NodeIndex node) const {
    return (state.second_half >> node & 1U) != 0 ? Half::kSecond : Half::kFirst;
  }
  const LinkEnd& source(size_t strand) const {
    return topology_.links[strand / 2].ends[strand % 2];
  }
  const LinkEnd& destination(size_t strand) const {
    return topology_.links[strand / 2].ends[1 - strand % 2];
  }

  void check_size() const;
  uint32_t linked_ports(NodeIndex node) const;  // bit p: port p
  const Reaction& reaction(LocalId local, NodeIndex node, Event event, Half half, uint32_t port,
                           uint32_t what);
  Outcome perform(NodeIndex node, Event event, Half half, uint32_t port, uint32_t what,
                  bool& refused);
  // Changes the state of the node and what is on its way from it. passed: the clocks that have
  // taken a step past the frame that is handled.
  const std::string* react(NetworkState& state, NodeIndex node, Event event, uint32_t port,
                           uint32_t what, bool* refused = nullptr, uint32_t passed = 0);
  bool may_step(const NetworkState& state, NodeIndex node) const;
  bool step_clock(NetworkState& state, NodeIndex node);
  bool finish_round(NetworkState& state) const;
  void news(NetworkState& state, size_t strand, bool up);
  void add_clock_step(const NetworkState& state, NodeIndex node, std::vector<Next>& next);
  void add_events(const NetworkState& state, NodeIndex node, std::vector<Next>& next);
  void add_commands(const NetworkState& state, NodeIndex node, std::vector<Next>& next);
  void add_link_faults(const NetworkState& state, std::vector<Next>& next);
  void add_node_faults(const NetworkState& state, std::vector<Next>& next);
  void crash(const NetworkState& state, NodeIndex node, std::vector<Next>& next);
  void restart(const NetworkState& state, NodeIndex node, std::vector<Next>& next);
  uint8_t verdict(const NetworkState& state);
  std::string frame_text(FrameId id) const;
  std::string port_text(NodeIndex node, uint32_t port) const;

  const Topology topology_;
  const Budget budget_;
  const Packing packing_;
  std::vector<std::array<Port, kMostPorts>> ports_;  // by node and port
  Machine machine_;
  LocalStates locals_;
  Channels channels_;
  FlatMap reaction_ids_;
  std::vector<Reaction> reactions_;
  std::deque<std::string> violations_;
  Forwarding forwarding_;
  std::vector<uint8_t> verdicts_;
};

}  // namespace erps::sim::explore
