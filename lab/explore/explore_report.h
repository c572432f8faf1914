// What an exploration found, for people and for programs.
#pragma once

#include <string>

#include "lab/explore/command_explore.h"
#include "sim/explore/explorer.h"
#include "sim/explore/replay.h"

namespace erps::lab {

// "exhausted: every state was visited ...": the ending in a sentence.
std::string ending_text(const sim::explore::Report& report);
// One line, while it runs.
std::string progress_text(const sim::explore::Report& report);
std::string budget_text(const sim::explore::Budget& budget);

// The result. scenario_file: where the way to the violation was written.
std::string explore_text(const sim::explore::Report& report, const std::string& scenario_file);
std::string explore_json(sim::explore::Model& model, const ExploreArguments& arguments,
                         const sim::explore::Report& report);
// The scenario file of a violation or surprise, with the command that replays it.
std::string scenario_text(sim::explore::Model& model, const ExploreArguments& arguments,
                          const sim::explore::Trouble& trouble, const std::string& file);

std::string replay_step_text(const sim::explore::ReplayStep& step);

}  // namespace erps::lab
