// Scenarios: short stories of one node, told in a text file each.
//
//   Scenario: the owner reports a cut link
//     given ring 1 ports 1 2 owner
//           enable 1
//     when link 1 down
//     then block 1
//          send 2: SF
//          ring 1 is protection, local 11
//
// A line that starts with a keyword belongs to it; a line further in repeats the last keyword.
//   given  steps whose effects are not looked at
//   when   steps whose effects are
//   then   exactly these effects, in this order, of the steps since the last "then". Calls of the
//          platform, errors and notices are all to be named; debug lines may be left out unless one
//          line says "every log line". "nothing" stands for no effect. "ring N is ..." asks what
//          management reads of the ring then.
// The steps are listed in stage.h, the effects in effects.h. "#" begins a comment line.
#pragma once

#include <string>
#include <vector>

namespace erps::test {

struct ScenarioStep {
  int line = 0;
  std::string text;
};

// Steps, and what they must have caused.
struct ScenarioPart {
  bool observed = false;  // when, not given
  std::vector<ScenarioStep> steps;
  int then_line = 0;
  bool every_log_line = false;
  std::vector<std::string> effects;
  std::vector<std::string> states;  // "ring 1 is idle, local 0"
};

struct Scenario {
  std::string file;   // without folder and extension
  std::string title;  // unique in its file
  int line = 0;
  std::vector<ScenarioPart> parts;
};

// Throws std::runtime_error naming file and line.
std::vector<Scenario> read_scenarios(const std::string& path);

// All scenario files of a folder, in the order of their names.
std::vector<Scenario> read_scenario_folder(const std::string& folder);

}  // namespace erps::test
