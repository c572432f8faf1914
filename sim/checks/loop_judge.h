// Tells forwarding loops, and which of them the protocol makes by itself.
//
// A loop is put down to the event that closed it, and to nothing else: a port that was opened on a
// message which is not true, or no longer, or a link that comes back to ports that were never
// blocked. Any other loop is a violation.
#pragma once

#include <limits>
#include <map>
#include <string>
#include <vector>

#include "sim/checks/bounds.h"
#include "sim/checks/checker.h"
#include "sim/checks/ring_watch.h"

namespace erps::sim {

class LoopJudge final : public Checker, public Observer, public StepListener {
 public:
  // The watch observes before this does.
  LoopJudge(Simulation& simulation, const RingWatch& watch, const Bounds& bounds);

  void on_record(const Record& record) override;
  void on_step(const Step& step) override;
  void on_event_done(int64_t time_us, NodeIndex node) override;
  void on_forwarding(int64_t time_us, const Forwarding& forwarding) override;
  void collect(int64_t now_us, std::vector<Finding>& findings) override;

 private:
  // A carrier came back to a port that forwards and nobody watches over.
  struct Return {
    int64_t time_us = 0;
    LinkIndex link = 0;
    NodeIndex node = 0;
    bool is_forced = false;
  };
  // A port was opened, in an event of this time, that should have stayed blocked.
  struct Opening {
    int64_t from_us = 0;
    int64_t to_us = 0;
    uint32_t ring = 0;
    const char* surprise = "";
  };
  // Why a loop is there, and how long it lasts at most on that account.
  struct Cause {
    const char* surprise = "";
    int64_t most_us = std::numeric_limits<int64_t>::max();
  };
  struct Loop {
    int64_t from_us = 0;
    int64_t to_us = 0;
    Cause cause;
  };

  void watch_opening(const Step& step);
  const char* surprise_of(const Step& step) const;
  bool two_repair() const;
  bool goes_on_joining() const;
  Cause cause_by_count() const;
  Cause cause_by_opening(const Opening& opening) const;
  Cause cause_by_open_ring() const;
  bool owner_waits(uint32_t ring) const;
  bool is_open_all_around(uint32_t ring) const;
  Cause cause_at(int64_t time_us) const;
  void tell(const Loop& loop, FindingList& into) const;
  void forget_before(int64_t time_us);

  const Topology& topology_;
  const RingWatch& watch_;
  const Bounds bounds_;
  std::vector<Return> returns_;
  std::vector<Opening> openings_;
  std::map<std::pair<NodeIndex, uint32_t>, int64_t> guarded_until_us_;  // by node and ring
  std::vector<bool> dead_;  // by node: powered, and its module is not there
  Loop loop_;
  bool open_ = false;
  FindingList findings_;
};

}  // namespace erps::sim
