// The memories that nodes have been in, each kept once and known by a number, with what the network
// sees of them.
//
// Two nodes are in the same local state only when their memories are the same, word for word.
//
// Threading: one thread. Errors: none.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "sim/explore/machine.h"

namespace erps::sim::explore {

using LocalId = uint32_t;
inline constexpr LocalId kNoPower = 0;

struct LocalState {
  uint32_t open_ports = 0;  // bit p: port p has a carrier and forwards
  uint32_t own_events = 0;  // that wait
  bool home = false;        // all rings idle, only ports at the RPL blocked
  std::vector<RingSnapshot> rings;
};

class LocalStates {
 public:
  explicit LocalStates(const std::vector<NodePlan>& plans);

  // The state of the node that the machine plays now.
  LocalId keep(const Machine& machine);
  void put_back(LocalId id, Machine& machine);

  const LocalState& at(LocalId id) const { return states_[id]; }
  size_t size() const { return states_.size(); }
  size_t bytes() const;

 private:
  // A word that differs from the first memory of all.
  struct Difference {
    uint32_t place = 0;
    uint64_t word = 0;
  };
  struct Extent {
    size_t begin = 0;
    size_t end = 0;
  };

  bool is_same(const Extent& kept) const;
  LocalState describe(const Machine& machine) const;

  const std::vector<NodePlan>& plans_;
  Image reference_;
  Image scratch_;
  std::vector<Difference> found_;        // of the memory that is looked up
  std::vector<Difference> differences_;  // of all states, one after the other
  std::vector<Extent> extents_;          // by id
  std::vector<LocalState> states_;       // by id
  std::unordered_multimap<uint64_t, LocalId> by_hash_;
};

}  // namespace erps::sim::explore
