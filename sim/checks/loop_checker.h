// Watches for forwarding loops, at every instant.
#pragma once

#include "sim/checks/spells.h"
#include "sim/observer.h"

namespace erps::sim {

class LoopChecker final : public Observer {
 public:
  void on_forwarding(int64_t time_us, const Forwarding& forwarding) override;
  const Spells& loops() const { return loops_; }

 private:
  Spells loops_;
};

}  // namespace erps::sim
