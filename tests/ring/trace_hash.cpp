// Runs one simulation a seed, with a random fault every 10 s, and prints what tells it from any
// other run: its trace hash. First comes where this process has its stack, its heap, its code and
// its libraries, which must make no difference.
//
//   ring_trace_hash MODULE SECONDS SEED...
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "bench/random_faults.h"
#include "sim/simulation.h"

namespace {

using namespace erps;

void print_addresses() {
  const int on_the_stack = 0;
  const auto on_the_heap = std::make_unique<int>();
  std::printf("addresses %p %p %p %p\n", static_cast<const void*>(&on_the_stack),
              static_cast<const void*>(on_the_heap.get()),
              reinterpret_cast<const void*>(&print_addresses),
              reinterpret_cast<const void*>(&std::strtol));
}

void print_hash(const std::string& module_path, int64_t seconds, uint64_t seed) {
  sim::Options options;
  options.seed = seed;
  options.module_path = module_path;
  options.flush_worker = seed % 3 == 0;
  const sim::Topology topology =
      seed % 2 == 0
          ? sim::make_ladder({})
          : sim::make_ring({.nodes = 4 + seed % 13, .ring_role = seed % 4 == 1 ? 1U : 0U});
  sim::Simulation simulation(topology, options);
  bench::RandomFaults faults(simulation, seed, 10 * sim::kSecondUs);
  faults.start();
  simulation.run_for(seconds * sim::kSecondUs);
  std::printf("seed %" PRIu64 " hash %016" PRIx64 "\n", seed, simulation.trace_hash());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: ring_trace_hash MODULE SECONDS SEED...\n");
    return EXIT_FAILURE;
  }
  print_addresses();
  try {
    for (int i = 3; i < argc; ++i) {
      print_hash(argv[1], std::stoll(argv[2]), std::stoull(argv[i]));
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "ring_trace_hash: %s\n", error.what());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
