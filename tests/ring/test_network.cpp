#include "tests/ring/test_network.h"

#include <ostream>

namespace erps::sim {

Options options_with(uint64_t seed) {
  Options options;
  options.seed = seed;
  options.module_path = ERPS_MODULE;
  return options;
}

TestNetwork::TestNetwork(const Topology& topology, const Options& options)
    : simulation(topology, options) {
  simulation.observe(loops_);
  simulation.observe(partitions_);
}

void TestNetwork::come_home() {
  const int64_t bound_us = home_bound_us(simulation.topology());
  const int64_t start_us = simulation.now_us();
  const auto reason = run_until_home(simulation, bound_us);
  EXPECT_FALSE(reason) << "after " << bound_us / kSecondUs << " s " << *reason << "; seed "
                       << simulation.seed() << ", since " << start_us << " us";
}

std::vector<std::string> TestNetwork::states() {
  std::vector<std::string> states;
  for (NodeIndex node = 0; node < simulation.topology().nodes.size(); ++node) {
    const auto status = simulation.ring_status(node, kRing);
    states.emplace_back(status ? state_name(status->state) : "down");
  }
  return states;
}

int64_t TestNetwork::longest_partition_us(int64_t since_us) {
  return partitions_.partitions().longest_us(since_us, simulation.now_us());
}

void TestNetwork::expect_no_loop() {
  for (const Spell& loop : loops_.loops().until(simulation.now_us())) {
    ADD_FAILURE() << "seed " << simulation.seed() << ": a loop from " << loop.from_us << " us to "
                  << loop.to_us << " us";
  }
}

void PrintTo(const RingCase& ring, std::ostream* out) {
  *out << ring.nodes << " nodes, ring role " << ring.ring_role;
}

}  // namespace erps::sim
