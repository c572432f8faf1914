#include "sim/checks/partition_checker.h"

#include "sim/checks/graph.h"

namespace erps::sim {

void PartitionChecker::on_forwarding(int64_t time_us, const Forwarding& forwarding) {
  partitions_.set(time_us, has_partition(forwarding));
}

}  // namespace erps::sim
