// Tells the partitions that last too long, and which of them the protocol makes by itself.
//
// A repair takes the detection of the fault and a message's way. A partition that lasts longer is
// put down to a mishap of a message, which lasts until the message is repeated, or to forced
// switches, as far as these cover it without a gap; else it is a violation. What a node missed
// covers only as long as that node blocks.
#pragma once

#include <set>
#include <vector>

#include "sim/checks/bounds.h"
#include "sim/checks/checker.h"
#include "sim/checks/forced_switches.h"
#include "sim/checks/mishaps.h"
#include "sim/checks/spells.h"

namespace erps::sim {

class PartitionJudge final : public Checker, public Observer {
 public:
  // All three are watched elsewhere, and before this is.
  PartitionJudge(Simulation& simulation, const RingWatch& watch, const Bounds& bounds,
                 Mishaps& mishaps, ForcedSwitches& forced);

  void on_record(const Record& record) override;
  void on_forwarding(int64_t time_us, const Forwarding& forwarding) override;
  void collect(int64_t now_us, std::vector<Finding>& findings) override;

 private:
  // Who blocked a working link, from this time on until the next one.
  struct Blocks {
    int64_t from_us = 0;
    std::set<NodeIndex> nodes;
    const char* surprise = nullptr;  // that makes the partition by itself
  };
  struct Partition : Spell {
    std::vector<Blocks> blocks;

    // Until when the node blocks without a break; the time itself if it does not.
    int64_t blocked_until_us(NodeIndex node, int64_t time_us) const;
  };

  void look(int64_t time_us);
  const char* surprise_in(const Forwarding& forwarding, const std::set<NodeIndex>& blocking) const;
  bool is_by_silence(const Forwarding& forwarding) const;
  bool is_by_untold_failure(const Forwarding& forwarding,
                            const std::set<NodeIndex>& blocking) const;
  bool is_by_dead_modules(const Forwarding& forwarding) const;
  bool owner_is_no_help(NodeIndex blocking, const char*& surprise) const;
  std::set<NodeIndex> blocking(const Forwarding& forwarding) const;
  void judge(const Partition& partition, FindingList& into) const;
  void judge_old(int64_t now_us);

  Simulation& simulation_;
  const RingWatch& watch_;
  const Bounds bounds_;
  Mishaps& mishaps_;
  ForcedSwitches& forced_;
  std::vector<Partition> waiting_;  // to be judged once all is known of them
  std::vector<int64_t> starts_us_;
  Forwarding forwarding_;   // at the last change of the partition that lasts
  int64_t looked_us_ = 0;   // when its reason was last looked for
  std::vector<bool> dead_;  // by node: powered, and its module is not there
  bool open_ = false;
  FindingList findings_;
};

}  // namespace erps::sim
