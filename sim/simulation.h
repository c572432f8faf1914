// A network of nodes that run the real module, in virtual time.
//
//   sim::Simulation simulation(sim::make_ring({.nodes = 4}), options);
//   sim::LoopChecker loops;
//   simulation.observe(loops);
//   simulation.run_for(10 * sim::kSecondUs);
//   simulation.cut(0);
//
// The same topology, options and calls at the same times give the same run, to the last frame:
// trace_hash() tells. Simulations may follow each other in a process; two may exist at a time.
//
// Threading: one thread for all simulations of a process. Errors: SimError for what cannot be set
// up or asked; Violation, out of the run_ functions, when the module did what it must not do. Logs
// nothing.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "sim/management.h"
#include "sim/module_records.h"
#include "sim/network.h"
#include "sim/node.h"
#include "sim/observer.h"
#include "sim/options.h"
#include "sim/race_detector.h"
#include "sim/topology.h"
#include "sim/world.h"

namespace erps::sim {

inline constexpr int64_t kMillisecondUs = 1000;
inline constexpr int64_t kSecondUs = 1'000'000;

class Simulation {
 public:
  // Every node gets its power at time 0.
  Simulation(const Topology& topology, const Options& options);
  ~Simulation();
  Simulation(const Simulation&) = delete;
  Simulation& operator=(const Simulation&) = delete;

  // Observers are told in the order in which they were added. They outlive the simulation or stop
  // observing it, outside of the run_ functions.
  void observe(Observer& observer) { world_.observers.push_back(&observer); }
  void stop_observing(Observer& observer) { std::erase(world_.observers, &observer); }

  int64_t now_us() const { return world_.now_us(); }
  void run_until(int64_t time_us);
  void run_for(int64_t duration_us) { run_until(now_us() + duration_us); }
  // Calls back in virtual time, from outside of all tasks; what it calls is what a test may call,
  // but no run_ function.
  void at(int64_t time_us, std::function<void()> call);

  // Faults. A cut link is dark both ways; a failed strand leads away from ends[end] of the link,
  // and a silent failure takes no carrier away.
  void cut(LinkIndex link);
  void restore(LinkIndex link);
  void fail_strand(LinkIndex link, size_t end, bool silent = false) {
    network_.fail(link, end, silent);
  }
  void repair_strand(LinkIndex link, size_t end) { network_.repair(link, end); }
  // From now on, in place of what the topology says.
  void set_raps_faults(LinkIndex link, const RapsFaults& faults) {
    network_.set_raps_faults(link, faults);
  }
  // A node loses its power, and gets it back.
  void crash(NodeIndex node) { nodes_.at(node)->crash(); }
  void restart(NodeIndex node) { nodes_.at(node)->power_on(); }
  // The module of a node is stopped in good order, or its process dies; the switch goes on as it
  // stands. Started again, it blocks its ring ports first. Nothing happens where it is so already.
  void stop_module(NodeIndex node) { nodes_.at(node)->stop_module(); }
  void kill_module(NodeIndex node) { nodes_.at(node)->kill_module(); }
  void start_module(NodeIndex node) { nodes_.at(node)->start_module(); }
  // The processor of a node is slower than usual from now on, by a factor of at least 1: its tasks
  // wake later, sleep longer and lose more time. The switch is as fast as ever.
  void slow_down(NodeIndex node, uint32_t factor);
  // No task of a node runs for this time; then everything that has come up follows.
  void stall(NodeIndex node, int64_t duration_us) { nodes_.at(node)->stall(duration_us); }
  // Somebody sets the time of day of a node, forth or back; sleeps are not touched.
  void step_clock(NodeIndex node, int64_t delta_us) { nodes_.at(node)->step_clock(delta_us); }
  // The clock of a node runs fast by so many parts in a million from now on, or slow, sleeps
  // included: -500,000 to 1,000,000.
  void set_clock_drift(NodeIndex node, int64_t ppm);
  // Of the calls to its platform that a node's module makes from now on, the nth by this name
  // fails, counted from 1, and those that follow: `times` in all. Names are those of platform/*.h
  // for calls that can report failure, "new" for memory, "select", "msgget", "msgrcv" and "msgsnd".
  void fail_call(NodeIndex node, std::string_view name, uint64_t nth = 1, uint64_t times = 1);
  // From now on every call of every node fails with this chance, in a million; see
  // Options::failing_calls_per_million. 0 ends all failures, those by name too.
  void fail_calls(uint32_t per_million);

  // The operator. ask() leaves the reply to time; execute() and ring_status() run until it is
  // there.
  std::shared_ptr<const Reply> ask(NodeIndex node, const Request& request) {
    return nodes_.at(node)->ask(request);
  }
  Reply execute(NodeIndex node, const Request& request);
  // Nothing when the node is down or has no such ring.
  std::optional<RingStatus> ring_status(NodeIndex node, uint32_t ring);

  // A probe frame from a node's host to a node's host, or to all. Where it arrives is recorded.
  // Returns its number.
  uint32_t send_probe(NodeIndex from, std::optional<NodeIndex> to);

  // A frame from outside of the network arrives at a port, whatever its link is doing.
  void inject(const LinkEnd& port, std::span<const uint8_t> bytes);

  // As it is now.
  const Topology& topology() const { return topology_; }
  const Forwarding& forwarding() { return network_.forwarding(); }
  bool powered(NodeIndex node) const { return nodes_.at(node)->powered(); }
  bool configured(NodeIndex node) const { return nodes_.at(node)->configured(); }
  bool port_forwards(const LinkEnd& port) const {
    return nodes_.at(port.node)->forwards(port.port);
  }
  // The rings and timers in the memory of the node's module; none while the node has no power. Good
  // until the simulation goes on.
  ModuleRecords records(NodeIndex node) { return nodes_.at(node)->records(); }
  // Another number when another task of the node's module has run than the one that ran last: as
  // long as it stays, only that one can have changed the records.
  uint64_t handovers(NodeIndex node) const { return nodes_.at(node)->handovers(); }
  // Whether what an observer is being told of is done by the node's protocol task for its event,
  // not by its timer task meanwhile.
  bool handles_event(NodeIndex node) const { return nodes_.at(node)->handles_event(); }
  // How many blocks of memory a node's module has allocated and not released.
  size_t memory_blocks(NodeIndex node) const { return nodes_.at(node)->heap.blocks(); }
  const LearningSwitch& fabric(NodeIndex node) const { return nodes_.at(node)->fabric; }
  uint64_t trace_hash() const { return world_.trace_hash(); }
  const Timing& timing() const { return world_.timing; }
  bool flushes_in_the_background() const { return world_.options.flush_worker; }
  uint64_t seed() const { return world_.options.seed; }

 private:
  struct Callback final : Alarm {
    Simulation* simulation = nullptr;
    std::function<void()> call;
    void on_alarm(uint64_t token) override;
  };

  void finish_instant();

  const races::OwnCode own_code_;  // whoever looks into a module's memory from outside of all tasks
  const Topology topology_;
  World world_;
  Network network_;
  std::vector<std::unique_ptr<Node>> nodes_;
  std::deque<Callback> callbacks_;
  std::vector<Callback*> idle_callbacks_;
  uint32_t next_probe_ = 1;
};

}  // namespace erps::sim
