// What happens for ever in a network that is left alone.
//
// There is no end of time in the graph of states, so whatever lasts, or comes again and again, is
// on a cycle. The strongly connected components (Tarjan) of the steps without faults are all that
// can last: none of their states may be wrong for long. Along the way it is measured how long the
// network takes at most until nothing wrong can come any more.
#pragma once

#include <cstdint>
#include <vector>

#include "sim/explore/explorer.h"

namespace erps::sim::explore {

class LastingCheck {
 public:
  // Of an explorer that has visited every state.
  explicit LastingCheck(Explorer& explorer);

  // Notes violations and surprises in the explorer's report.
  void run();

 private:
  struct Visit {
    StateIndex state;
    uint32_t lowest;
    size_t first_edge;
    size_t next_edge;
  };
  // A step to a state, and whether all clocks have done another half second with it.
  struct Edge {
    StateIndex to;
    bool half_done;
  };

  bool look_from(StateIndex root);
  void enter(StateIndex state);
  bool leave();
  bool judge_component(const std::vector<StateIndex>& members, bool lasts);
  Trouble way_round(StateIndex state, const std::vector<StateIndex>& members,
                    const std::string& what);

  Explorer& explorer_;
  Model& model_;
  uint32_t next_number_ = 1;
  std::vector<uint32_t> numbers_;  // by state: in the order of the visits, 0 not visited, or kDone
  std::vector<uint16_t> unrest_;   // by state: 0 all is well from here on, n: n - 1 halves at most
  std::vector<Visit> visits_;
  std::vector<Edge> edges_;
  std::vector<StateIndex> open_;  // visited, component not known yet
  std::vector<Model::Next> next_;
  uint16_t longest_unrest_ = 0;
};

}  // namespace erps::sim::explore
