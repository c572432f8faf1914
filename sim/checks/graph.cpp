#include "sim/checks/graph.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace erps::sim {

namespace {

class Groups {
 public:
  explicit Groups(size_t count) : parent_(count) { std::iota(parent_.begin(), parent_.end(), 0); }

  size_t find(size_t member) {
    while (parent_[member] != member) {
      parent_[member] = parent_[parent_[member]];
      member = parent_[member];
    }
    return member;
  }
  void join(size_t one, size_t other) { parent_[find(one)] = find(other); }

 private:
  std::vector<size_t> parent_;
};

// Strands that no frame can enter any more are taken away, and with them what only they feed; a
// frame enters a strand from any other link into its node. What is left feeds itself.
bool has_one_way_loop(const Forwarding& forwarding) {
  const auto& arcs = forwarding.arcs;
  std::vector<size_t> into(forwarding.powered.size());
  std::vector<bool> left(arcs.size());
  for (size_t i = 0; i < arcs.size(); ++i) {
    left[i] = arcs[i].forwards;
    into[arcs[i].to] += left[i] ? 1 : 0;
  }
  for (bool removed = true; removed;) {
    removed = false;
    for (size_t i = 0; i < arcs.size(); ++i) {
      const size_t opposite = i ^ 1U;
      if (left[i] && into[arcs[i].from] == (left[opposite] ? 1U : 0U)) {
        left[i] = false;
        --into[arcs[i].to];
        removed = true;
      }
    }
  }
  return std::find(left.begin(), left.end(), true) != left.end();
}

}  // namespace

bool has_loop(const Forwarding& forwarding) {
  const auto& arcs = forwarding.arcs;
  Groups groups(forwarding.powered.size());
  bool both_ways = true;
  for (size_t i = 0; i < arcs.size(); i += 2) {
    both_ways = both_ways && arcs[i].forwards == arcs[i + 1].forwards;
    if (!arcs[i].forwards || !arcs[i + 1].forwards) {
      continue;
    }
    if (groups.find(arcs[i].from) == groups.find(arcs[i].to)) {
      return true;
    }
    groups.join(arcs[i].from, arcs[i].to);
  }
  return !both_ways && has_one_way_loop(forwarding);
}

bool has_partition(const Forwarding& forwarding) {
  const auto& arcs = forwarding.arcs;
  Groups groups(forwarding.powered.size());
  for (size_t i = 0; i < arcs.size(); i += 2) {
    if (arcs[i].forwards && arcs[i + 1].forwards) {
      groups.join(arcs[i].from, arcs[i].to);
    }
  }
  for (size_t i = 0; i < arcs.size(); i += 2) {
    if (arcs[i].works && arcs[i + 1].works &&
        groups.find(arcs[i].from) != groups.find(arcs[i].to)) {
      return true;
    }
  }
  return false;
}

}  // namespace erps::sim
