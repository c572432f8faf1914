// How far what has failed or come back, and mishaps to messages, explain that a partition lasts.
//
// Threading: the simulation's. Errors: none.
#pragma once

#include <cstdint>
#include <limits>
#include <set>
#include <vector>

#include "sim/checks/bounds.h"
#include "sim/checks/mishaps.h"
#include "sim/forwarding.h"

namespace erps::sim {

// How far an explanation goes, and its name if it is a surprise.
struct Cover {
  int64_t until_us = 0;
  const char* surprise = nullptr;
};

// By what happened until this time to one of those whom it concerns.
Cover cover_by_mishap(const Mishaps& mishaps, int64_t time_us,
                      const std::set<NodeIndex>& concerned);

// What fails or comes back, and the time that its repair takes.
class Repairs {
 public:
  void on_record(const Record& record);
  void on_forwarding(int64_t time_us, const Forwarding& forwarding);

  // A link or a node has failed or come back, or a node without its software is split off until
  // that runs; a node that boots is, even if its power fails again before.
  Cover cover(const Mishaps& mishaps, int64_t time_us, const Bounds& bounds) const;

  void forget_before(int64_t time_us);

 private:
  // From a node's power on until its module runs, or the node is down again.
  struct Boot {
    NodeIndex node = 0;
    int64_t from_us = 0;
    int64_t to_us = std::numeric_limits<int64_t>::max();
  };

  void end_boot(int64_t time_us, NodeIndex node);

  Forwarding last_;
  std::vector<int64_t> changes_us_;  // when links and nodes failed or came back
  std::vector<int64_t> starts_us_;   // when nodes were configured
  std::vector<Boot> boots_;
};

}  // namespace erps::sim
