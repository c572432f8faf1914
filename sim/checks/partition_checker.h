// Watches for nodes that cannot reach each other although working links join them.
#pragma once

#include "sim/checks/spells.h"
#include "sim/observer.h"

namespace erps::sim {

class PartitionChecker final : public Observer {
 public:
  void on_forwarding(int64_t time_us, const Forwarding& forwarding) override;
  const Spells& partitions() const { return partitions_; }

 private:
  Spells partitions_;
};

}  // namespace erps::sim
