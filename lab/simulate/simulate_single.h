// One simulation in detail: a file's script, a scenario of a campaign, or one from a file. Each
// prints what happened and returns the exit status.
//
// Errors: LabError and SimError for what cannot run.
#pragma once

#include <string>

#include "lab/simulate/case_source.h"
#include "lab/simulate/command_simulate.h"

namespace erps::lab {

struct SimulateContext {
  const SimulateArguments& arguments;
  std::string module;
  uint64_t seed = 0;
};

int simulate_steps(const SimulateContext& context, const Topology& topology);
int simulate_one(const SimulateContext& context, const CaseSource& source, uint64_t number);
// topology: null for a scenario of a drawn network.
int simulate_scenario_file(const SimulateContext& context, const Topology* topology);

// "erpslab simulate [TOPOLOGY] [--module ...]", to which what is to be done is added.
std::string command_begin(const SimulateArguments& arguments);

// Prints on standard output; the seed comes first, on standard error where the report is JSON.
void print(const std::string& text);
void print_seed(const SimulateContext& context);
// Throws LabError when it cannot be written.
void write_file(const std::string& path, const std::string& text);

}  // namespace erps::lab
