#include "sim/world.h"

namespace erps::sim {

void World::report(const std::string& text) {
  if (!violation_) {
    violation_ = "seed " + std::to_string(options.seed) + ", at " + std::to_string(now_us()) +
                 " us: " + text;
  }
}

}  // namespace erps::sim
