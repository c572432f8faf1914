// A network that never comes to rest: a random fault or command every so often, each undone again.
#pragma once

#include <cstdint>

#include "sim/simulation.h"

namespace erps::bench {

// Schedules itself in virtual time, from its own seeded chance. It outlives the simulation.
class RandomFaults {
 public:
  RandomFaults(sim::Simulation& simulation, uint64_t seed, int64_t period_us)
      : simulation_(simulation), chance_(seed, 77), period_us_(period_us) {}

  // From now on, until the simulation ends.
  void start();

 private:
  void strike();
  void strike_link(int64_t heals_us);
  void strike_node(int64_t heals_us);
  void command(int64_t heals_us);
  size_t draw(size_t count) {
    return static_cast<size_t>(chance_.in({0, static_cast<int64_t>(count) - 1}));
  }

  sim::Simulation& simulation_;
  sim::Random chance_;
  const int64_t period_us_;
};

}  // namespace erps::bench
