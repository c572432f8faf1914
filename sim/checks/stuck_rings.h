// Rings that cannot come home by themselves, and by which event they came to that.
#pragma once

#include <map>
#include <set>

#include "sim/checks/ring_watch.h"

namespace erps::sim {

class StuckRings final : public Observer, public StepListener {
 public:
  explicit StuckRings(Simulation& simulation) : simulation_(simulation) {}

  void on_record(const Record& record) override;
  void on_step(const Step& step) override;

  // The surprises that keep these nodes from idle, all of them: nothing when one is unexplained.
  std::set<std::string> explain(uint32_t ring, const std::set<NodeIndex>& not_home) const;

 private:
  Simulation& simulation_;
  std::map<std::pair<NodeIndex, uint32_t>, const char*> stuck_;
};

}  // namespace erps::sim
