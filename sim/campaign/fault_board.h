// What stands of a scenario's faults at one moment, and what it does to the simulation.
//
// Threading: that of the simulation, from outside of all tasks. Errors: none.
#pragma once

#include <array>
#include <vector>

#include "sim/campaign/scenario.h"
#include "sim/simulation.h"

namespace erps::sim {

class FaultBoard {
 public:
  FaultBoard(Simulation& simulation, const Topology& topology);

  void begin(const Fault& fault) { change(fault, true); }
  // Of a fault that has begun.
  void end(const Fault& fault) { change(fault, false); }

 private:
  // One direction of a link: how many faults hold it down, and how it is.
  struct Strand {
    size_t cuts = 0;
    size_t silent = 0;
    bool down = false;
    bool down_silently = false;
  };

  void change(const Fault& fault, bool begins);
  void set_strand(LinkIndex link, size_t end);
  void command(const Fault& fault, bool begins);

  Simulation& simulation_;
  std::vector<std::array<Strand, 2>> strands_;
  std::vector<RapsFaults> usual_;
  std::vector<size_t> disturbances_;
  std::vector<size_t> crashes_;
  std::vector<size_t> kills_;
  std::vector<size_t> slow_;
  size_t failing_ = 0;
};

}  // namespace erps::sim
