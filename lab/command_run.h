// The commands of erpslab. Each returns the exit status: 0 everything held, 1 an expectation
// failed, 2 mistakes in the file or on the command line, 3 the laboratory could not run, 4 nobody
// can tell, because this machine stood still.
#pragma once

#include <string>

namespace erps::lab {

inline constexpr int kHeld = 0;
inline constexpr int kFailed = 1;
inline constexpr int kMistaken = 2;
inline constexpr int kCouldNotRun = 3;
inline constexpr int kUndecided = 4;

struct RunArguments {
  std::string topology;
  std::string erpsd;   // empty: beside erpslab, then in PATH
  std::string module;  // empty: where the build or the installation puts it
  std::string pcap;    // directory, empty: none
  std::string logs;    // directory, empty: none
  bool json = false;
  bool keep_going = false;
  bool hold = false;
};

int command_run(const RunArguments& arguments);
int command_config(const std::string& topology, const std::string& node);

}  // namespace erps::lab
