// Why a partition lasts, found by what would have to be otherwise for it to end.
//
// First everybody is supposed to have heard what everybody repeats: where that ends the partition,
// somebody has yet to hear something. Else the protocol itself keeps it: each of the surprises that
// do so has a condition of its own, and those are the reason without which it would end.
#pragma once

#include <set>
#include <vector>

#include "sim/checks/suppositions.h"

namespace erps::sim {

struct PartitionReason {
  bool is_unheard = false;
  std::set<NodeIndex> concerned;       // by what is unheard
  std::vector<const char*> surprises;  // all of them together; none when nothing explains it

  friend bool operator==(const PartitionReason&, const PartitionReason&) = default;
};

// The surprises that keep a network from coming home by itself, which has been left alone for long;
// none when nothing explains it.
std::vector<const char*> why_never_home(const Topology& topology,
                                        const Circumstances& circumstances);

PartitionReason reason_of(const Topology& topology, const Circumstances& circumstances);

}  // namespace erps::sim
