// All checkers at once, on one simulation.
//
//   sim::Simulation simulation(topology, options);
//   sim::Inspection inspection(simulation);  // before the first run_
//   ... faults and commands ...
//   inspection.expect_home();
//   for (const sim::Finding& finding : inspection.findings()) ...
//
// Threading: the simulation's. Errors: SimError for a module whose records cannot be found, and
// those of the simulation's run_ functions, out of expect_home().
#pragma once

#include <memory>
#include <vector>

#include "sim/checks/finding.h"
#include "sim/simulation.h"

namespace erps::sim {

class Inspection {
 public:
  // Watches from now on. Ends before the simulation does.
  explicit Inspection(Simulation& simulation);
  ~Inspection();
  Inspection(const Inspection&) = delete;
  Inspection& operator=(const Inspection&) = delete;

  // The faults have stopped: runs until every ring is home, or for home_bound_us(), which is then a
  // finding.
  void expect_home();
  // How long the way home takes at most, as configuration, links and timing have it.
  int64_t home_bound_us() const;

  // Until now, in the order of their beginnings; what still lasts ends now.
  std::vector<Finding> findings();
  // Whether there is no finding but named surprises.
  bool clean();

 private:
  struct Checkers;

  Simulation& simulation_;
  std::unique_ptr<Checkers> checkers_;
};

}  // namespace erps::sim
