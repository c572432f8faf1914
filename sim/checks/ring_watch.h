// What the rings of every node do, event by event: for each event of a node's protocol task, what
// it was, and each ring as the module held it before and after.
//
// A step is told when the event is done with; what a crash interrupts is never told.
//
// Threading: the simulation's. Errors: none.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "sim/module_records.h"
#include "sim/observer.h"
#include "sim/simulation.h"

namespace erps::sim {

// An R-APS message as the trace tells it.
struct RapsMessage {
  uint32_t summary = 0;
  uint32_t node = 0;  // end of the node ID

  uint32_t ring() const { return summary >> 16U; }
  uint32_t request() const { return summary >> 12U & 0xFU; }
  uint32_t sub_code() const { return summary >> 8U & 0xFU; }
  bool rb() const { return (summary & 0x80U) != 0; }
  bool dnf() const { return (summary & 0x40U) != 0; }
  // Without the bits that interconnection nodes change on the way.
  uint32_t content() const { return summary & ~0xF00U; }
};

struct Step {
  enum class Cause { kLink, kFrame, kTimer, kCommand, kTopologyChange, kIndication };

  NodeIndex node = 0;
  int64_t from_us = 0;  // when the event was taken
  int64_t to_us = 0;    // when it was done
  Cause cause{};
  uint32_t port = 0;     // of a link or a frame
  bool up = false;       // of a link
  RapsMessage message;   // of a frame
  uint32_t command = 0;  // mgmt::Command, and its first argument
  uint32_t argument = 0;
  const RingSnapshot* before = nullptr;  // null when the ring was not there
  const RingSnapshot* after = nullptr;   // null when it is gone

  uint32_t ring() const { return (before != nullptr ? before : after)->ring; }
};

class StepListener {
 public:
  virtual void on_step(const Step& step) = 0;

 protected:
  ~StepListener() = default;
};

class RingWatch final : public Observer {
 public:
  explicit RingWatch(Simulation& simulation);

  // Outlives the watch.
  void add(StepListener& listener) { listeners_.push_back(&listener); }

  // A ring as it was when its node last took an event or was done with one; null when there is
  // none.
  const RingSnapshot* ring(NodeIndex node, uint32_t ring) const;
  const std::vector<RingSnapshot>& rings(NodeIndex node) const { return nodes_[node].rings; }

  // Whether a ring of the node has this port and has heard of no failure there.
  bool link_is_up(const LinkEnd& end) const;

  // Whether the node's protocol task handles an event.
  bool in_event(NodeIndex node) const { return nodes_[node].in_event; }

  void on_record(const Record& record) override;
  void on_event_done(int64_t time_us, NodeIndex node) override;

 private:
  struct Watched {
    std::vector<RingSnapshot> rings;
    std::vector<RingSnapshot> next;
    bool in_event = false;
    bool is_current = false;  // rings, as long as no other task has run since:
    uint64_t handovers = 0;
    Step step;
    uint32_t command = 0;
    uint32_t argument = 0;
  };

  void take_event(Watched& watched, const Record& record);
  void tell(const Step& step);

  Simulation& simulation_;
  std::vector<Watched> nodes_;
  std::vector<StepListener*> listeners_;
};

}  // namespace erps::sim
