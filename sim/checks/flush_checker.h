// Checks that every node forgets learnt addresses when an event asks for it, and does what makes
// others forget theirs: its messages name the port where something happened, its ports know the
// sender of the last message again, and an interconnection node tells its major ring of what
// changes in its sub-ring.
//
// It needs no traffic: what is looked at is the word to the switch. A platform that forgets in the
// background (Options::flush_worker) does so behind the event, and is not judged.
#pragma once

#include <map>
#include <vector>

#include "sim/checks/checker.h"
#include "sim/checks/mishaps.h"
#include "sim/checks/ring_watch.h"

namespace erps::sim {

class FlushChecker final : public Checker, public Observer, public StepListener {
 public:
  // Without a simulation, all that a node sends is taken for its event's. The mishaps are watched
  // elsewhere; none are known of without.
  explicit FlushChecker(const Topology& topology, const Simulation* simulation = nullptr,
                        const Mishaps* mishaps = nullptr)
      : topology_(topology),
        simulation_(simulation),
        mishaps_(mishaps),
        events_(topology.nodes.size()) {}

  void on_record(const Record& record) override;
  void on_step(const Step& step) override;
  void collect(int64_t now_us, std::vector<Finding>& findings) override;

 private:
  // What a node has done in its present event.
  struct Event {
    std::vector<uint32_t> flushed;  // ports
    std::vector<RapsMessage> sent;
  };
  // What an end of a sub-ring has told its major ring, or is about to.
  struct News {
    uint32_t status = 0;  // request and status of the message, and the end of its node ID
    uint32_t node = 0;
    std::vector<int64_t> untold_since_us;
  };

  void expect_flushed(const Step& step);
  void expect_known_sender(const Step& step);
  void expect_reference(const Step& step);
  void watch_sub_ring(const Step& step);
  void expect_told(const Step& step);
  void find(const Step& step, const std::string& text);
  const char* surprise_of(NodeIndex node, int64_t since_us) const;

  const Topology& topology_;
  const Simulation* simulation_;
  const Mishaps* mishaps_;
  std::vector<Event> events_;                            // by node
  std::map<std::pair<NodeIndex, uint32_t>, News> news_;  // by node and sub-ring
  FindingList findings_;
};

}  // namespace erps::sim
