// erpslab simulate. Returns the exit status: 0 everything held, 1 a finding or a failed
// expectation, 2 mistakes in a file or on the command line, 3 could not run, 130 after Ctrl-C.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace erps::lab {

struct SimulateArguments {
  std::string topology;  // empty: drawn rings, or what a scenario file says
  bool every_link = false;
  bool every_node = false;
  bool exhaustive = false;
  std::string faults;  // "random", or empty
  std::string rings;   // "2-16"
  std::string scenario;
  std::optional<uint64_t> only;
  std::optional<uint64_t> seed;
  double hours = 1;
  std::optional<double> fault_every_s;
  uint64_t jobs = 0;  // 0: as many as there are processors
  std::string state;
  std::string scenarios;  // directory for the smallest scenarios; empty: the present one
  std::string pcap;       // directory
  std::string report;     // file
  std::string module;
  bool keep_going = false;
  bool json = false;
  bool verbose = false;
  bool log = false;
};

// `arguments` outlives the parsing.
CLI::App* add_simulate_command(CLI::App& app, SimulateArguments& arguments);

int command_simulate(const SimulateArguments& arguments);

}  // namespace erps::lab
