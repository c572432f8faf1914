// Checks every change of every ring at every node against what its events allow: link changes,
// received messages, commands, expiries.
//
// A message that the trace shows as received is judged by ring ID, sender and guard time; a ring
// without a control VLAN is not judged by its messages, which it reads at the wrong offsets.
#pragma once

#include <map>
#include <utility>

#include "sim/checks/checker.h"
#include "sim/checks/mishaps.h"
#include "sim/checks/ring_model.h"
#include "sim/checks/ring_watch.h"
#include "sim/observer.h"

namespace erps::sim {

class StateChecker final : public Checker, public Observer, public StepListener {
 public:
  // The mishaps are watched elsewhere; none are known of without.
  explicit StateChecker(const Topology& topology, const Mishaps* mishaps = nullptr);

  void on_record(const Record& record) override;
  void on_step(const Step& step) override;
  void collect(int64_t now_us, std::vector<Finding>& findings) override;

 private:
  // What may have become of a ring.
  using Outcomes = std::vector<RingSnapshot>;

  void allow(const Step& step);
  void allow_after_start(const Step& step);
  void allow_after_link(const Step& step);
  void allow_after_frame(const Step& step);
  void allow_after_timer(const Step& step);
  void allow_after_command(const Step& step);
  void allow_after_indication(const Step& step);
  bool carrier_changed_during(const Step& step, uint32_t port) const;
  bool guard_agrees(const Step& step, const RingSnapshot& expected) const;
  void offer(const RingSnapshot& ring, RingRequest request, const RequestDetails& details);
  void add(RingModel& model);
  void offer_message(const Step& step, RingRequest request);

  const Topology& topology_;
  const Mishaps* mishaps_;
  std::multimap<uint32_t, MacAddress> nodes_;                             // by the end of their IDs
  std::map<std::pair<NodeIndex, uint32_t>, int64_t> carrier_changed_us_;  // by port, the last time
  Outcomes outcomes_;                                                     // of the present step
  FindingList findings_;
};

}  // namespace erps::sim
