// Starts a simulation, prints the number of copies of the module on disk and where they are, and
// ends as its argument says: "exit", or by a signal's number.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "sim/module_files.h"
#include "sim/simulation.h"

int main(int, char** argv) {
  erps::sim::Options options;
  options.seed = 4711;
  options.module_path = ERPS_MODULE;
  erps::sim::Simulation simulation(erps::sim::make_ring({}), options);
  simulation.run_for(erps::sim::kSecondUs);
  const erps::sim::ModuleFile another(ERPS_MODULE);
  std::printf("%s\n", another.path().c_str());
  std::fflush(stdout);
  const std::string way = argv[1];
  if (way != "exit") {
    raise(std::stoi(way));
  }
  return EXIT_SUCCESS;
}
