// How many simulated seconds the simulator makes in a second of processor time.
//
// A table for rings of several sizes, at rest and with random faults, without and with the
// checkers. Run it on a machine that has nothing else to do.
#include <sys/utsname.h>
#include <time.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "bench/random_faults.h"
#include "sim/checks/inspection.h"
#include "sim/simulation.h"

namespace {

using namespace erps;

constexpr int64_t kSliceUs = 20 * sim::kSecondUs;

struct Arguments {
  std::vector<size_t> nodes{4, 16, 64, 255};
  std::vector<uint32_t> fault_every_s{180, 20};
  double cpu_seconds = 2;
  uint64_t seed = 1;
  std::string module_path = ERPS_MODULE;
  bool only_faults = false;
  bool only_plain = false;
};

double cpu_seconds_now() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// fault_every_s: 0 for a ring at rest.
double measure(const Arguments& arguments, size_t nodes, uint32_t fault_every_s, bool checkers) {
  sim::Options options;
  options.seed = arguments.seed;
  options.module_path = arguments.module_path;
  sim::Simulation simulation(sim::make_ring({.nodes = nodes}), options);
  std::optional<sim::Inspection> inspection;
  if (checkers) {
    inspection.emplace(simulation);
  }
  bench::RandomFaults random_faults(simulation, arguments.seed, fault_every_s * sim::kSecondUs);
  // The start is not measured: it is over before the ring has come home.
  simulation.run_for(30 * sim::kSecondUs);
  if (fault_every_s != 0) {
    random_faults.start();
  }
  const int64_t from_us = simulation.now_us();
  const double from_cpu = cpu_seconds_now();
  double cpu = 0;
  while (cpu < arguments.cpu_seconds) {
    simulation.run_for(kSliceUs);
    cpu = cpu_seconds_now() - from_cpu;
  }
  return static_cast<double>(simulation.now_us() - from_us) / sim::kSecondUs / cpu;
}

std::string machine() {
  std::ifstream cpus("/proc/cpuinfo");
  std::string line;
  std::string model = "unknown processor";
  while (std::getline(cpus, line)) {
    if (line.rfind("model name", 0) == 0) {
      model = line.substr(line.find(':') + 2);
      break;
    }
  }
  utsname system{};
  uname(&system);
  return model + ", " + system.machine + ", Linux " + system.release;
}

std::string compiler() {
#if defined(__clang__)
  return std::string("clang ") + __clang_version__;
#else
  return std::string("g++ ") + __VERSION__;
#endif
}

void print_table(const Arguments& arguments) {
  std::printf("Simulated seconds a second of one core; %s; %s\n\n", machine().c_str(),
              compiler().c_str());
  std::printf("| nodes | faults | checkers | simulated seconds a second |\n|--:|---|---|--:|\n");
  std::vector<uint32_t> every = arguments.fault_every_s;
  if (!arguments.only_faults) {
    every.insert(every.begin(), 0);
  }
  for (const size_t nodes : arguments.nodes) {
    for (const uint32_t every_s : every) {
      const std::string faults = every_s == 0 ? "none" : "every " + std::to_string(every_s) + " s";
      for (const bool checkers : {false, true}) {
        if (!arguments.only_plain || !checkers) {
          std::printf("| %zu | %s | %s | %.0f |\n", nodes, faults.c_str(), checkers ? "on" : "off",
                      measure(arguments, nodes, every_s, checkers));
          std::fflush(stdout);
        }
      }
    }
  }
}

int run(int argc, char** argv) {
  CLI::App app("Measures the speed of the simulator", "simulator_speed");
  Arguments arguments;
  app.add_option("--nodes", arguments.nodes, "Sizes of the rings, 2 to 255")
      ->delimiter(',')
      ->check(CLI::Range(2, 255))
      ->capture_default_str();
  app.add_option("--fault-every", arguments.fault_every_s, "Seconds from a fault to the next")
      ->delimiter(',')
      ->check(CLI::Range(1, 86400))
      ->capture_default_str();
  app.add_option("--cpu-seconds", arguments.cpu_seconds, "Processor time for each line")
      ->check(CLI::Range(0.1, 3600.0))
      ->capture_default_str();
  app.add_option("--seed", arguments.seed)->capture_default_str();
  app.add_option("--module", arguments.module_path, "The module, liberps.so")->type_name("FILE");
  app.add_flag("--only-faults", arguments.only_faults, "No lines at rest");
  app.add_flag("--only-plain", arguments.only_plain, "No lines with checkers");
  CLI11_PARSE(app, argc, argv);
  print_table(arguments);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "simulator_speed: %s\n", error.what());
    return 1;
  }
}
