// Tells the partitions that last too long, and which of them the protocol makes by itself.
//
// A repair takes the detection of the fault and a message's way. What lasts longer has a reason at
// every moment (partition_reason.h), or it is a violation. Where somebody has yet to hear
// something, there was a mishap to a message at one of those whom it concerns, and the message is
// repeated in time.
#pragma once

#include <optional>

#include "sim/checks/bounds.h"
#include "sim/checks/checker.h"
#include "sim/checks/mishaps.h"
#include "sim/checks/partition_reason.h"
#include "sim/checks/repairs.h"
#include "sim/checks/spells.h"

namespace erps::sim {

class PartitionJudge final : public Checker, public Observer, public StepListener {
 public:
  // Both are watched elsewhere, and before this is.
  PartitionJudge(Simulation& simulation, const RingWatch& watch, const Bounds& bounds,
                 Mishaps& mishaps);

  void on_record(const Record& record) override;
  void on_step(const Step& step) override;
  void on_event_done(int64_t time_us, NodeIndex node) override;
  void on_forwarding(int64_t time_us, const Forwarding& forwarding) override;

  const Circumstances& circumstances();

  void collect(int64_t now_us, std::vector<Finding>& findings) override;

 private:
  // Why the partition lasted, from this time on until the next one.
  struct Stretch {
    int64_t from_us = 0;
    PartitionReason reason;
  };
  struct Partition : Spell {
    std::vector<Stretch> stretches;  // the first begins when half of the allowed time is over
    int64_t slowness = 1;            // the most of any node
  };

  bool starts_beside_split(const Step& step) const;
  void watch_repair(const Step& step);
  void change(NodeIndex node);
  void change_all();
  void note(int64_t time_us);
  void look();
  void find_reason(int64_t time_us);
  void judge(const Partition& partition, FindingList& into) const;
  void judge_old(int64_t now_us);

  Simulation& simulation_;
  const RingWatch& watch_;
  const Bounds bounds_;
  Mishaps& mishaps_;
  std::vector<int64_t> slowness_;  // by node
  int64_t most_slowness_ = 1;
  Circumstances last_;                        // at the last change
  std::vector<std::vector<size_t>> ends_of_;  // by node, 2 * link + end
  // Where something may have changed since it was looked at.
  std::vector<NodeIndex> changed_;
  std::vector<bool> is_changed_;    // by node
  int64_t noted_us_ = 0;            // when that was
  bool is_asked_ = false;           // for the reason in these circumstances
  std::vector<Partition> waiting_;  // to be judged once all is known of them
  Repairs repairs_;
  bool open_ = false;
  bool step_changed_ = false;  // something, and it is not noted
  FindingList findings_;
};

}  // namespace erps::sim
