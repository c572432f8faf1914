// The links: strands that carry frames with a delay, and the carrier that each end detects.
//
// A link has two strands, one a direction, which fail and return on their own. The end that a
// strand leads to loses its signal and, after the detection delay, its carrier; a silent failure
// shows neither. Frames on a strand that fails are lost.
//
// Threading: one thread. Errors: SimError for a link that does not exist.
#pragma once

#include <array>
#include <deque>
#include <functional>
#include <vector>

#include "sim/forwarding.h"
#include "sim/frame.h"
#include "sim/world.h"

namespace erps::sim {

// A node as the network sees it.
class Station {
 public:
  virtual void on_frame(uint32_t port, Frame frame) = 0;
  virtual void on_carrier(uint32_t port, bool up) = 0;
  virtual bool powered() const = 0;
  // Whether the switch passes data frames through the port, its carrier aside.
  virtual bool forwards(uint32_t port) const = 0;

 protected:
  ~Station() = default;
};

class Network {
 public:
  Network(World& world, const Topology& topology);

  // Before anything else; the stations outlive the network.
  void connect(std::vector<Station*> stations) { stations_ = std::move(stations); }

  // A failed strand leads away from ends[end] of the link.
  void fail(LinkIndex link, size_t end, bool silent = false);
  void repair(LinkIndex link, size_t end);
  void set_raps_faults(LinkIndex link, const RapsFaults& faults) { plans_.at(link).raps = faults; }
  bool carries(LinkIndex link, size_t end) const { return strand(link, end).works; }
  // Whether both strands work.
  bool is_whole(LinkIndex link) const { return carries(link, 0) && carries(link, 1); }

  // A station's power has come or gone.
  void power_changed(NodeIndex node);

  // As the station's port sees it now; false for a port without a link.
  bool carrier(NodeIndex node, uint32_t port) const;
  // A frame that cannot go out is lost.
  void send(NodeIndex node, uint32_t port, const Frame& frame);

  const Forwarding& forwarding();
  size_t links() const { return plans_.size(); }
  const LinkPlan& plan(LinkIndex link) const { return plans_.at(link); }

 private:
  // A strand and the port that it leads to.
  struct Strand {
    bool works = true;
    bool silent = false;
    uint32_t failures = 0;  // tells frames of before a failure
    int64_t last_arrival_us = 0;
  };
  struct Port final : Alarm {
    Network* network = nullptr;
    LinkIndex link = 0;
    size_t end = 0;
    bool signal = false;
    bool carrier = false;
    uint64_t generation = 0;  // of the detection under way
    void on_alarm(uint64_t token) override;
  };
  struct Flight final : Alarm {
    Network* network = nullptr;
    LinkIndex link = 0;
    size_t end = 0;  // where it comes from
    uint32_t failures = 0;
    Frame frame;
    void on_alarm(uint64_t token) override;
  };

  Strand& strand(LinkIndex link, size_t end) { return strands_.at(2 * link + end); }
  const Strand& strand(LinkIndex link, size_t end) const { return strands_.at(2 * link + end); }
  Port& port_at(LinkIndex link, size_t end) { return ports_[2 * link + end]; }
  Port* find_port(NodeIndex node, uint32_t port);
  const Port* find_port(NodeIndex node, uint32_t port) const;
  const LinkEnd& end_of(LinkIndex link, size_t end) const { return plans_[link].ends[end]; }

  void check_signal(LinkIndex link, size_t end);
  void launch(LinkIndex link, size_t end, const Frame& frame);
  void land(Flight& flight);

  World& world_;
  std::vector<LinkPlan> plans_;
  std::vector<Station*> stations_;
  std::vector<Strand> strands_;                    // 2 * link + the end that it leads away from
  std::deque<Port> ports_;                         // 2 * link + end
  std::vector<std::vector<Port*>> ports_of_node_;  // by node and port number
  std::deque<Flight> flights_;
  std::vector<Flight*> idle_flights_;
  Forwarding forwarding_;
};

}  // namespace erps::sim
