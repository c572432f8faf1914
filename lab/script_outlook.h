// What the rings should settle to after each step of the script, told from the topology alone.
#pragma once

#include <optional>
#include <vector>

#include "lab/findings.h"
#include "lab/topology.h"

namespace erps::lab {

struct RingOutlook {
  // Empty when nothing is known; a file with such a step is refused.
  std::optional<NodeState> state;
  // The ring ports that are blocked, sorted; empty when they are not judged.
  std::optional<std::vector<PortRef>> blocked;
  // Ring ports that may be blocked or not. A node that lost both of its ring links blocks the one
  // that it lost first and may leave the other one as it is: nothing passes either.
  std::vector<PortRef> either;
};

struct StepOutlook {
  std::vector<RingOutlook> rings;      // by RingIndex
  std::vector<bool> daemon_runs;       // by NodeIndex; the others are not asked
  std::vector<LinkIndex> cut;          // links that are cut after the step
  std::vector<bool> stream_judged;     // by stream: there is a way before and after the step
  std::optional<double> outage_ms;     // bound for each judged stream
  std::optional<uint64_t> duplicates;  // bound for all streams
  std::optional<uint64_t> reordered;   // bound for all streams
  uint32_t settle_ms = 0;              // the longest that the rings may take
};

// Element 0 is the start, element i + 1 what follows step i. Reports steps that cannot be done
// (restoring a link that is not cut) and steps whose outcome the file has to say.
std::vector<StepOutlook> script_outlook(const Topology& topology, Findings& findings);

}  // namespace erps::lab
