// Which scenarios a command simulates: those that are drawn from a seed, those that are counted
// through, or one that stands in a file.
//
// Errors: SimError for a network that cannot be.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lab/topology.h"
#include "sim/campaign/every_case.h"
#include "sim/campaign/scenario.h"

namespace erps::lab {

struct CasePlan {
  const Topology* topology = nullptr;  // null: the networks are drawn, too
  std::string topology_path;           // as on the command line
  std::string module_path;             // likewise; empty: the build's
  sim::Range ring_nodes{2, 16};        // of drawn networks
  bool random = false;
  sim::EveryPlan every;  // where it is not random
  uint64_t seed = 1;
  double hours = 1;
  std::optional<double> fault_every_s;  // of random faults; empty: drawn for each scenario
};

class CaseSource {
 public:
  explicit CaseSource(const CasePlan& plan);

  // Of random cases: as many as it takes to simulate the plan's hours.
  uint64_t count() const { return count_; }
  sim::Case at(uint64_t number) const;
  const CasePlan& plan() const { return plan_; }

  // The command line that asks for all of the cases.
  std::string command() const;
  // One that numbers cases alike; which of them it is about, follows.
  std::string command_begin() const;
  // What makes two plans the same but for how long they go on.
  std::string key() const;

 private:
  const CasePlan plan_;
  sim::Topology network_;
  sim::Names names_;
  std::vector<sim::Case> every_;
  std::optional<int64_t> fault_every_us_;
  uint64_t count_ = 0;
};

// A word of a command line as a shell takes it.
std::string shell_word(const std::string& text);

// A file's network under the names of the file.
sim::Names names_of(const Topology& topology);

}  // namespace erps::lab
