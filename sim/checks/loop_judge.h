// Tells forwarding loops, and which of them the protocol makes by itself.
//
// A loop is put down to the event that closed it, and to nothing else: two ends of a restored link
// that open on each other's R-APS(SF), a link that comes back to two ports that were never blocked,
// or a port that is handed over to a sub-ring's end that does not block. Any other loop is a
// violation.
#pragma once

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
  void on_forwarding(int64_t time_us, const Forwarding& forwarding) override;
  void collect(int64_t now_us, std::vector<Finding>& findings) override;

 private:
  // An end of a restored link of a non-revertive ring opened on the R-APS(SF) of a node without a
  // failure.
  struct Crossing {
    int64_t time_us = 0;
    uint32_t ring = 0;
    NodeIndex node = 0;
    NodeIndex sender = 0;
  };
  // A carrier came back to a port that had failed second at its node, and forwards.
  struct Return {
    int64_t time_us = 0;
    LinkIndex link = 0;
    NodeIndex node = 0;
  };
  // A sub-ring's end started and blocks nothing, or a node opened on the R-APS(NR) of such an end.
  struct HandOver {
    int64_t time_us = 0;
    uint32_t ring = 0;
  };
  struct Loop {
    int64_t from_us = 0;
    int64_t to_us = 0;
    const char* surprise = "";
  };

  void on_sender(const Step& step, NodeIndex sender, const RingSnapshot& ring);
  bool is_open_all_around(uint32_t ring) const;
  const char* surprise_at(int64_t time_us) const;
  void tell(const Loop& loop, FindingList& into) const;
  void forget_before(int64_t time_us);

  const Topology& topology_;
  const RingWatch& watch_;
  const Bounds bounds_;
  std::vector<Crossing> crossings_;
  std::vector<Return> returns_;
  std::vector<HandOver> hand_overs_;
  Loop loop_;
  bool open_ = false;
  FindingList findings_;
};

}  // namespace erps::sim
