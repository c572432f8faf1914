// erpslab check: what is wrong or risky with a plan, before anything runs.
#pragma once

#include <string>
#include <vector>

namespace erps::lab {

struct CheckArguments {
  std::string topology;             // a topology file, or
  std::vector<std::string> daemon;  // configuration files of erpsd, and directories with *.toml
  bool json = false;
};

// Prints a line that says it all, then a line a finding. Returns the exit status that monitoring
// expects: see verdict.h.
int command_check(const CheckArguments& arguments);

}  // namespace erps::lab
